// Measures the service from outside, beside a bare loop that stands for what the machine allows: the
// time of a delivery, and the memory of the idle service. ./bench builds and calls it.

#include "benchmarks/receiver.h"

#include <sqlite3.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr double ratioTarget = 1.25;
constexpr double memoryTargetMb = 40;
constexpr int bodyBytes = 400;
constexpr std::chrono::seconds drainTimeout{300};
constexpr int processTimeoutMs = 30000;
const QString messageType = u"heineken"_s;

struct Figure
{
    double bare = 0;
    double service = 0;
    double ratio() const { return service / bare; }
};

[[noreturn]] void fail(const QString &text)
{
    throw std::runtime_error(text.toStdString());
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    return values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

/// Asks `condition` every few milliseconds.
template <typename Condition>
void waitFor(const QString &what, Condition condition)
{
    QElapsedTimer timer;
    timer.start();
    while (!condition()) {
        if (timer.hasExpired(processTimeoutMs))
            fail(u"%1: not within %2 s"_s.arg(what).arg(processTimeoutMs / 1000));
        QThread::msleep(5);
    }
}

/// A till's folders below a folder of their own, with an empty or filled table.
class Till
{
public:
    Till(const QString &folder, int receiverPort, int messages)
        : folder(folder)
    {
        QDir(folder).removeRecursively();
        for (const char *path : {"/tallocash/cash/conf", "/tallocash/cash/queue/config"}) {
            if (!QDir().mkpath(folder + QLatin1String(path)))
                fail(u"%1 cannot be made"_s.arg(folder + QLatin1String(path)));
        }
        QTcpServer free;
        free.listen(QHostAddress::LocalHost);
        controlPort = free.serverPort();
        QFile settings(folder + u"/tallocash/cash/conf/bench.ini"_s);
        if (!settings.open(QIODevice::WriteOnly))
            fail(u"%1 cannot be written"_s.arg(settings.fileName()));
        settings.write(u"[queue]\nport = %1\ntimeout = 1\n"_s.arg(controlPort).toUtf8());

        open();
        fill(messages, receiverPort);
    }
    ~Till() { sqlite3_close(database); }
    Till(const Till &) = delete;
    Till &operator=(const Till &) = delete;

    QString databasePath() const { return folder + u"/tallocash/cash/queue/queues.db"_s; }
    QString logPath() const { return folder + u"/queue.log"_s; }

    int messageCount()
    {
        int count = -1;
        sqlite3_stmt *statement = nullptr;
        sqlite3_prepare_v2(database, "SELECT COUNT(*) FROM message", -1, &statement, nullptr);
        if (sqlite3_step(statement) == SQLITE_ROW)
            count = sqlite3_column_int(statement, 0);
        sqlite3_finalize(statement);
        return count;
    }

    const QString folder;
    int controlPort = 0;

private:
    void execute(const QByteArray &statements)
    {
        if (sqlite3_exec(database, statements.constData(), nullptr, nullptr, nullptr) != SQLITE_OK)
            fail(QString::fromUtf8(sqlite3_errmsg(database)));
    }

    void open()
    {
        QFile schema(QStringLiteral(QUEUE_SOURCE_DIR "/packaging/sql/sqlite.sql"));
        if (!schema.open(QIODevice::ReadOnly))
            fail(u"%1 cannot be read"_s.arg(schema.fileName()));
        if (sqlite3_open(databasePath().toUtf8().constData(), &database) != SQLITE_OK)
            fail(QString::fromUtf8(sqlite3_errmsg(database)));
        sqlite3_busy_timeout(database, 5000);
        execute("PRAGMA journal_mode=WAL");
        execute(schema.readAll());
    }

    void fill(int messages, int receiverPort)
    {
        QJsonObject message{
            {u"url"_s, u"http://127.0.0.1:%1/heineken/sales"_s.arg(receiverPort)},
            {u"headers"_s,
             QJsonObject{{u"Content-Type"_s, u"application/json"_s}, {u"X-Shop"_s, u"0042"_s}}},
            {u"body"_s, QString()},
            {u"timeout"_s, 5},
        };
        const auto size = [&message] {
            return QJsonDocument(message).toJson(QJsonDocument::Compact).size();
        };
        message[u"body"_s] = QString(bodyBytes - size(), u'x');
        const QByteArray text = QJsonDocument(message).toJson(QJsonDocument::Compact);

        execute("BEGIN");
        sqlite3_stmt *insert = nullptr;
        sqlite3_prepare_v2(database, "INSERT INTO message (type, body) VALUES (?, ?)", -1, &insert,
                           nullptr);
        sqlite3_bind_text(insert, 1, messageType.toUtf8().constData(), -1, SQLITE_TRANSIENT);
        sqlite3_bind_text(insert, 2, text.constData(), -1, SQLITE_TRANSIENT);
        for (int i = 0; i < messages; ++i) {
            if (sqlite3_step(insert) != SQLITE_DONE)
                fail(QString::fromUtf8(sqlite3_errmsg(database)));
            sqlite3_reset(insert);
        }
        sqlite3_finalize(insert);
        execute("COMMIT; PRAGMA wal_checkpoint(TRUNCATE)");
    }

    sqlite3 *database = nullptr;
};

/// The running service; ended by its destructor.
class Service
{
public:
    Service(const QString &program, const Till &till)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"QUEUE_ROOT"_s, till.folder);
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.setStandardOutputFile(till.logPath());
        process.start(program, {});
        if (!process.waitForStarted(processTimeoutMs))
            fail(u"%1: %2"_s.arg(program, process.errorString()));
    }
    ~Service()
    {
        process.terminate();
        if (!process.waitForFinished(processTimeoutMs))
            process.kill();
    }

    qint64 processId() const { return process.processId(); }

private:
    QProcess process;
};

class Bench
{
public:
    Bench(const QString &program, const QString &bareLoop, const QString &folder)
        : program(program)
        , bareLoop(bareLoop)
        , folder(folder)
    {
    }

    /// Microseconds per message, by the bare loop and by the service right after it.
    Figure drain(int messages)
    {
        Figure figure;
        figure.bare = drainByBareLoop(messages);
        const std::string bareHead = receiver.drain().head;
        figure.service = drainByService(messages);
        serviceHead = receiver.drain().head;
        if (headerNames(serviceHead) != headerNames(bareHead))
            fail(
                u"the requests differ in their headers, so the figures cannot be compared:\n%1\n\n%2"_s
                    .arg(QString::fromStdString(bareHead), QString::fromStdString(serviceHead)));
        return figure;
    }

    /// Resident memory in MB once it has not changed for two seconds, in which at least one poll ran.
    double idleMemoryMb()
    {
        const Till till(folder + u"/idle"_s, receiver.port(), 0);
        const Service service(program, till);
        waitFor(u"the control interface answers"_s, [&till] {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, till.controlPort);
            return socket.waitForConnected(1000);
        });
        double memory = 0;
        QElapsedTimer unchanged;
        unchanged.start();
        waitFor(u"the memory of the service settles"_s, [&] {
            const double now = residentMb(service.processId());
            if (now != memory)
                unchanged.restart();
            memory = now;
            return unchanged.hasExpired(2000);
        });
        return memory;
    }

private:
    /// From the arrival of the first request to that of the last one lie `messages` - 1 whole rounds
    /// of reading, sending and deleting, and nothing of the start or of the polling period.
    double microsecondsPerMessage(int messages) const
    {
        const Receiver::Drain drain = receiver.drain();
        const std::chrono::duration<double, std::micro> time = drain.last - drain.first;
        return time.count() / (messages - 1);
    }

    double drainByBareLoop(int messages)
    {
        Till till(folder + u"/bare"_s, receiver.port(), messages);
        receiver.expect(messages);
        QProcess process;
        process.setProcessChannelMode(QProcess::ForwardedChannels);
        process.start(bareLoop, {till.databasePath(), messageType});
        if (!process.waitForStarted(processTimeoutMs))
            fail(u"%1: %2"_s.arg(bareLoop, process.errorString()));
        const bool arrived = receiver.wait(drainTimeout);
        if (!process.waitForFinished(processTimeoutMs) || process.exitCode() != 0 || !arrived)
            fail(u"the bare loop did not deliver every message"_s);
        if (till.messageCount() != 0)
            fail(u"the bare loop left messages in the table"_s);
        return microsecondsPerMessage(messages);
    }

    double drainByService(int messages)
    {
        Till till(folder + u"/service"_s, receiver.port(), messages);
        receiver.expect(messages);
        const Service service(program, till);
        if (!receiver.wait(drainTimeout))
            fail(u"the service did not deliver every message, its log is %1"_s.arg(till.logPath()));
        waitFor(u"the service empties the table"_s, [&till] { return till.messageCount() == 0; });
        if (receiver.drain().requests != messages)
            fail(u"the service sent %1 requests for %2 messages"_s.arg(receiver.drain().requests)
                     .arg(messages));
        return microsecondsPerMessage(messages);
    }

    static QStringList headerNames(const std::string &head)
    {
        QStringList names;
        const QStringList lines = QString::fromStdString(head).split(u"\r\n"_s).mid(1);
        for (const QString &line : lines)
            names.append(line.section(u':', 0, 0).toLower());
        names.sort();
        return names;
    }

    static double residentMb(qint64 processId)
    {
        QFile status(u"/proc/%1/status"_s.arg(processId));
        if (!status.open(QIODevice::ReadOnly))
            fail(u"the service has ended"_s);
        const QStringList lines = QString::fromUtf8(status.readAll()).split(u'\n');
        for (const QString &line : lines) {
            if (line.startsWith(u"VmRSS:"))
                return line.section(u':', 1).trimmed().section(u' ', 0, 0).toDouble() / 1024;
        }
        return 0;
    }

    const QString program;
    const QString bareLoop;
    const QString folder;
    Receiver receiver;
    std::string serviceHead;
};

const char *verdict(double value, double target)
{
    return value <= target ? "reached" : "missed";
}

void measure(Bench &bench, int messages, int rounds)
{
    std::printf(
        "Drain of %d `heineken` messages of %d bytes through one worker: SQLite, synchronous=FULL,\n"
        "to a local receiver. The service logs to a file, as systemd keeps its output.\n\n"
        "Microseconds per message   bare loop   service   ratio\n",
        messages, bodyBytes);
    std::fflush(stdout);

    // The first drain of all finds cold caches.
    bench.drain(std::min(messages, 500));

    std::vector<double> bare;
    std::vector<double> service;
    for (int round = 1; round <= rounds; ++round) {
        const Figure figure = bench.drain(messages);
        bare.push_back(figure.bare);
        service.push_back(figure.service);
        std::printf("  round %-2d                 %9.1f %9.1f %7.2f\n", round, figure.bare,
                    figure.service, figure.ratio());
        std::fflush(stdout);
    }
    const Figure middle{median(bare), median(service)};
    std::printf("  median                   %9.1f %9.1f %7.2f   target: at most %.2f, %s\n\n",
                middle.bare, middle.service, middle.ratio(), ratioTarget,
                verdict(middle.ratio(), ratioTarget));

    const double memory = bench.idleMemoryMb();
    std::printf("Resident memory of the idle service: %.1f MB   target: at most %.0f MB, %s\n",
                memory, memoryTargetMb, verdict(memory, memoryTargetMb));
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Measures the service beside a bare loop"_s);
    parser.addHelpOption();
    parser.addOptions({
        {u"quick"_s, u"Fewer messages and rounds."_s},
        {u"program"_s, u"The service."_s, u"path"_s, u"build/release/queue"_s},
        {u"bare-loop"_s, u"The bare loop."_s, u"path"_s, u"build/release/queue-bareloop"_s},
        {u"folder"_s, u"Where databases and logs lie meanwhile."_s, u"path"_s, u"build/bench"_s},
    });
    parser.process(application);

    const bool quick = parser.isSet(u"quick"_s);
    try {
        Bench bench(parser.value(u"program"_s), parser.value(u"bare-loop"_s),
                    QDir(parser.value(u"folder"_s)).absolutePath());
        measure(bench, quick ? 2000 : 5000, quick ? 5 : 7);
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "queue-bench: %s\n", exception.what());
        return 1;
    }
    return 0;
}
