#include "engine/basichandler.h"
#include "rig/mariadbserver.h"
#include "shared/core/serverlock.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;

namespace {

/// Another service's connection to the same server.
class OtherService
{
public:
    explicit OtherService(const MariaDbServer &server)
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QMYSQL"_s, u"other"_s);
        database.setDatabaseName(u"queues"_s);
        database.setConnectOptions(u"UNIX_SOCKET="_s + server.socket());
        database.setUserName(server.user());
        database.setPassword(server.password());
        if (!database.open())
            qFatal("the other service has no connection");
    }
    ~OtherService() { QSqlDatabase::removeDatabase(u"other"_s); }
    OtherService(const OtherService &) = delete;
    OtherService &operator=(const OtherService &) = delete;

    bool takeType() { return ask(u"SELECT GET_LOCK('%1', 0)"_s); }
    bool isTypeFree() { return ask(u"SELECT IS_FREE_LOCK('%1')"_s); }
    QString connection() { return value(u"SELECT CONNECTION_ID()"_s).toString(); }
    void releaseType() { ask(u"SELECT RELEASE_LOCK('%1')"_s); }

private:
    static bool ask(const QString &question) { return value(question).toInt() == 1; }
    static QVariant value(const QString &question)
    {
        QSqlQuery query(QSqlDatabase::database(u"other"_s));
        if (!query.exec(
                QString(question).replace(u"%1"_s, serverlock::typeLock(u"queues"_s, u"spasibo"_s)))
            || !query.next())
            qFatal("the server does not answer");
        return query.value(0);
    }
};

/// Delivers each message by doing what the test says.
class ClaimingHandler : public BasicHandler
{
public:
    explicit ClaimingHandler(std::function<void(const Message &)> delivery)
        : BasicHandler(u"spasibo"_s)
        , delivery(std::move(delivery))
    {
    }
    ClaimingHandler(std::function<void(const Message &)> delivery, const TurnRule &turnRule)
        : BasicHandler(u"spasibo"_s, turnRule)
        , delivery(std::move(delivery))
    {
    }
    bool sendMessage(const Message &message) override
    {
        delivered.append(message.id);
        delivery(message);
        return true;
    }

    QList<int> delivered;

private:
    std::function<void(const Message &)> delivery;
};

} // namespace

/// A worker has exclusive use of its type on a server that several services share.
class TestTypeClaim : public QObject
{
    Q_OBJECT

public:
    explicit TestTypeClaim(MariaDbServer &server)
        : server(server)
    {
    }

private Q_SLOTS:
    void init();

    void typeIsHeldWhileItIsDelivered();
    void typeOfAnotherServiceIsLeftAlone();
    void claimThatAnotherServiceTookMeanwhile();
    void claimLostWhileItsTurnIsAsked();
    void claimIsTakenAgainAfterAReconnect();
    void serverThatIsAway();
    void claimIsNotRequestedWithoutSharing();

private:
    void put(const QList<int> &ids);
    /// One pass; the ids that were delivered.
    QList<int> pass(const std::function<void(const Message &)> &delivery = [](const Message &) {});
    /// Ends the connection of the worker, which is the only one of the till that holds the type.
    void cutWorker();
    QByteArray rows() { return server.run(u"SELECT messageid FROM queues.message"_s).simplified(); }

    MariaDbServer &server;
    std::unique_ptr<QueueDatabase> settings;
    std::shared_ptr<SharedState> state;
};

void TestTypeClaim::init()
{
    settings.reset();
    settings = std::make_unique<QueueDatabase>();
    settings->setSettings(server.settings());
    server.run(u"DELETE FROM queues.message"_s);
    state = std::make_shared<SharedState>();
    state->claimsTypes = true;
}

void TestTypeClaim::put(const QList<int> &ids)
{
    for (const int id : ids)
        server.run(
            u"INSERT INTO queues.message (messageid, type, body) VALUES (%1, 'spasibo', '{}')"_s
                .arg(id));
}

QList<int> TestTypeClaim::pass(const std::function<void(const Message &)> &delivery)
{
    ClaimingHandler handler(delivery);
    handler.setState(state);
    handler.run();
    return handler.delivered;
}

void TestTypeClaim::cutWorker()
{
    const QByteArray id = server.run(
        u"SELECT IS_USED_LOCK('%1')"_s.arg(serverlock::typeLock(u"queues"_s, u"spasibo"_s)));
    server.run(u"KILL %1"_s.arg(QString::fromLatin1(id).trimmed()));
}

void TestTypeClaim::typeIsHeldWhileItIsDelivered()
{
    OtherService other(server);
    put({1, 2});
    QList<bool> wasFree;
    QCOMPARE(pass([&](const Message &) { wasFree.append(other.isTypeFree()); }),
             (QList<int>{1, 2}));
    QCOMPARE(wasFree, (QList<bool>{false, false}));
    QVERIFY(other.isTypeFree());
    QCOMPARE(rows(), "");

    // Before the worker counts as ended, since the next one may start at once.
    ClaimingHandler handler([](const Message &) {});
    handler.setState(state);
    handler.run();
    QVERIFY(other.isTypeFree());
}

void TestTypeClaim::typeOfAnotherServiceIsLeftAlone()
{
    OtherService other(server);
    put({1, 2, 3});
    state->startIds.lock()->insert(u"spasibo"_s, 1);
    QVERIFY(other.takeType());
    const LogCapture log(u"spasibo"_s);
    QCOMPARE(pass(), QList<int>());
    QVERIFY(log.lines().contains(
        u"WARN Сообщения типа 'spasibo' доставляет другая служба (соединение %1), повтор при следующем опросе"_s
            .arg(other.connection())));
    // The next pass continues where this one would have begun.
    QCOMPARE(state->startIds.lock()->value(u"spasibo"_s), 1);
    other.releaseType();
    QCOMPARE(pass(), (QList<int>{2, 3}));
}

/// The connection breaks between two reads, and another service takes the type before it is
/// requested again.
void TestTypeClaim::claimThatAnotherServiceTookMeanwhile()
{
    OtherService other(server);
    put({1, 2});
    const QList<int> delivered = pass([&](const Message &) {
        cutWorker();
        QVERIFY(QTest::qWaitFor([&] { return other.takeType(); }));
    });
    QCOMPARE(delivered, QList<int>{1});
    QVERIFY(!state->startIds.lock()->contains(u"spasibo"_s));
    QCOMPARE(rows(), "1 2");
    other.releaseType();
}

/// The question about the turn meets the broken connection. What was read over it may be in the
/// other service's hands by now.
void TestTypeClaim::claimLostWhileItsTurnIsAsked()
{
    OtherService other(server);
    put({1, 2});
    ClaimingHandler handler([](const Message &) {},
                            [&](const Message &message, queue::DAO &dao, Log4Qt::Logger &) {
                                cutWorker();
                                if (!QTest::qWaitFor([&] { return other.takeType(); }))
                                    return BasicHandler::Turn::EndOfPass;
                                dao.hasEarlierMessage(message.type, message.id, u"x"_s);
                                return BasicHandler::Turn::Now;
                            });
    handler.setState(state);
    handler.run();
    QCOMPARE(handler.delivered, QList<int>());
    QVERIFY(!state->startIds.lock()->contains(u"spasibo"_s));
    QCOMPARE(rows(), "1 2");
    other.releaseType();
}

/// The row that is read over the next connection does not count without a claim of its own, so the
/// worker ends as with an empty queue.
void TestTypeClaim::serverThatIsAway()
{
    put({1});
    queue::DAO dao;
    dao.connect();
    server.stop();
    QVERIFY(dao.claimType(u"spasibo"_s));
    QVERIFY(!dao.hasClaim());
    dao.releaseType(u"spasibo"_s);
    server.start();
    QCOMPARE(dao.getMessage(u"spasibo"_s, -1, false, QString()).id, 1);
    QVERIFY(!dao.hasClaim());
    QVERIFY(dao.claimType(u"spasibo"_s));
    QVERIFY(dao.hasClaim());
    QVERIFY(!dao.holderOfType(u"spasibo"_s).isEmpty());
    dao.releaseType(u"spasibo"_s);
    QCOMPARE(dao.holderOfType(u"spasibo"_s), QString());
}

void TestTypeClaim::claimIsTakenAgainAfterAReconnect()
{
    OtherService other(server);
    put({1, 2, 3});
    state->startIds.lock()->insert(u"spasibo"_s, 1);
    QList<bool> wasFree;
    bool isFirst = true;
    const QList<int> delivered = pass([&](const Message &message) {
        wasFree.append(other.isTypeFree());
        if (std::exchange(isFirst, false)) {
            cutWorker();
            QVERIFY(QTest::qWaitFor([&] { return other.isTypeFree(); }));
            // So that the row that was just delivered does not come back.
            state->startIds.lock()->insert(u"spasibo"_s, message.id);
        }
    });
    QCOMPARE(delivered, (QList<int>{2, 3}));
    QCOMPARE(wasFree, (QList<bool>{false, false}));
    QCOMPARE(rows(), "1 2");
}

void TestTypeClaim::claimIsNotRequestedWithoutSharing()
{
    OtherService other(server);
    state->claimsTypes = false;
    put({1});
    QVERIFY(other.takeType());
    QCOMPARE(pass(), QList<int>{1});
    other.releaseType();
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    MariaDbServer server;
    TestTypeClaim test(server);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_typeclaim.moc"
