#include "tests/faults/service.h"

#include <QFile>
#include <QJsonDocument>
#include <QTcpSocket>

#include <csignal>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace faults {

namespace {

constexpr int startLimitMs = 60'000;

} // namespace

Service::Service(const QString &logPath, const QString &root)
    : logPath(logPath)
{
    if (!root.isEmpty())
        environment.insert(u"QUEUE_ROOT"_s, root);
    port.lend();
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(logPath, QIODevice::Append);
    const pid_t test = ::getpid();
    process.setChildProcessModifier([this, test] {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != test)
            ::_exit(1);
        // Nobody but root may give it up, and nobody else has it.
        if (obeysFileRights)
            ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
    });
}

Service::~Service()
{
    if (process.state() != QProcess::NotRunning)
        kill();
}

void Service::setVariable(const QString &name, const QString &value)
{
    environment.insert(name, value);
}

void Service::start()
{
    process.setProcessEnvironment(environment);
    process.start(QStringLiteral(QUEUE_PROGRAM), QStringList());
    if (!process.waitForStarted(startLimitMs))
        qFatal("%s: %s", QUEUE_PROGRAM, qPrintable(process.errorString()));
}

bool Service::isRunning()
{
    // Without an event loop nobody else takes note of the end.
    return process.state() != QProcess::NotRunning && !process.waitForFinished(0);
}

void Service::kill()
{
    process.kill();
    process.waitForFinished(startLimitMs);
}

bool Service::stop(int limitMs)
{
    process.terminate();
    return process.waitForFinished(limitMs) && end() == u"exit 0";
}

bool Service::waitForEnd(int limitMs)
{
    return process.state() == QProcess::NotRunning || process.waitForFinished(limitMs);
}

void Service::signal(int number) const
{
    ::kill(static_cast<pid_t>(process.processId()), number);
}

QString Service::end() const
{
    return process.exitStatus() == QProcess::NormalExit ? u"exit %1"_s.arg(process.exitCode())
                                                        : u"signal"_s;
}

QJsonObject Service::ask(const QString &path, int limitMs) const
{
    QTcpSocket socket;
    socket.connectToHost(u"127.0.0.1"_s, port.port());
    if (!socket.waitForConnected(limitMs))
        return {};
    socket.write("GET " + path.toUtf8()
                 + " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
    QByteArray answer;
    for (;;) {
        answer += socket.readAll();
        const qsizetype head = answer.indexOf("\r\n\r\n");
        const QJsonDocument document =
            head < 0 ? QJsonDocument() : QJsonDocument::fromJson(answer.mid(head + 4));
        if (document.isObject())
            return document.object();
        if (!socket.waitForReadyRead(limitMs))
            return {};
    }
}

QByteArray Service::log() const
{
    QFile file(logPath);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(logPath), qPrintable(file.errorString()));
    return file.readAll();
}

} // namespace faults
