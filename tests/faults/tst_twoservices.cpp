#include "rig/loopbackserver.h"
#include "rig/mariadbserver.h"
#include "rig/serviceprocess.h"
#include "rig/till.h"
#include "shared/core/folderlock.h"
#include "shared/core/serverlock.h"
#include "tests/faults/serverfaults.h"

#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <csignal>

using namespace Qt::StringLiterals;
using rig::LoopbackServer;
using rig::MariaDbServer;

namespace {

constexpr int limitMs = 90'000;

const QByteArray standByLine = u"эта остаётся в резерве"_s.toUtf8();
const QByteArray takeOverLine =
    u"Служба выходит из резерва и принимает очередь 'queues'"_s.toUtf8();
const QByteArray lossLine = u"Нет блокировки очереди 'queues' на сервере базы данных"_s.toUtf8();
const QByteArray returnLine = u"Блокировка очереди 'queues' возвращена"_s.toUtf8();
const QByteArray deliveryLine = u"Обработка сообщения: "_s.toUtf8();
const QByteArray pollLine = u"Запуск обработчиков"_s.toUtf8();
const QByteArray otherHasTypeLine =
    u"Сообщения типа 'heineken' доставляет другая служба"_s.toUtf8();

/// A service on a machine of its own: its folder, its settings, its log.
class Node
{
public:
    explicit Node(MariaDbServer &server)
        : service(QStringLiteral(QUEUE_PROGRAM), till, {}, rig::ServiceProcess::Log::File)
    {
        till.setSettings(till.queueSettings() + server.settings());
    }

    QString role() const
    {
        const auto holder = FolderLock::holder(till.path(u"/tallocash/cash/queue/queue.lock"_s));
        return holder ? holder->role : QString();
    }
    bool waitForRole(const QString &wanted)
    {
        return QTest::qWaitFor([&] { return role() == wanted; }, limitMs);
    }
    /// How often the log has a line.
    qsizetype count(const QByteArray &line) const { return service.output().count(line); }
    bool waitForLine(const QByteArray &line, qsizetype times = 1)
    {
        return QTest::qWaitFor([&] { return count(line) >= times; }, limitMs);
    }
    /// As systemd does.
    void keepUp()
    {
        if (!service.isRunning())
            service.start();
    }

    rig::Till till;
    rig::ServiceProcess service;
};

} // namespace

/// Two real services with one schema on one real server.
class TestTwoServices : public QObject
{
    Q_OBJECT

public:
    explicit TestTwoServices(MariaDbServer &server)
        : server(server)
    {
    }

private Q_SLOTS:
    void init();
    void cleanup();

    void oneDelivers();
    void endHandsOver();
    void killHandsOver();
    void stoppedOneKeepsTheQueue();
    void silentOneLosesTheQueueAndKeepsItsDelivery();
    void cutLockComesBack();
    void silentServer();
    void restartedServer_data();
    void restartedServer();

private:
    /// The first one delivers, the second one is its stand-by.
    void startBoth();
    void write(const QString &type, int count);
    int rows() { return server.run(u"SELECT COUNT(*) FROM queues.message"_s).trimmed().toInt(); }
    bool waitUntilEmpty();
    QByteArray lockHolder();
    /// Waits until the server has executed this many more statements of the services.
    bool waitForQuestions(int count);
    /// How often each row arrived, by its number.
    QHash<QByteArray, int> arrivals() const;
    /// Arrivals beyond the first of each row.
    int repeats() const;

    MariaDbServer &server;
    std::unique_ptr<LoopbackServer> peer;
    std::unique_ptr<Node> first;
    std::unique_ptr<Node> second;
    int written = 0;
};

void TestTwoServices::init()
{
    server.run(u"DELETE FROM queues.message"_s);
    peer = std::make_unique<LoopbackServer>();
    first = std::make_unique<Node>(server);
    second = std::make_unique<Node>(server);
    written = 0;
}

void TestTwoServices::cleanup()
{
    if (QTest::currentTestFailed())
        qInfo("first:\n%s\nsecond:\n%s", first->service.output().right(4000).constData(),
              second->service.output().right(4000).constData());
    first.reset();
    second.reset();
    peer.reset();
}

void TestTwoServices::startBoth()
{
    first->service.start();
    if (!first->waitForRole(u"active"_s))
        qFatal("the first service does not become active");
    second->service.start();
    if (!second->waitForRole(u"standby"_s))
        qFatal("the second service does not become a stand-by");
}

void TestTwoServices::write(const QString &type, int count)
{
    QString statements;
    for (const int end = written + count; written < end; ++written) {
        const QJsonObject body{{u"url"_s, peer->url(u"/"_s).toString()},
                               {u"body"_s, u"%1"_s.arg(written)},
                               {u"timeout"_s, 120}};
        statements += u"INSERT INTO queues.message (type, body) VALUES ('%1', '%2');\n"_s.arg(
            type, QString::fromUtf8(QJsonDocument(body).toJson(QJsonDocument::Compact)));
    }
    server.run(statements);
}

bool TestTwoServices::waitUntilEmpty()
{
    return QTest::qWaitFor([this] { return rows() == 0; }, limitMs);
}

QByteArray TestTwoServices::lockHolder()
{
    return server
        .run(u"SELECT IFNULL(IS_USED_LOCK('%1'), '')"_s.arg(serverlock::serviceLock(u"queues"_s)))
        .trimmed();
}

bool TestTwoServices::waitForQuestions(int count)
{
    const auto asked = [this] {
        return server.run(u"SHOW GLOBAL STATUS LIKE 'Com_select'"_s).split('\t').value(1).toInt();
    };
    const int before = asked();
    return QTest::qWaitFor([&] { return asked() - before >= count; }, limitMs);
}

QHash<QByteArray, int> TestTwoServices::arrivals() const
{
    QHash<QByteArray, int> counts;
    const QList<LoopbackServer::Request> requests = peer->requests();
    for (const LoopbackServer::Request &request : requests)
        ++counts[request.body];
    return counts;
}

int TestTwoServices::repeats() const
{
    return static_cast<int>(peer->requests().size() - arrivals().size());
}

void TestTwoServices::oneDelivers()
{
    startBoth();
    write(u"heineken"_s, 100);
    write(u"abmloyalty"_s, 100);
    QVERIFY(waitUntilEmpty());
    QCOMPARE(arrivals().size(), 200);
    QCOMPARE(repeats(), 0);

    // The stand-by's control interface answers from the table, and starts nothing.
    peer->play({LoopbackServer::answer(200).held()});
    write(u"heineken"_s, 2);
    QVERIFY(peer->waitForRequests(201));
    QCOMPARE(second->service.ask(u"/start/heineken/-"_s)[u"description"].toString(),
             u"Не удалось запустить обработчик"_s);
    QCOMPARE(second->service.ask(u"/status"_s)[u"messagesCount"].toInt(), 2);
    QCOMPARE(second->service.ask(u"/messages/heineken/"_s)[u"result"].toBool(), true);
    QCOMPARE(second->service.ask(u"/db_errors_count"_s)[u"errorsCount"].toInt(-1), 0);
    peer->release();
    QVERIFY(waitUntilEmpty());

    QCOMPARE(second->count(standByLine), 1);
    QVERIFY(second->service.output().contains(u"(соединение "_s.toUtf8() + lockHolder()
                                              + ", localhost)"));
    QCOMPARE(second->count(pollLine), 0);
    QCOMPARE(first->count(standByLine), 0);
    QCOMPARE(repeats(), 0);
    // No warning or error that needs attention.
    QCOMPARE(first->count(" WARN ") + first->count(" ERROR "), 0);
    QVERIFY(second->service.stop());
    QVERIFY(first->service.stop());
}

/// The delivery in progress ends before the stand-by begins.
void TestTwoServices::endHandsOver()
{
    startBoth();
    peer->play({LoopbackServer::answer(200).held()});
    write(u"heineken"_s, 10);
    QVERIFY(peer->waitForRequests(1));
    first->service.signal(SIGTERM);
    QVERIFY(first->waitForLine(u"Получен сигнал завершения работы"_s.toUtf8()));
    QVERIFY(!lockHolder().isEmpty());
    QCOMPARE(second->role(), u"standby"_s);
    peer->release();
    QVERIFY(first->service.waitForEnd(std::chrono::milliseconds(limitMs)));
    QCOMPARE(first->service.end(), u"exit 0"_s);
    QVERIFY(second->waitForRole(u"active"_s));
    QVERIFY(waitUntilEmpty());
    QCOMPARE(arrivals().size(), 10);
    QCOMPARE(repeats(), 0);
    QCOMPARE(second->count(takeOverLine), 1);
    QVERIFY(second->service.stop());
}

void TestTwoServices::killHandsOver()
{
    startBoth();
    write(u"heineken"_s, 500);
    QVERIFY(peer->waitForRequests(20));
    first->service.kill();
    QVERIFY(second->waitForRole(u"active"_s));
    QVERIFY(waitUntilEmpty());
    QCOMPARE(arrivals().size(), 500);
    // The message in progress may have been accepted without its row being deleted.
    QVERIFY2(repeats() <= 1, qPrintable(QString::number(repeats())));

    // The service that comes back is now the stand-by.
    first->service.start();
    QVERIFY(first->waitForRole(u"standby"_s));
    QCOMPARE(second->role(), u"active"_s);
    QVERIFY(first->service.stop());
    QVERIFY(second->service.stop());
}

void TestTwoServices::stoppedOneKeepsTheQueue()
{
    startBoth();
    peer->play({LoopbackServer::answer(200).held()});
    write(u"heineken"_s, 10);
    QVERIFY(peer->waitForRequests(1));
    const QByteArray holder = lockHolder();
    first->service.signal(SIGSTOP);
    // Only the stand-by sends statements now, once a second.
    QVERIFY(waitForQuestions(8));
    QCOMPARE(lockHolder(), holder);
    QCOMPARE(second->role(), u"standby"_s);
    first->service.signal(SIGCONT);
    peer->release();
    QVERIFY(waitUntilEmpty());
    QCOMPARE(arrivals().size(), 10);
    QCOMPARE(repeats(), 0);
    QCOMPARE(second->count(pollLine), 0);
    QVERIFY(first->service.stop());
    QVERIFY(second->service.stop());
}

/// The server closes the connection of a silent service; here the test does it.
void TestTwoServices::silentOneLosesTheQueueAndKeepsItsDelivery()
{
    startBoth();
    peer->play({LoopbackServer::answer(200).held()});
    write(u"heineken"_s, 10);
    QVERIFY(peer->waitForRequests(1));
    first->service.signal(SIGSTOP);
    faults::killConnection(server, lockHolder());
    QVERIFY(second->waitForRole(u"active"_s));
    write(u"abmloyalty"_s, 10);
    // The stand-by delivers all types except the one that may have a delivery in progress.
    QVERIFY(QTest::qWaitFor([this] { return rows() == 10; }, limitMs));
    QVERIFY(second->waitForLine(otherHasTypeLine));
    QCOMPARE(repeats(), 0);

    first->service.signal(SIGCONT);
    QVERIFY(first->waitForRole(u"standby"_s));
    QCOMPARE(first->count(lossLine), 1);
    peer->release();
    QVERIFY(waitUntilEmpty());
    QCOMPARE(arrivals().size(), 20);
    QCOMPARE(repeats(), 0);
    // It finishes its delivery and begins no other.
    QCOMPARE(first->count(deliveryLine), 1);
    QCOMPARE(second->count(deliveryLine), 19);
    QVERIFY(first->service.stop());
    QVERIFY(second->service.stop());
}

void TestTwoServices::cutLockComesBack()
{
    startBoth();
    peer->play({LoopbackServer::answer(200).held()});
    write(u"heineken"_s, 10);
    QVERIFY(peer->waitForRequests(1));
    for (int cut = 1; cut <= 3; ++cut) {
        faults::killConnection(server, lockHolder());
        QVERIFY(first->waitForLine(returnLine, cut));
        QVERIFY(first->waitForRole(u"active"_s));
        QCOMPARE(second->role(), u"standby"_s);
        // Both check once a second; the stand-by must have seen that the lock is held again.
        QVERIFY(waitForQuestions(4));
    }
    // The stand-by sees a free lock and leaves it to the service that had it.
    first->service.signal(SIGSTOP);
    faults::killConnection(server, lockHolder());
    const bool isSeen = waitForQuestions(2);
    first->service.signal(SIGCONT);
    QVERIFY(isSeen);
    QVERIFY(first->waitForLine(returnLine, 4));
    QCOMPARE(second->role(), u"standby"_s);
    peer->release();
    QVERIFY(waitUntilEmpty());
    QCOMPARE(first->count(lossLine), 4);
    QCOMPARE(second->count(takeOverLine), 0);
    QCOMPARE(arrivals().size(), 10);
    QCOMPARE(repeats(), 0);
    QVERIFY(first->service.stop());
    QVERIFY(second->service.stop());
}

/// The server still serves the connection that the service has closed, and releases the lock when
/// it ends.
void TestTwoServices::silentServer()
{
    startBoth();
    peer->play({LoopbackServer::answer(200).held()});
    write(u"heineken"_s, 10);
    QVERIFY(peer->waitForRequests(1));
    QCOMPARE(::kill(static_cast<pid_t>(server.processId()), SIGSTOP), 0);
    const bool isNoticed = first->waitForLine(lossLine);
    QCOMPARE(::kill(static_cast<pid_t>(server.processId()), SIGCONT), 0);
    QVERIFY(isNoticed);
    QVERIFY(first->waitForLine(returnLine));
    peer->release();
    QVERIFY(QTest::qWaitFor(
        [this] {
            first->keepUp();
            return rows() == 0;
        },
        limitMs));
    QCOMPARE(first->count(standByLine), 0);
    QCOMPARE(second->count(takeOverLine), 0);
    QCOMPARE(arrivals().size(), 10);
    QCOMPARE(repeats(), 0);
    QVERIFY(first->service.stop());
    QVERIFY(second->service.stop());
}

void TestTwoServices::restartedServer_data()
{
    QTest::addColumn<bool>("isOrderly");
    QTest::newRow("orderly") << true;
    QTest::newRow("power cut") << false;
}

void TestTwoServices::restartedServer()
{
    QFETCH(bool, isOrderly);
    startBoth();
    peer->play({LoopbackServer::answer(200).held()});
    write(u"heineken"_s, 10);
    QVERIFY(peer->waitForRequests(1));
    if (isOrderly)
        server.stop();
    else
        server.kill();
    QVERIFY(first->waitForLine(lossLine));
    server.start();
    peer->release();
    QVERIFY(QTest::qWaitFor(
        [this] {
            first->keepUp();
            second->keepUp();
            return rows() == 0;
        },
        limitMs));
    QCOMPARE(arrivals().size(), 10);
    // Its row could not be deleted while the server was down.
    QVERIFY2(repeats() <= 1, qPrintable(QString::number(repeats())));
    const auto roles = [this] {
        QStringList both{first->role(), second->role()};
        both.sort();
        return both;
    };
    QVERIFY(QTest::qWaitFor(
        [&] {
            return roles() == QStringList{u"active"_s, u"standby"_s};
        },
        limitMs));
    QVERIFY(first->service.stop());
    QVERIFY(second->service.stop());
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    MariaDbServer server;
    TestTwoServices test(server);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_twoservices.moc"
