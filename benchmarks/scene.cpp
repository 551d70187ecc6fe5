#include "benchmarks/scene.h"

#include "benchmarks/statistics.h"
#include "rig/serviceprocess.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpSocket>
#include <QThread>

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds drainTimeout{1200};
constexpr int answerTimeoutMs = 30'000;

/// Empties the folder, so that nothing of an earlier run is left.
QString emptied(const QString &folder)
{
    QDir(folder).removeRecursively();
    return folder;
}

} // namespace

Scene::Scene(const Options &options, Table &table, Receiver &receiver)
    : options(options)
    , table(table)
    , receiver(receiver)
    , till(emptied(options.folder + u"/root"_s))
{
    // The poll period is the service's default.
    till.setSettings(u"[queue]\nport = %1\n%2"_s.arg(till.controlPort()).arg(table.settings()));
}

QString Scene::settingsFile() const
{
    return path(u"tallocash/cash/conf/tcash.ini"_s);
}

void Scene::setJournal(bool isKept)
{
    till.write(u"/tallocash/cash/queue/config/queue.d/journal.ini"_s,
               isKept ? "" : "[journal]\nenabled = false\n");
}

std::unique_ptr<Process> Scene::startService(Processors processors, const Variables &environment,
                                             const QString &program) const
{
    QFile::remove(serviceLog());
    return std::make_unique<Process>(
        std::make_unique<rig::ServiceProcess>(program.isEmpty() ? options.service : program, till,
                                              environment, rig::ServiceProcess::Log::File),
        processors);
}

std::unique_ptr<Process> Scene::startBareLoop(const QStringList &names, int each, bool isQt,
                                              bool isGated, Processors processors,
                                              const Variables &environment) const
{
    QStringList arguments = table.bareLoopArguments();
    if (isQt)
        arguments.first().prepend(u"qt-"_s);
    if (isGated && table.database() == u"SQLite")
        arguments.first().prepend(u"gate-"_s);
    arguments += {names.join(u','), QString::number(each)};
    return start(options.bareLoop, arguments, bareLog(), environment, processors);
}

std::unique_ptr<Process> Scene::start(const QString &program, const QStringList &arguments,
                                      const QString &output, const Variables &environment,
                                      Processors processors) const
{
    QFile::remove(output);
    auto process = std::make_unique<rig::ChildProcess>(program, arguments);
    process->setOutputFile(output);
    process->setVariable(u"QUEUE_ROOT"_s, till.root());
    for (const auto &[name, value] : environment.asKeyValueRange())
        process->setVariable(name, value);
    return std::make_unique<Process>(std::move(process), processors);
}

void Scene::awaitRequests(int requests)
{
    if (!receiver.wait(requests, drainTimeout))
        fail(u"%1 of %2 messages arrived, the log is %3"_s.arg(receiver.drain().requests)
                 .arg(requests)
                 .arg(serviceLog()));
}

void Scene::awaitControl() const
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, till.controlPort());
        if (socket.waitForConnected(1000))
            return;
        if (timer.hasExpired(answerTimeoutMs))
            fail(u"the control interface does not answer, the log is %1"_s.arg(serviceLog()));
        QThread::msleep(5);
    }
}

double Scene::askStatus() const
{
    QElapsedTimer timer;
    timer.start();
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, till.controlPort());
    socket.write("GET /status HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    QByteArray answer;
    while (!answer.contains("messagesCount")) {
        if (!socket.waitForReadyRead(answerTimeoutMs))
            fail(u"/status was not answered: %1"_s.arg(QString::fromUtf8(answer)));
        answer += socket.readAll();
    }
    return static_cast<double>(timer.nsecsElapsed()) / 1e6;
}
