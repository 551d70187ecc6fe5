#include "tests/faults/till.h"

#include "rig/error.h"
#include "rig/waiting.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QTcpSocket>
#include <QTimer>

#include <ctime>

using namespace Qt::StringLiterals;

namespace faults {

namespace {

void write(const QString &path, const QString &text)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(text.toUtf8()) < 0)
        qFatal("%s: %s", qPrintable(path), qPrintable(file.errorString()));
}

QByteArray processFile(qint64 process, const QString &name)
{
    QFile file(u"/proc/%1/%2"_s.arg(QString::number(process), name));
    if (!file.open(QIODevice::ReadOnly))
        qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    return file.readAll();
}

} // namespace

Till::Till(const QString &settings, const QMap<QString, QString> &environment)
{
    port.lend();
    for (const QString &name :
         {u"tmp"_s, u"tallocash/cash/conf/tcash.ini.d/puppet"_s,
          u"tallocash/cash/queue/config/queue.d"_s, u"tallocash/cash/paysystems/atolpay"_s}) {
        if (!QDir(folder.path()).mkpath(name))
            qFatal("%s: cannot be made", qPrintable(folder.filePath(name)));
    }
    write(path(u"tallocash/cash/conf/tcash.ini"_s),
          u"[queue]\ntimeout = 1\nport = %1\n"_s.arg(port.port()) + settings);
    try {
        rig::DatabasePlace place;
        place.file = path(u"tallocash/cash/queue/queues.db"_s);
        table = std::make_unique<rig::MessageTable>(place);
        table->createTables();
        process = std::make_unique<rig::ServiceProcess>(QStringLiteral(QUEUE_PROGRAM),
                                                        folder.path(), environment);
    } catch (const rig::Error &error) {
        qFatal("%s", qPrintable(error.text()));
    }
}

Till::~Till() = default;

void Till::start()
{
    try {
        process->start();
    } catch (const rig::Error &error) {
        qFatal("%s", qPrintable(error.text()));
    }
    const bool isUp = rig::waitUntil(
        [this] { return process->hasEnded() || ask("/status").contains("messagesCount"); });
    if (!isUp || process->hasEnded())
        qFatal("the service does not start:\n%s%s", qPrintable(process->logText()),
               qPrintable(process->errors()));
}

int Till::put(const QString &type, const QJsonObject &body, const QString &cardNumber)
{
    rig::TableRow row;
    row.type = type;
    row.body = QString::fromUtf8(QJsonDocument(body).toJson(QJsonDocument::Compact));
    row.cardNumber = cardNumber;
    try {
        return table->put(row);
    } catch (const rig::Error &error) {
        qFatal("%s", qPrintable(error.text()));
    }
}

QList<int> Till::ids()
{
    QList<int> result;
    try {
        const QList<rig::TableRow> rows = table->rows();
        for (const rig::TableRow &row : rows)
            result.append(row.id);
    } catch (const rig::Error &error) {
        qFatal("%s", qPrintable(error.text()));
    }
    return result;
}

void Till::remove(int id)
{
    try {
        table->remove(id);
    } catch (const rig::Error &error) {
        qFatal("%s", qPrintable(error.text()));
    }
}

bool Till::waitUntilRemoved(int id)
{
    return rig::waitUntil([this, id] { return !isIn(id); });
}

bool Till::waitForEnds(const QString &type, int count)
{
    return rig::waitUntil([&] { return process->hasEnded() || process->ends(type) >= count; })
           && !process->hasEnded();
}

QStringList Till::lines(const QString &category) const
{
    QStringList result;
    for (const rig::LogRecord &record : process->log()) {
        if (record.category == category)
            result.append(record.text);
    }
    return result;
}

QList<int> Till::exchangeTimes(const QString &type) const
{
    static const QRegularExpression time(u"\\AОтвет: .*, мс: (\\d+), байт: "_s);
    QList<int> result;
    const QStringList texts = lines(type);
    for (const QString &text : texts) {
        const QRegularExpressionMatch match = time.match(text);
        if (match.hasMatch())
            result.append(match.captured(1).toInt());
    }
    return result;
}

QByteArray Till::ask(const QByteArray &target) const
{
    constexpr int waitMs = 30'000;
    QTcpSocket socket;
    QEventLoop loop;
    QObject::connect(&socket, &QTcpSocket::disconnected, &loop, &QEventLoop::quit);
    QObject::connect(&socket, &QTcpSocket::errorOccurred, &loop, &QEventLoop::quit);
    QTimer::singleShot(waitMs, &loop, &QEventLoop::quit);
    socket.connectToHost(u"127.0.0.1"_s, port.port());
    socket.write("GET " + target + " HTTP/1.1\r\nHost: till\r\nConnection: close\r\n\r\n");
    // The service does not answer while nobody takes its log, which this loop does. A port that nobody
    // listens on may have refused before there is anything to wait for.
    if (socket.state() != QAbstractSocket::UnconnectedState)
        loop.exec();
    const QByteArray answer = socket.readAll();
    const qsizetype end = answer.indexOf("\r\n\r\n");
    return end < 0 ? QByteArray() : answer.mid(end + 4);
}

qint64 Till::peakMemory() const
{
    return statusField("VmHWM");
}

qint64 Till::memory() const
{
    return statusField("VmRSS");
}

qint64 Till::statusField(const QByteArray &name) const
{
    const QList<QByteArray> fields = processFile(process->processId(), u"status"_s).split('\n');
    for (const QByteArray &field : fields) {
        if (field.startsWith(name + ':'))
            return field.mid(name.size() + 1).simplified().split(' ').first().toLongLong();
    }
    qFatal("the kernel does not tell %s", name.constData());
}

double Till::processorSeconds() const
{
    clockid_t clock = 0;
    timespec time = {};
    if (::clock_getcpuclockid(static_cast<pid_t>(process->processId()), &clock) != 0
        || ::clock_gettime(clock, &time) != 0)
        qFatal("the kernel does not tell the processor time");
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

} // namespace faults
