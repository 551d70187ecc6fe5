#include "engine/dao.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "shared/core/writegate.h"
#include "tests/engine/daofixture.h"
#include "tests/support/logcapture.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>
#include <QTest>

#include <atomic>
#include <chrono>
#include <csignal>
#include <dlfcn.h>
#include <functional>
#include <future>
#include <sys/resource.h>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

/// The file as the till has it open: a connection of its own, with the file as its main database.
class TillConnection
{
public:
    explicit TillConnection(const QString &file)
        : database(QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s))
    {
        database.setDatabaseName(file);
        database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=0"_s);
        if (!database.open())
            qFatal("%s", qPrintable(database.lastError().text()));
    }
    ~TillConnection()
    {
        database = QSqlDatabase();
        QSqlDatabase::removeDatabase(u"till"_s);
    }
    TillConnection(const TillConnection &) = delete;

    /// The first row of the result.
    QVariantList run(const QString &statement)
    {
        QSqlQuery query(database);
        if (!query.exec(statement))
            qFatal("%s: %s", qPrintable(statement), qPrintable(query.lastError().text()));
        QVariantList row;
        if (query.next()) {
            for (int column = 0; column < query.record().count(); ++column)
                row.append(query.value(column));
        }
        return row;
    }

private:
    QSqlDatabase database;
};

/// A store for each of `rows`, which it removes in a thread of its own, all at once where the file
/// has a gate. Returns the counter of each. `fault` happens when all threads have arrived.
/// `connected` happens in each thread before.
QList<int> removeAtOnce(
    WriteGate *gate, const QList<int> &rows, const std::function<void()> &fault = [] {},
    const std::function<void()> &connected = [] {})
{
    QList<int> errors(rows.size());
    std::vector<std::thread> workers;
    WriteGate::Turn held = WriteGate::enter(gate);
    for (int i = 0; i < rows.size(); ++i) {
        workers.emplace_back([&rows, &connected, &count = errors[i], i] {
            queue::DAO dao;
            dao.connect();
            connected();
            dao.deleteMessage(rows.at(i));
            count = dao.getErrorsCount();
        });
        while (gate && gate->waiting() <= i)
            std::this_thread::yield();
    }
    fault();
    held.end();
    for (std::thread &worker : workers)
        worker.join();
    return errors;
}

/// From now on SQLite refuses this thread's connection to end a transaction without its changes.
void forbidRollback()
{
    using Check = int (*)(void *, int, const char *, const char *, const char *, const char *);
    using SetCheck = int (*)(void *, Check, void *);
    void *const library = dlopen("libsqlite3.so.0", RTLD_NOW | RTLD_NOLOAD);
    const auto setCheck =
        reinterpret_cast<SetCheck>(library ? dlsym(library, "sqlite3_set_authorizer") : nullptr);
    const QSqlDatabase database = Singleton<ConnectionFactory>::instance()->getConnection();
    const QVariant handle = database.driver()->handle();
    if (!setCheck || qstrcmp(handle.typeName(), "sqlite3*") != 0)
        qFatal("SQLite is not reached");
    setCheck(
        *static_cast<void *const *>(handle.constData()),
        [](void *, int action, const char *what, const char *, const char *, const char *) {
            constexpr int transaction = 22;
            constexpr int deny = 1;
            return action == transaction && qstrcmp(what, "ROLLBACK") == 0 ? deny : 0;
        },
        nullptr);
    dlclose(library);
}

} // namespace

/// What the store allows others: the till that has the file open, and the workers that write to it.
class TestDaoSharing : public DaoFixture
{
    Q_OBJECT

public:
    using DaoFixture::DaoFixture;

private Q_SLOTS:
    void noOperationHoldsTheLog();
    void logShrinksWhenAPassEnds_data();
    void logShrinksWhenAPassEnds();
    void logShrinksInATurnOfItsOwn();
    void logShrinksByItself();
    void lockedByAnotherProgram();
    void workersRemoveTogether();
    void workersOfATableThatComesLater();
    void oneOfSeveralIsNotRemoved();
    void transactionThatCannotBeEnded();
    void lockedForSeveral();
    void fullDiskForSeveral();
    void deletedFileOfSeveral();
    void otherWritesWaitForTheirTurn();

private:
    qint64 logSize() const { return QFileInfo(database->file() + u"-wal"_s).size(); }
    /// Makes the log grow to more than `bytes` while `till` reads, so that it cannot be reused from
    /// its start.
    void growLog(TillConnection &till, qint64 bytes);
    WriteGate *gate();
};

/// An unfinished statement would remain a reader as long as the service runs, and the log would
/// grow all that time.
void TestDaoSharing::noOperationHoldsTheLog()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    const int first = database->put(u"spasibo"_s, u"{}"_s, u"7"_s);
    const int id = database->put(u"spasibo"_s, u"{}"_s, u"7"_s);
    database->put(u"cardlab"_s, u"{}"_s, u"7"_s);
    database->put(u"cardlab"_s, u"{}"_s, u"7"_s);
    queue::DAO dao;
    dao.connect();
    TillConnection till(database->file());
    const auto isFree = [&till] {
        till.run(u"INSERT INTO message (type, body) VALUES ('heineken', '{}')"_s);
        return till.run(u"PRAGMA wal_checkpoint(TRUNCATE)"_s).value(0) == 0;
    };
    QVERIFY(isFree());
    dao.hasMessages(u"spasibo"_s, QString());
    QVERIFY(isFree());
    dao.hasMessages(u"spasibo"_s, u"7"_s);
    QVERIFY(isFree());
    for (const bool descending : {false, true}) {
        for (const QString &card : {u""_s, u"7"_s}) {
            QCOMPARE(dao.getMessages(u"spasibo"_s, -1, 1, descending, card).size(), 1);
            QVERIFY(isFree());
        }
    }
    QVERIFY(dao.hasEarlierMessage(u"spasibo"_s, id + 1, QString()));
    QVERIFY(isFree());
    dao.getMessageTypeCounts();
    QVERIFY(isFree());
    dao.updateStatusCode(id, u"1"_s);
    QVERIFY(isFree());
    dao.getQueueInfo();
    QVERIFY(isFree());
    dao.deleteMessage(first);
    QVERIFY(isFree());
    dao.onPassEnded();
    QVERIFY(isFree());
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TestDaoSharing::logShrinksWhenAPassEnds_data()
{
    QTest::addColumn<QString>("holding");
    QTest::addColumn<bool>("isHeld");
    // The till prevents the log from shrinking, or allows it.
    QTest::newRow("nobody") << QString() << false;
    QTest::newRow("a reader of an old state") << u"SELECT 1 FROM message"_s << true;
    QTest::newRow("a writer") << u"DELETE FROM message WHERE messageid = 1"_s << true;
}

void TestDaoSharing::logShrinksWhenAPassEnds()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    QFETCH(QString, holding);
    QFETCH(bool, isHeld);
    constexpr qint64 size = 20 * 1024 * 1024;
    database->put(u"heineken"_s, u"{}"_s);
    TillConnection till(database->file());
    growLog(till, size);
    const bool isReader = holding.startsWith(u"SELECT"_s);
    if (!isReader)
        till.run(u"COMMIT"_s);
    if (isHeld && !isReader) {
        till.run(u"BEGIN IMMEDIATE"_s);
        till.run(holding);
    }
    const QList<int> ids = database->ids();
    queue::DAO dao;
    dao.connect();
    const LogCapture log(u"dao"_s);
    QElapsedTimer time;
    time.start();
    dao.onPassEnded();
    // Where the connection needs the lock, it waits 5 s for it.
    QVERIFY2(time.elapsed() < 4000, "it waited for the till");
    QCOMPARE(logSize() > size, isHeld);
    if (isHeld) {
        till.run(u"COMMIT"_s);
        dao.onPassEnded();
    }
    QCOMPARE(logSize(), 0);
    QCOMPARE(database->query(u"PRAGMA busy_timeout"_s).value(0).value(0), 5000);
    QCOMPARE(database->ids().size(), ids.size() - (isHeld && !isReader ? 1 : 0));
    QCOMPARE(dao.getErrorsCount(), 0);
    QCOMPARE(log.lines(), QStringList());

    // A log of ordinary size is not truncated.
    database->put(u"heineken"_s, u"{}"_s);
    const qint64 ordinary = logSize();
    QVERIFY(ordinary > 0);
    dao.onPassEnded();
    QCOMPARE(logSize(), ordinary);
}

void TestDaoSharing::logShrinksInATurnOfItsOwn()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    constexpr qint64 size = 20 * 1024 * 1024;
    database->put(u"heineken"_s, u"{}"_s);
    {
        TillConnection till(database->file());
        growLog(till, size);
        till.run(u"COMMIT"_s);
    }
    WriteGate::Turn held = WriteGate::enter(gate());
    std::thread worker([] {
        queue::DAO dao;
        dao.connect();
        dao.onPassEnded();
    });
    while (gate()->waiting() == 0)
        std::this_thread::yield();
    const bool isWaiting = logSize() > size;
    held.end();
    worker.join();
    QVERIFY(isWaiting);
    QCOMPARE(logSize(), 0);
}

/// Writes of the service also free the disk space, once the log is reused from its start.
void TestDaoSharing::logShrinksByItself()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    constexpr qint64 size = 20 * 1024 * 1024;
    const int first = database->put(u"cardlab"_s, u"{}"_s);
    const int second = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    {
        TillConnection till(database->file());
        growLog(till, size);
        till.run(u"COMMIT"_s);
    }
    QVERIFY(logSize() > size);
    dao.deleteMessage(first);
    dao.deleteMessage(second);
    QVERIFY2(logSize() <= size / 2, qPrintable(QString::number(logSize())));
}

void TestDaoSharing::lockedByAnotherProgram()
{
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    if (server)
        database->query(u"BEGIN"_s);
    else
        database->query(u"BEGIN IMMEDIATE"_s);
    database->query(u"UPDATE message SET statuscode = 'busy' WHERE messageid = ?"_s, {id});

    std::atomic<int> errors{-1};
    std::thread worker([id, &errors] {
        queue::DAO dao;
        dao.connect();
        dao.deleteMessage(id);
        errors = dao.getErrorsCount();
    });
    database->query(u"COMMIT"_s);
    worker.join();
    QCOMPARE(errors.load(), 0);
    QCOMPARE(database->ids(), QList<int>());
}

void TestDaoSharing::workersRemoveTogether()
{
    QCOMPARE(gate() == nullptr, server != nullptr);
    QList<int> rows;
    for (int i = 0; i < 8; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    const int other = database->put(u"cardlab"_s, u"{}"_s);
    QCOMPARE(removeAtOnce(gate(), rows), QList<int>(8, 0));
    QCOMPARE(database->ids(), QList<int>{other});
}

/// Their statements could not be prepared when they connected. Each removes its own row.
void TestDaoSharing::workersOfATableThatComesLater()
{
    if (server)
        QSKIP("a server has no gate");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    ConnectionFactory::setCreatesTables(false);
    const auto createAgain = qScopeGuard([] { ConnectionFactory::setCreatesTables(true); });
    change(u"ALTER TABLE message RENAME TO later"_s);
    const QList<int> errors =
        removeAtOnce(gate(), rows, [this] { change(u"ALTER TABLE later RENAME TO message"_s); });

    QCOMPARE(errors, (QList<int>{0, 0, 0}));
    QCOMPARE(database->ids(), QList<int>());
}

/// Only one of them has an error, counted and logged as if it were alone.
void TestDaoSharing::oneOfSeveralIsNotRemoved()
{
    if (server)
        QSKIP("a server has no gate");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    change(u"CREATE TRIGGER queues.refusal BEFORE DELETE ON message WHEN OLD.type = 'type1' "
           "BEGIN SELECT RAISE(ABORT, 'refused'); END"_s);
    const LogCapture log(u"dao"_s);
    const QList<int> errors = removeAtOnce(gate(), rows);
    change(u"DROP TRIGGER refusal"_s);

    QCOMPARE(errors, (QList<int>{0, 1, 0}));
    QCOMPARE(database->ids(), QList<int>{rows.at(1)});
    const QStringList warnings = log.lines().filter(u"WARN "_s) + log.lines().filter(u"ERROR "_s);
    QCOMPARE(warnings.size(), 1);
    QVERIFY(warnings.first().startsWith(u"WARN Ошибка при выполнении запроса: "_s));
    QVERIFY(warnings.first().contains(u"refused"_s));
}

/// The connection is given up with its transaction, and each worker removes its own row.
void TestDaoSharing::transactionThatCannotBeEnded()
{
    if (server)
        QSKIP("a server has no gate");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    change(u"CREATE TRIGGER queues.refusal BEFORE DELETE ON message WHEN OLD.type = 'type1' "
           "BEGIN SELECT RAISE(ABORT, 'refused'); END"_s);
    const LogCapture log(u"dao"_s);
    const QList<int> errors = removeAtOnce(
        gate(), rows, [] {}, forbidRollback);
    change(u"DROP TRIGGER refusal"_s);

    QCOMPARE(errors, (QList<int>{0, 1, 0}));
    QCOMPARE(database->ids(), QList<int>{rows.at(1)});
    // Those of the three stores, and the one that replaced the given-up connection.
    QCOMPARE(log.lines().filter(u"DEBUG Подключение к базе данных"_s).size(), 4);
}

/// The till holds its lock for longer than a worker waits. The transaction does not begin, and each
/// worker removes its own row when the till is done.
void TestDaoSharing::lockedForSeveral()
{
    if (server)
        QSKIP("a server locks rows");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    const int other = database->put(u"cardlab"_s, u"{}"_s);
    const LogCapture log(u"dao"_s);
    std::thread till;
    const QString refusal = u"DEBUG Сообщения удаляются по одному: database is locked"_s;
    const QList<int> errors = removeAtOnce(gate(), rows, [&] {
        std::promise<void> isHeld;
        till = std::thread([&] {
            TillConnection connection(database->file());
            connection.run(u"BEGIN IMMEDIATE"_s);
            isHeld.set_value();
            while (log.lines().filter(refusal).isEmpty())
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            connection.run(u"COMMIT"_s);
        });
        isHeld.get_future().wait();
    });
    till.join();

    QCOMPARE(errors, QList<int>(3, 0));
    QCOMPARE(database->ids(), QList<int>{other});
    QCOMPARE(log.lines().filter(refusal).size(), 1);
}

/// SQLite ends the transaction by itself, and each worker finds the disk full.
void TestDaoSharing::fullDiskForSeveral()
{
    if (server)
        QSKIP("the server's disk is its own");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    rlimit former = {};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto formerAction = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, former.rlim_max};
    const LogCapture log(u"dao"_s);
    const QList<int> errors =
        removeAtOnce(gate(), rows, [&none] { setrlimit(RLIMIT_FSIZE, &none); });
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &former), 0);
    std::signal(SIGXFSZ, formerAction);

    QCOMPARE(errors, QList<int>(3, 1));
    QCOMPARE(log.lines().filter(u"WARN Ошибка при выполнении запроса: "_s).size(), 3);
    QCOMPARE(log.lines().filter(u"DEBUG Подключение к базе данных"_s).size(), 3);
    QCOMPARE(database->ids(), rows);
    QCOMPARE(removeAtOnce(gate(), rows), QList<int>(3, 0));
    QCOMPARE(database->ids(), QList<int>());
}

void TestDaoSharing::deletedFileOfSeveral()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    const auto removeFiles = [this] {
        for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
            QFile::remove(database->file() + suffix);
    };
    const LogCapture log(u"dao"_s);
    // A failed statement and a lost database for each, as for a single worker.
    QCOMPARE(removeAtOnce(gate(), rows, removeFiles), QList<int>(3, 2));
    QCOMPARE(
        log.lines()
            .filter(u"WARN Ошибка при выполнении запроса: файл базы данных удалён или заменён"_s)
            .size(),
        3);
}

void TestDaoSharing::otherWritesWaitForTheirTurn()
{
    if (server)
        QSKIP("a server has no gate");
    const int id = database->put(u"spasibo"_s, u"{}"_s);
    std::vector<std::thread> writers;
    {
        const WriteGate::Turn held = WriteGate::enter(gate());
        writers.emplace_back([id] {
            queue::DAO dao;
            dao.connect();
            dao.updateStatusCode(id, u"4"_s);
        });
        while (gate()->waiting() != 1)
            std::this_thread::yield();
        QCOMPARE(database->query(u"SELECT statuscode FROM message"_s).first().first(),
                 QVariant(u""_s));
    }
    writers.front().join();
    QCOMPARE(database->query(u"SELECT statuscode FROM message"_s).first().first(),
             QVariant(u"4"_s));
}

void TestDaoSharing::growLog(TillConnection &till, qint64 bytes)
{
    till.run(u"BEGIN"_s);
    till.run(u"SELECT COUNT(*) FROM message"_s);
    while (logSize() <= bytes)
        database->put(u"heineken"_s, QString(1024 * 1024, u'x'));
}

WriteGate *TestDaoSharing::gate()
{
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    return factory->gateOf(factory->getConnection());
}

int main(int argc, char **argv)
{
    return DaoFixture::runOnBoth<TestDaoSharing>(argc, argv);
}

#include "tst_daosharing.moc"
