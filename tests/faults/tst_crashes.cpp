#include "engine/dao.h"
#include "rig/childprocess.h"
#include "rig/mariadbserver.h"
#include "rig/serviceprocess.h"
#include "rig/waiting.h"
#include "shared/core/config.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/fileutils.h"
#include "shared/core/paths.h"
#include "shared/core/singleton.h"
#include "tests/faults/feeder.h"
#include "tests/faults/form.h"
#include "tests/faults/traffic.h"
#include "tests/support/queuedatabase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <cstdio>
#include <cstring>
#include <random>
#include <string_view>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;
using namespace std::chrono_literals;

namespace {

uint seedOfThisRun()
{
    const uint seed = qEnvironmentVariableIsSet("QUEUE_FAULTS_SEED")
                          ? qEnvironmentVariable("QUEUE_FAULTS_SEED").toUInt()
                          : std::random_device()();
    qInfo("QUEUE_FAULTS_SEED=%u", seed);
    return seed;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// This program once more, for work at which it is killed. Its standard output goes to a file of
/// its own, its errors to another one.
class Worker : public rig::ChildProcess
{
public:
    Worker(const QStringList &arguments, const QString &output)
        : ChildProcess(QCoreApplication::applicationFilePath(), arguments)
        , output(output)
    {
        QFile::remove(output);
        setOutputFile(output);
        setErrorFile(output + u".err"_s);
    }

    /// Returns when it has begun with its work, and so has said something.
    bool begin()
    {
        start();
        const auto hasBegun = [this] {
            return QFileInfo(output).size() > 0;
        };
        return rig::waitUntil([&] { return hasBegun() || !isRunning(); }) && hasBegun();
    }
    QByteArray errors() const { return contentOf(output + u".err"_s); }

private:
    const QString output;
};

} // namespace

/// The service is killed at random moments while rows of eight types are written and delivered,
/// some of which the peer refuses at first. QUEUE_FAULTS_SEED repeats the moments of a run.
class TestCrashes : public QObject
{
    Q_OBJECT

public:
    explicit TestCrashes(MariaDbServer *server)
        : server(server)
    {
    }

private Q_SLOTS:
    void killedAtRandomMoments();

private:
    /// Messages that are neither in the table nor at the peer, and faults of the file of fail ids.
    QStringList findings(QueueDatabase &database, const faults::Traffic &traffic, int written);

    MariaDbServer *server;
};

QStringList TestCrashes::findings(QueueDatabase &database, const faults::Traffic &traffic,
                                  int written)
{
    QStringList result;
    // First the table, then the peer: a row that has left the table has reached the peer by then.
    const QList<QVariantList> rows = database.query(u"SELECT body FROM message"_s);
    QSet<int> kept = traffic.done();
    for (const QVariantList &row : rows)
        kept.insert(faults::Traffic::numberIn(row.value(0).toString().toStdString()));
    for (int number = 0; number < written; ++number) {
        if (!kept.contains(number))
            result.append(u"message %1 of type %2 is gone"_s.arg(QString::number(number),
                                                                 faults::Traffic::typeOf(number)));
    }

    const QDir folder(database.root() + u"/tallocash/cash/queue"_s);
    QFile ids(folder.filePath(u"ids.json"_s));
    if (ids.open(QIODevice::ReadOnly)) {
        const QByteArray text = ids.readAll();
        if (!QJsonDocument::fromJson(text).isObject())
            result.append(u"ids.json holds '%1'"_s.arg(QString::fromUtf8(text)));
    }
    return result;
}

void TestCrashes::killedAtRandomMoments()
{
    const int kills = faults::count(20, 200);
    const uint seed = seedOfThisRun();
    std::mt19937 random(seed);

    QueueDatabase database;
    rig::ServiceProcess service(QStringLiteral(QUEUE_PROGRAM), database.till(), {},
                                rig::ServiceProcess::Log::File);
    database.setSettings(database.till().queueSettings()
                         + (server ? server->settings() : QString()));
    if (server)
        server->run(u"TRUNCATE queues.message; TRUNCATE queues.documentcard"_s);
    database.query(u"INSERT INTO documentcard (id, operationinfo) VALUES (1, '')"_s);

    faults::Traffic traffic;
    faults::Feeder feeder(database, traffic, 160);
    int inDelivery = 0;
    for (int kill = 0; kill < kills; ++kill) {
        traffic.beginLife();
        const int before = traffic.counts().requests;
        service.start();
        if (random() % 4 == 0) {
            // During the start: connecting, reading or writing the fail ids, the first requests.
            traffic.waitFor([](const auto &) { return false; },
                            std::chrono::milliseconds(random() % 80));
        } else {
            const int wanted = before + 1 + static_cast<int>(random() % 60);
            traffic.waitFor([before](const auto &counts) { return counts.requests > before; }, 5s);
            // A process whose workers have all met a refusal does nothing more.
            traffic.waitFor([wanted](const auto &counts) { return counts.requests >= wanted; },
                            250ms);
            // Anywhere between a request, its answer, the deletion and the next read.
            traffic.waitFor([](const auto &) { return false; },
                            std::chrono::microseconds(random() % 3000));
        }
        QVERIFY2(service.isRunning(), service.output().right(2000).constData());
        service.kill();
        inDelivery += traffic.counts().requests > before ? 1 : 0;
        const QStringList found = findings(database, traffic, feeder.written());
        QVERIFY2(found.isEmpty(), qPrintable(found.join(u'\n')));
    }

    feeder.stop();
    const int written = feeder.written();
    traffic.setRefusing(false);
    traffic.beginLife();
    service.start();
    QVERIFY2(
        traffic.waitFor([written](const auto &counts) { return counts.messages == written; }, 120s),
        service.output().right(2000).constData());
    QTRY_COMPARE_WITH_TIMEOUT(database.ids(), QList<int>(), 60'000);
    QVERIFY(service.stop());
    const QStringList found = findings(database, traffic, written);
    QVERIFY2(found.isEmpty(), qPrintable(found.join(u'\n')));
    if (!server)
        QCOMPARE(database.query(u"PRAGMA queues.integrity_check"_s).value(0).value(0).toString(),
                 u"ok"_s);

    const faults::Traffic::Counts counts = traffic.counts();
    const int workers = static_cast<int>(faults::Traffic::types().size());
    const QStringList left = QDir(database.root() + u"/tallocash/cash/queue"_s)
                                 .entryList({u"ids.json?*"_s}, QDir::Files | QDir::Hidden);
    qInfo("%s: %d kills, %d of them while messages went out; %d messages written, %d received; "
          "%d refusals; %d repeats, allowed %d; %d temporary files of the fail ids left behind",
          server ? "MariaDB" : "SQLite", kills, inDelivery, written, counts.messages,
          counts.refusals, counts.repeats, kills * workers, static_cast<int>(left.size()));
    QCOMPARE(counts.messages, written);
    // A killed worker has one delivery in progress, and only that one may be sent again.
    QVERIFY(counts.repeats <= kills * workers);
    const QHash<QString, int> repeats = traffic.repeatsByType();
    for (const auto &[type, count] : repeats.asKeyValueRange())
        QVERIFY2(count <= kills, qPrintable(type));
    QCOMPARE(counts.repeatsInOneLife, 0);
    QCOMPARE(counts.outOfOrder, 0);
    // Otherwise the kills did not interrupt anything.
    QVERIFY(inDelivery >= kills / 2);
    QVERIFY(counts.refusals > 0);
}

constexpr auto writerArgument = "--write-fail-ids";

QJsonObject failIdsOf(int value)
{
    QJsonObject ids;
    for (int type = 0; type < 58; ++type)
        ids.insert(u"type%1"_s.arg(type), value);
    return ids;
}

bool writeFailIds(const QString &path, int value)
{
    return fileutils::writeToFile(path, failIdsOf(value),
                                  QIODevice::ReadWrite | QIODevice::Truncate);
}

/// Writes the file again and again until it is killed.
int writeFailIdsForEver(const QString &path)
{
    for (int value = 2;; value = 3 - value) {
        if (!writeFailIds(path, value) || ::write(STDOUT_FILENO, ".", 1) != 1) {
            std::perror("the fail ids cannot be written");
            return 1;
        }
    }
}

/// Writing the file of fail ids is so short that a random kill of the service hardly ever
/// interrupts it. So this test kills a process that writes only this file.
class TestFailIdsFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void killedWhileItIsWritten();
};

void TestFailIdsFile::killedWhileItIsWritten()
{
    const int kills = faults::count(100, 1000);
    const uint seed = seedOfThisRun();
    std::mt19937 random(seed);
    const QTemporaryDir folder;
    const QString path = folder.filePath(u"ids.json"_s);
    QVERIFY(writeFailIds(path, 1));
    for (int kill = 0; kill < kills; ++kill) {
        Worker writer({QString::fromLatin1(writerArgument), path}, folder.filePath(u"output"_s));
        QVERIFY2(writer.begin(), writer.errors().constData());
        // The random moment is the fault, so this does not wait for a condition.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 3000));
        QVERIFY2(writer.isRunning(), writer.errors().constData());
        writer.kill();

        const QByteArray text = contentOf(path);
        const QJsonObject ids = QJsonDocument::fromJson(text).object();
        QVERIFY2(ids == failIdsOf(1) || ids == failIdsOf(2), text.constData());
    }
    qInfo("%d kills while the file of fail ids was written, it was whole each time", kills);
}

constexpr int removers = 8;
constexpr auto removerArgument = "--remove-rows";

/// Removes the rows of the table as fast as it can, in eight threads with rows of their own. Prints
/// each row after its removal has returned, and how many removals waited before it. Runs until it
/// is killed.
int removeRows()
{
    Config::setConfigsPathList({QDir(rootedPath(u"/tallocash/cash/conf"_s))}, {});
    std::vector<std::thread> threads;
    for (int number = 0; number < removers; ++number) {
        threads.emplace_back([number] {
            queue::DAO dao;
            dao.connect();
            ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
            const WriteGate *gate = factory->gateOf(factory->getConnection());
            const QString type = u"type%1"_s.arg(number);
            for (;;) {
                const Message message = dao.getMessage(type, -1, false, QString());
                if (message.id < 1)
                    return;
                const int others = gate->waiting();
                dao.deleteMessage(message.id);
                if (dao.getErrorsCount() > 0)
                    ::_exit(1);
                const int told[2] = {message.id, others};
                if (::write(STDOUT_FILENO, told, sizeof told) != sizeof told)
                    ::_exit(2);
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    return 0;
}

/// Workers remove their rows in common transactions. A process that only does this is killed at
/// random moments: a removal that has returned is in the file.
class TestRemovals : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void killedWhileRowsAreRemoved();
};

void TestRemovals::killedWhileRowsAreRemoved()
{
    const int kills = faults::count(60, 1000);
    constexpr int rowsOfAType = 2000;
    const uint seed = seedOfThisRun();
    std::mt19937 random(seed);
    const QTemporaryDir folder;
    const QString output = folder.filePath(u"output"_s);
    QueueDatabase database;
    int last = 0;
    int toldInAll = 0;
    int toldTogether = 0;
    int untold = 0;
    int inTheMiddle = 0;
    for (int kill = 0; kill < kills; ++kill) {
        if (database.ids().size() < rowsOfAType) {
            database.query(u"BEGIN"_s);
            for (int i = 0; i < rowsOfAType * removers; ++i)
                last = database.put(u"type%1"_s.arg(i % removers), u"{}"_s);
            database.query(u"COMMIT"_s);
        }
        const QList<int> before = database.ids();
        Worker process({QString::fromLatin1(removerArgument)}, output);
        QVERIFY2(process.begin(), process.errors().constData());
        // The random moment is the fault, so this does not wait for a condition.
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
        process.kill();
        // It may have come to its end since.
        QVERIFY2(process.end() == u"signal" || process.end() == u"exit 0",
                 process.errors().constData());

        const QByteArray told = contentOf(output);
        const QList<int> left = database.ids();
        const QSet<int> kept(left.begin(), left.end());
        int removedNow = 0;
        for (qsizetype at = 0; at + 8 <= told.size(); at += 8) {
            int pair[2] = {};
            std::memcpy(pair, told.constData() + at, sizeof pair);
            QVERIFY2(!kept.contains(pair[0]), qPrintable(QString::number(pair[0])));
            ++removedNow;
            toldTogether += pair[1] > 0 ? 1 : 0;
        }
        toldInAll += removedNow;
        // Each thread has at most one removal in progress.
        const qsizetype untoldNow = before.size() - left.size() - removedNow;
        QVERIFY2(untoldNow >= 0 && untoldNow <= removers, qPrintable(QString::number(untoldNow)));
        untold += static_cast<int>(untoldNow);
        inTheMiddle += process.end() == u"signal" ? 1 : 0;
        QCOMPARE(database.query(u"PRAGMA queues.integrity_check"_s).value(0).value(0).toString(),
                 u"ok"_s);
    }
    qInfo(
        "%d kills, %d of them in the middle; %d removals returned, none of their rows is left, %d "
        "found others waiting; %d rows were gone before their removal returned",
        kills, inTheMiddle, toldInAll, toldTogether, untold);
    QVERIFY(last > 0);
    QVERIFY(inTheMiddle >= kills / 2);
    QVERIFY(toldTogether > 0);
}

int main(int argc, char **argv)
{
    if (argc > 1 && argv[1] == std::string_view(removerArgument))
        return removeRows();
    if (argc > 2 && argv[1] == std::string_view(writerArgument))
        return writeFailIdsForEver(QFile::decodeName(argv[2]));
    QCoreApplication application(argc, argv);
    TestFailIdsFile onFile;
    int failures = QTest::qExec(&onFile, argc, argv);
    TestRemovals removals;
    failures += QTest::qExec(&removals, argc, argv);
    TestCrashes onSqlite(nullptr);
    failures += QTest::qExec(&onSqlite, argc, argv);
    MariaDbServer server;
    TestCrashes onServer(&server);
    failures += QTest::qExec(&onServer, argc, argv);
    return failures;
}

#include "tst_crashes.moc"
