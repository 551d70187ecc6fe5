#include "app/servicelock.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"

#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlRecord>
#include <QSqlResult>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

/// The behaviour of the server in one test.
struct Server
{
    std::atomic<bool> knowsLocks = true;
    /// The connection that holds the lock; 0: none.
    std::atomic<int> holder = 0;
    /// The number of the service's connection.
    std::atomic<int> connection = 7;
    /// How often the lock was requested.
    std::atomic<int> requests = 0;
};

std::unique_ptr<Server> server;

int answerTo(const QString &statement)
{
    if (statement.contains(u"= CONNECTION_ID()"_s))
        return server->holder == server->connection;
    if (statement.contains(u"CONNECTION_ID()"_s))
        return server->connection;
    if (statement.contains(u"IS_USED_LOCK("_s))
        return server->holder;
    if (statement.contains(u"IS_FREE_LOCK("_s))
        return server->holder == 0;
    if (statement.contains(u"GET_LOCK("_s)) {
        ++server->requests;
        int nobody = 0;
        return server->holder.compare_exchange_strong(nobody, server->connection);
    }
    return 1;
}

/// Each statement yields one row with one number.
class Result : public QSqlResult
{
public:
    explicit Result(const QSqlDriver *driver)
        : QSqlResult(driver)
    {
    }

protected:
    bool reset(const QString &statement) override
    {
        setAt(QSql::BeforeFirstRow);
        setSelect(true);
        if (statement.contains(u"_LOCK("_s) && !server->knowsLocks) {
            setActive(false);
            setLastError({u"FUNCTION queues.GET_LOCK does not exist"_s, QString(),
                          QSqlError::StatementError});
            return false;
        }
        value = answerTo(statement);
        setActive(true);
        return true;
    }
    bool fetchNext() override { return fetch(at() + 1); }
    bool fetchFirst() override { return fetch(0); }
    bool fetchLast() override { return fetch(0); }
    bool fetch(int row) override
    {
        setAt(row);
        return row == 0;
    }
    QVariant data(int /*field*/) override { return value; }
    bool isNull(int /*field*/) override { return false; }
    int size() override { return 1; }
    int numRowsAffected() override { return 0; }

private:
    int value = 0;
};

class Driver : public QSqlDriver
{
public:
    bool hasFeature(DriverFeature /*feature*/) const override { return false; }
    bool open(const QString & /*name*/, const QString & /*user*/, const QString & /*password*/,
              const QString & /*host*/, int /*port*/, const QString & /*options*/) override
    {
        setOpen(true);
        setOpenError(false);
        return true;
    }
    void close() override { setOpen(false); }
    QSqlResult *createResult() const override { return new Result(this); }
};

} // namespace

/// The role of a service, with servers that do not behave as MariaDB does; the real one is in
/// tests/faults/tst_twoservices.cpp.
class TestServiceLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();

    void embeddedDatabaseNeedsNone();
    void freeLock();
    void takenLock();
    void ownFormerConnectionIsNoOtherService();
    void serverWithoutLocks();

private:
    void useServer();

    std::unique_ptr<QueueDatabase> database;
    std::shared_ptr<SharedState> state;
};

void TestServiceLock::initTestCase()
{
    QSqlDatabase::registerSqlDriver(u"QMYSQL"_s, new QSqlDriverCreator<Driver>);
}

void TestServiceLock::init()
{
    database.reset();
    database = std::make_unique<QueueDatabase>();
    state = std::make_shared<SharedState>();
    server = std::make_unique<Server>();
}

void TestServiceLock::useServer()
{
    database->setSettings(u"[database]\ndriver = QMYSQL\nname = queues\n"_s);
}

void TestServiceLock::embeddedDatabaseNeedsNone()
{
    ServiceLock lock;
    lock.start(state);
    QCOMPARE(lock.role(), ServiceRole::Active);
    QVERIFY(!lock.isShared());
    QVERIFY(!state->claimsTypes);
}

void TestServiceLock::freeLock()
{
    useServer();
    const LogCapture log(u"database"_s);
    ServiceLock lock;
    lock.start(state);
    QCOMPARE(lock.role(), ServiceRole::Active);
    QVERIFY(lock.isShared());
    QVERIFY(state->claimsTypes);
    QCOMPARE(log.lines(), QStringList());
}

void TestServiceLock::takenLock()
{
    useServer();
    server->holder = 9;
    const LogCapture log(u"database"_s);
    ServiceLock lock;
    lock.start(state);
    QCOMPARE(lock.role(), ServiceRole::StandBy);
    QCOMPARE(log.lines(), QStringList{u"WARN Очередь 'queues' обслуживает другая служба "
                                      "(соединение 9, 1), эта остаётся в резерве"_s});
}

/// A server may keep a connection for some time after the service has closed it.
void TestServiceLock::ownFormerConnectionIsNoOtherService()
{
    useServer();
    const LogCapture log(u"database"_s);
    ServiceLock lock;
    lock.start(state);
    QCOMPARE(lock.role(), ServiceRole::Active);
    server->connection = 8;
    QVERIFY(QTest::qWaitFor([] { return server->requests >= 3; }, 30'000));
    QCOMPARE(lock.role(), ServiceRole::Undecided);
    QCOMPARE(log.lines(),
             QStringList{u"WARN Нет блокировки очереди 'queues' на сервере базы данных (сервер "
                         "освободил её), новые доставки не начинаются"_s});
    server->holder = 9;
    QVERIFY(QTest::qWaitFor([&] { return lock.role() == ServiceRole::StandBy; }, 30'000));
}

void TestServiceLock::serverWithoutLocks()
{
    useServer();
    server->knowsLocks = false;
    const LogCapture log(u"database"_s);
    ServiceLock lock;
    lock.start(state);
    QCOMPARE(lock.role(), ServiceRole::Active);
    // A worker would request the lock in vain and deliver nothing.
    QVERIFY(!state->claimsTypes);
    QCOMPARE(
        log.lines(),
        QStringList{u"ERROR Сервер базы данных не знает блокировок (FUNCTION queues.GET_LOCK does "
                    "not exist), служба работает без защиты от второй службы"_s});
}

QTEST_GUILESS_MAIN(TestServiceLock)
#include "tst_servicelock.moc"
