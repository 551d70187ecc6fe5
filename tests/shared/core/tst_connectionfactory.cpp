#include "shared/core/basicexception.h"
#include "shared/core/dbqueuebroker.h"
#include "shared/core/guarded.h"
#include "shared/core/singleton.h"
#include "shared/core/writegate.h"
#include "tests/shared/core/bothdatabases.h"
#include "tests/shared/core/ownconnection.h"
#include "tests/support/vtable.h"

#include <QFile>
#include <QSet>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlQuery>
#include <QTcpServer>
#include <QTest>

#include <future>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

const QString probe = u"SELECT COUNT(messageid), creationtime FROM queues.message LIMIT 1"_s;

} // namespace

/// Cases for both databases run once on each: the column `isServer` says which.
class TestConnectionFactory : public BothDatabases
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void sqliteSurvivesAPowerCut();
    void sqliteWaitsForALock();
    void sqliteFileIsOpenedByManyAtOnce();
    void sqliteFileHasOneGate();
    void onlyAFileHasAGate();
    void filesOfSeveralThreads();
    void closedConnectionIsReopened();
    void sqliteFileBelowALinkToNowhere();
    void driverSaysWhetherThereIsAServer();

    void serverIsReachedOverTheSocket();
    void serverIsReachedAtItsPort();
    void serverConnectionLostAndReopened();
    void secondConnectionToTheServer();

    void messageIsInTheSchema_data() { bothDatabases(); }
    void messageIsInTheSchema();
    void probePasses_data() { bothDatabases(); }
    void probePasses();
    void probeShowsTheOldestRow_data() { bothDatabases(); }
    void probeShowsTheOldestRow();
    void textsKeepEveryLetter_data() { bothDatabases(); }
    void textsKeepEveryLetter();
    void textsCompareByTheirBytes_data() { bothDatabases(); }
    void textsCompareByTheirBytes();
    void idsAreNeverGivenTwice_data() { bothDatabases(); }
    void idsAreNeverGivenTwice();
    void eachThreadHasItsConnection_data() { bothDatabases(); }
    void eachThreadHasItsConnection();
    void removalIsSilent_data() { bothDatabases(); }
    void removalIsSilent();

    void failureIsReadable_data();
    void failureIsReadable();
    void checkIsOnlyMadeWhenAskedFor();
};

void TestConnectionFactory::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&ConnectionFactory::removeConnection), 0);
    QCOMPARE(slotOf(&ConnectionFactory::getConnection), 3);
}

void TestConnectionFactory::sqliteSurvivesAPowerCut()
{
    QCOMPARE(queue->query(u"PRAGMA queues.journal_mode"_s).value(0).value(0), u"wal"_s);
    constexpr int full = 2;
    QCOMPARE(queue->query(u"PRAGMA queues.synchronous"_s).value(0).value(0), full);
}

void TestConnectionFactory::sqliteWaitsForALock()
{
    QCOMPARE(queue->query(u"PRAGMA busy_timeout"_s).value(0).value(0), 5000);
}

void TestConnectionFactory::sqliteFileIsOpenedByManyAtOnce()
{
    constexpr int count = 16;
    Guarded<QStringList> errors;
    onThreads(count, [&] {
        try {
            Singleton<DBQueueBroker>::instance()->enqueue(u"cardlab"_s, {}, u""_s);
            removeOwnConnection();
        } catch (const BasicException &exception) {
            errors.lock()->append(exception.tr().ru());
        }
    });
    QCOMPARE(errors.copy(), QStringList());
    QCOMPARE(queue->ids().size(), count);
}

/// By any path, and another identity after the file was replaced.
void TestConnectionFactory::sqliteFileHasOneGate()
{
    const QString link = queue->root() + u"/link.db"_s;
    WriteGate *const gate = factory->gateOf(factory->getConnection());
    QVERIFY(gate);
    QVERIFY(QFile::link(queue->file(), link));
    onThreads(2, [&] {
        queue->ids();
        WriteGate *const own = factory->gateOf(factory->getConnection());
        removeOwnConnection();
        QCOMPARE(own, gate);
    });
    removeOwnConnection();
    queue->setSettings(u"[database]\nname = %1\n"_s.arg(link));
    QCOMPARE(factory->gateOf(factory->getConnection()), gate);
    removeOwnConnection();
    queue->setSettings(u"[database]\nname = %1/other.db\n"_s.arg(queue->root()));
    QVERIFY(factory->gateOf(factory->getConnection()) != gate);
}

void TestConnectionFactory::onlyAFileHasAGate()
{
    queue->setSettings(u"[database]\nname = :memory:\n"_s);
    const QSqlDatabase database = factory->getConnection();
    QVERIFY(factory->gateOf(database) == nullptr);
    QVERIFY(factory->isConnectionCurrent(database.connectionName()));
}

void TestConnectionFactory::filesOfSeveralThreads()
{
    WriteGate *const gate = factory->gateOf(factory->getConnection());
    queue->setSettings(u"[database]\nname = %1/other.db\n"_s.arg(queue->root()));
    // A log that is no former one, because none of our files was there.
    QFile log(queue->root() + u"/other.db-wal"_s);
    QVERIFY(log.open(QIODevice::WriteOnly));
    onThreads(1, [&] {
        WriteGate *const own = factory->gateOf(factory->getConnection());
        removeOwnConnection();
        QVERIFY(own != nullptr && own != gate);
    });
    QCOMPARE(factory->gateOf(factory->getConnection()), gate);
}

void TestConnectionFactory::closedConnectionIsReopened()
{
    queue->put(u"cardlab"_s, u"{}"_s);
    factory->getConnection().close();
    QVERIFY(factory->getConnection().isOpen());
    QCOMPARE(queue->ids().size(), 1);
}

/// The link is right, but the file does not exist yet.
void TestConnectionFactory::sqliteFileBelowALinkToNowhere()
{
    const QString link = queue->root() + u"/link.db"_s;
    const QString target = queue->root() + u"/target.db"_s;
    QVERIFY(QFile::link(target, link));
    queue->setSettings(u"[database]\nname = %1\n"_s.arg(link));
    QCOMPARE(connectError(), QString());
    QCOMPARE(queue->ids(), QList<int>());
    QVERIFY(QFile::exists(target));
}

void TestConnectionFactory::driverSaysWhetherThereIsAServer()
{
    QVERIFY(!ConnectionFactory::usesServer());
    for (const QString &driver : {u"QMYSQL"_s, u"QMARIADB"_s}) {
        queue->setSettings(u"[database]\ndriver = %1\n"_s.arg(driver));
        QVERIFY(ConnectionFactory::usesServer());
    }
    queue->setSettings(u"[database]\ndriver = QSQLITE\n"_s);
    QVERIFY(!ConnectionFactory::usesServer());
}

void TestConnectionFactory::serverIsReachedOverTheSocket()
{
    queue->setSettings(server->settings());
    QCOMPARE(factory->getConnection().driverName(), u"QMYSQL"_s);
    QCOMPARE(queue->query(u"SELECT CURRENT_USER(), DATABASE()"_s),
             (QList<QVariantList>{{server->user() + u"@localhost"_s, u"queues"_s}}));
    QCOMPARE(queue->query(u"SELECT @@character_set_client, @@character_set_results"_s),
             (QList<QVariantList>{{u"utf8mb4"_s, u"utf8mb4"_s}}));
    QVERIFY(factory->isConnectionCurrent(factory->getConnection().connectionName()));
}

void TestConnectionFactory::serverIsReachedAtItsPort()
{
    // It listens on a port of its own and hangs up on the first who comes.
    std::promise<int> port;
    bool isReached = false;
    std::thread peer([&] {
        QTcpServer listener;
        listener.listen(QHostAddress::LocalHost);
        port.set_value(listener.serverPort());
        isReached = listener.waitForNewConnection(30'000);
    });
    queue->setSettings(u"[database]\ndriver = QMYSQL\nhost = 127.0.0.1\nport = %1\n"_s.arg(
        port.get_future().get()));
    const QString error = connectError();
    peer.join();
    QVERIFY(!error.isEmpty());
    QVERIFY(isReached);
}

void TestConnectionFactory::serverConnectionLostAndReopened()
{
    queue->setSettings(server->settings());
    queue->put(u"cardlab"_s, u"{}"_s);
    server->kill();
    QVERIFY(!connectError().isEmpty());
    server->start();
    QCOMPARE(connectError(), QString());
    QCOMPARE(queue->ids().size(), 1);
}

void TestConnectionFactory::secondConnectionToTheServer()
{
    queue->setSettings(server->settings());
    const QString name = u"second"_s;
    {
        QSqlDatabase database = ConnectionFactory::connectToServer(name, std::chrono::seconds(5));
        QCOMPARE(database.connectionName(), name);
        QVERIFY(database.connectOptions().contains(u"MYSQL_OPT_READ_TIMEOUT=5;"));
        QSqlQuery query(database);
        QVERIFY(query.exec(u"SELECT DATABASE()"_s) && query.next());
        QCOMPARE(query.value(0).toString(), u"queues"_s);
    }
    QSqlDatabase::removeDatabase(name);
}

void TestConnectionFactory::messageIsInTheSchema()
{
    useDatabase();
    const int id = queue->put(u"cardlab"_s, u"{}"_s, u"777"_s);
    const QVariantList row =
        queue->query(u"SELECT messageid, type, cardnumber FROM queues.message"_s).value(0);
    QCOMPARE(row.value(0).toInt(), id);
    QCOMPARE(row.value(1).toString(), u"cardlab"_s);
    QCOMPARE(row.value(2).toString(), u"777"_s);
}

void TestConnectionFactory::probePasses()
{
    useDatabase();
    const QList<QVariantList> empty = queue->query(probe);
    QCOMPARE(empty.value(0).value(0).toInt(), 0);
    QVERIFY(!empty.value(0).value(1).toDateTime().isValid());

    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    queue->put(u"cardlab"_s, u"{}"_s);
    queue->put(u"heineken"_s, u"{}"_s);
    const QList<QVariantList> rows = queue->query(probe);
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.value(0).value(0).toInt(), 2);
    const QDateTime time = rows.value(0).value(1).toDateTime();
    QVERIFY(time.isValid());
    // Local time, not UTC.
    QVERIFY2(time >= before && time <= QDateTime::currentDateTime(), qPrintable(time.toString()));
}

void TestConnectionFactory::probeShowsTheOldestRow()
{
    useDatabase();
    const QDateTime oldest(QDate(2026, 1, 31), QTime(12, 0));
    const auto insert = [this](int seconds, const QDateTime &from) {
        queue->query(u"INSERT INTO message (type, body, cardnumber, statuscode, creationtime) "
                     "VALUES ('cardlab', '{}', '', '', ?)"_s,
                     {from.addSecs(seconds).toString(u"yyyy-MM-dd HH:mm:ss"_s)});
    };
    const auto shown = [this] {
        return queue->query(probe).value(0).value(1).toDateTime();
    };

    insert(0, oldest);
    for (int i = 1; i < 300; ++i)
        insert(i, oldest);
    QCOMPARE(shown(), oldest);
    // Also with the statistics that a server collects in the background.
    if (isServer())
        server->run(u"ANALYZE TABLE queues.message"_s);
    else
        queue->query(u"ANALYZE queues"_s);
    QCOMPARE(shown(), oldest);

    // The clock was set back: the row with the highest id is the oldest.
    insert(-3600, oldest);
    QCOMPARE(shown(), oldest.addSecs(-3600));
    queue->query(u"DELETE FROM message WHERE messageid IN (?, ?)"_s,
                 {queue->ids().last(), queue->ids().first()});
    QCOMPARE(shown(), oldest.addSecs(1));
}

void TestConnectionFactory::textsKeepEveryLetter()
{
    useDatabase();
    const QString text = u"{\"кассир\":\"Ёлкина Щ. 🙂 «ъ»\"}"_s;
    queue->put(u"cardlab"_s, text, u"карта 🙂"_s);
    const QVariantList row = queue->query(u"SELECT body, cardnumber FROM message"_s).value(0);
    QCOMPARE(row.value(0).toByteArray(), text.toUtf8());
    QCOMPARE(row.value(1).toString(), u"карта 🙂"_s);
}

void TestConnectionFactory::textsCompareByTheirBytes()
{
    useDatabase();
    const int id = queue->put(u"spasiboBatch"_s, u"{\"mark\":\"AbC\"}"_s, u"Ab"_s);
    QCOMPARE(queue->ids(u"spasibobatch"_s), QList<int>());
    QCOMPARE(queue->ids(u"spasiboBatch"_s), QList<int>{id});
    const auto found = [this](const QString &condition) {
        return queue->query(u"SELECT 1 FROM message WHERE "_s + condition).size();
    };
    QCOMPARE(found(u"cardnumber = 'ab'"_s), 0);
    QCOMPARE(found(u"cardnumber = 'Ab'"_s), 1);
    QCOMPARE(found(u"body LIKE '%abc%'"_s), 0);
    QCOMPARE(found(u"body LIKE '%AbC%'"_s), 1);
}

void TestConnectionFactory::idsAreNeverGivenTwice()
{
    useDatabase();
    const int first = queue->put(u"cardlab"_s, u"{}"_s);
    queue->query(u"DELETE FROM message"_s);
    QVERIFY(queue->put(u"cardlab"_s, u"{}"_s) > first);
}

void TestConnectionFactory::eachThreadHasItsConnection()
{
    useDatabase();
    Guarded<QSet<QString>> names;
    const auto note = [&] {
        const QString name = factory->getConnection().connectionName();
        QCOMPARE(factory->getConnection().connectionName(), name);
        names.lock()->insert(name);
    };
    note();
    onThreads(8, [&] {
        note();
        removeOwnConnection();
    });
    QCOMPARE(names.lock()->size(), 9);
    QCOMPARE(QSqlDatabase::connectionNames().size(), 1);
}

void TestConnectionFactory::removalIsSilent()
{
    useDatabase();
    onThreads(1, [&] {
        QSqlQuery query(factory->getConnection());
        query.setForwardOnly(true);
        QVERIFY(query.prepare(u"SELECT messageid FROM message WHERE type = :type"_s));
        query.bindValue(u":type"_s, u"cardlab"_s);
        QVERIFY(query.exec());
        removeOwnConnection();
        // The statement is destroyed after its connection, like those of a worker's store.
    });
}

void TestConnectionFactory::failureIsReadable_data()
{
    QTest::addColumn<QString>("settings");
    QTest::addColumn<QStringList>("fragments");

    const QString server = this->server->settings();
    const auto with = [&server](const QString &line) {
        return server + line + u"\n"_s;
    };
    const auto sqlite = [](const QString &path) {
        return u"[database]\nname = "_s + path;
    };

    // clang-format off
    QTest::newRow("unknown driver")    << u"[database]\ndriver = QPSQL"_s        << QStringList{u"QPSQL"_s, u"database:driver"_s};
    QTest::newRow("missing folder")    << sqlite(u"/nonexistent/queues.db"_s)    << QStringList{u"/nonexistent/queues.db"_s};
    QTest::newRow("folder as file")    << sqlite(u"/tmp"_s)                      << QStringList{u"'/tmp'"_s};
    QTest::newRow("no database file")  << sqlite(u"/etc/passwd"_s)               << QStringList{u"/etc/passwd"_s, u"not a database"_s};
    QTest::newRow("wrong password")    << with(u"password = till-passwort"_s)    << QStringList{u"'queues'"_s, u"Access denied"_s};
    QTest::newRow("unknown user")      << with(u"user = nobody"_s)               << QStringList{u"Access denied"_s};
    QTest::newRow("unknown schema")    << with(u"name = nothere"_s)              << QStringList{u"'nothere'"_s};
    QTest::newRow("dead socket")       << with(u"socket = /nonexistent/socket"_s)<< QStringList{u"/nonexistent/socket"_s};
    // clang-format on
}

void TestConnectionFactory::failureIsReadable()
{
    QFETCH(QString, settings);
    QFETCH(QStringList, fragments);
    queue->setSettings(settings);

    const QString error = connectError();
    QVERIFY(QRegularExpression(u"^[А-Я][а-я]+ "_s).match(error).hasMatch());
    for (const QString &fragment : fragments)
        QVERIFY2(error.contains(fragment), qPrintable(error));
    QVERIFY2(!error.contains(u"till-pass"_s), qPrintable(error));
    // No half-open connection remains.
    QCOMPARE(QSqlDatabase::connectionNames(), QStringList());

    queue->setSettings(QString());
    QCOMPARE(connectError(), QString());
}

void TestConnectionFactory::checkIsOnlyMadeWhenAskedFor()
{
    queue->setSettings(server->settings());
    queue->ids();
    const QByteArray id =
        server->run(u"SELECT id FROM information_schema.processlist WHERE user = 'till'"_s);
    server->run(u"KILL "_s + QString::fromLatin1(id));
    ConnectionFactory::setWithCheck(false);
    QVERIFY(!QSqlQuery(factory->getConnection()).exec(probe));
    ConnectionFactory::setWithCheck(true);
    QVERIFY(QSqlQuery(factory->getConnection()).exec(probe));
}

QTEST_GUILESS_MAIN(TestConnectionFactory)
#include "tst_connectionfactory.moc"
