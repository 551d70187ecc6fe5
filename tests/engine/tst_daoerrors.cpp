#include "engine/dao.h"
#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "tests/engine/daofixture.h"
#include "tests/support/logcapture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QSqlQuery>
#include <QTest>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <sys/resource.h>
#include <thread>

using namespace Qt::StringLiterals;

/// What the store does when a statement fails, and when the database is away.
class TestDaoErrors : public DaoFixture
{
    Q_OBJECT

public:
    using DaoFixture::DaoFixture;

private Q_SLOTS:
    void failedStatementKeepsTheConnection();
    void causeThatGoesAway_data();
    void causeThatGoesAway();
    void lostTableReconnects();
    void unreachableAtFirstCall();
    void unreachableThrowsFromConnect();
    void queueInfoOfALostTable();
    void queueInfoWithoutConnection();
    void endRemovesTheConnection();
    void deletedFile();
    void deletedFileOfABusyStore();
    void replacedFile();
    void connectionThatAnotherRemoves();
    void tableThatComesLater();
    void readOnlyFile();
    void fullDisk();
    void serverRestart();
    void idleLongerThanTheServerAllows();

private:
    qsizetype openDatabaseFiles() const;
    void dropConnection();
    void breakConnection();
};

void TestDaoErrors::failedStatementKeepsTheConnection()
{
    const int id = database->put(u"spasibo"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    change(u"ALTER TABLE message RENAME COLUMN statuscode TO gone"_s);
    const LogCapture log(u"dao"_s);
    dao.updateStatusCode(id, u"1"_s);
    change(u"ALTER TABLE message RENAME COLUMN gone TO statuscode"_s);

    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(log.lines().first().startsWith(u"WARN Ошибка при выполнении запроса: "_s));
    QVERIFY(dao.hasMessages(u"spasibo"_s, QString()));
    QVERIFY2(!log.lines().contains(u"DEBUG Подключение к базе данных"_s), "it reconnected");
    dao.resetErrorsCount();
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TestDaoErrors::causeThatGoesAway_data()
{
    QTest::addColumn<bool>("isThereFromTheStart");
    QTest::addColumn<int>("calls");
    for (const int calls : {1, 2, 5}) {
        QTest::addRow("%d calls", calls) << false << calls;
        QTest::addRow("%d calls, and the connection", calls) << true << calls;
    }
}

/// An update of the till removes a column and restores it. Each call fails and is counted once; the
/// first one afterwards succeeds.
void TestDaoErrors::causeThatGoesAway()
{
    QFETCH(bool, isThereFromTheStart);
    QFETCH(int, calls);
    const int id = database->put(u"spasibo"_s, u"{}"_s);
    queue::DAO dao;
    if (!isThereFromTheStart) {
        dao.connect();
        QCOMPARE(dao.getMessage(u"spasibo"_s, -1, false, QString()).id, id);
        dao.updateStatusCode(id, u"1"_s);
    }
    change(u"ALTER TABLE message RENAME COLUMN statuscode TO gone"_s);
    if (isThereFromTheStart)
        dao.connect();
    const LogCapture log(u"dao"_s);
    for (int call = 0; call < calls; ++call) {
        dao.updateStatusCode(id, u"2"_s);
        QCOMPARE(dao.getErrorsCount(), 2 * call + 1);
        QCOMPARE(dao.getMessage(u"spasibo"_s, -1, false, QString()).id, -1);
        QCOMPARE(dao.getErrorsCount(), 2 * call + 2);
    }
    change(u"ALTER TABLE message RENAME COLUMN gone TO statuscode"_s);
    dao.updateStatusCode(id, u"3"_s);
    QCOMPARE(dao.getMessage(u"spasibo"_s, -1, false, QString()).statusCode, u"3"_s);
    QCOMPARE(dao.getErrorsCount(), 2 * calls);

    const QStringList errors = log.lines().filter(u"WARN "_s);
    QCOMPARE(errors.size(), 2 * calls);
    for (const QString &line : errors)
        QVERIFY2(line.startsWith(u"WARN Ошибка при выполнении запроса: "_s)
                     && line.contains(u"statuscode"),
                 qPrintable(line));
    QVERIFY(log.lines().filter(u"ERROR "_s).isEmpty());
    QVERIFY2(!log.lines().contains(u"DEBUG Подключение к базе данных"_s), "it reconnected");
}

void TestDaoErrors::lostTableReconnects()
{
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    change(u"ALTER TABLE message RENAME TO away"_s);
    const LogCapture log(u"dao"_s);
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, -1);
    QCOMPARE(dao.getErrorsCount(), 2);
    QVERIFY(log.lines().contains(u"ERROR База данных недоступна"_s));

    change(u"ALTER TABLE away RENAME TO message"_s);
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, id);
    QCOMPARE(log.lines().count(u"DEBUG Подключение к базе данных"_s), 1);
    QCOMPARE(dao.getErrorsCount(), 2);
}

void TestDaoErrors::unreachableAtFirstCall()
{
    breakConnection();
    queue::DAO dao;
    const LogCapture log(u"dao"_s);
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(log.lines().size(), 2);
    QVERIFY(log.lines().at(1).startsWith(u"ERROR Не удалось "_s));

    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);
    dao.updateStatusCode(1, u"4"_s);
    QCOMPARE(dao.getErrorsCount(), 3);
    dao.deleteMessage(1);
    QCOMPARE(dao.getErrorsCount(), 4);
    database->setSettings(server ? server->settings() : QString());
    database->put(u"cardlab"_s, u"{}"_s);
    QVERIFY(dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 4);
}

void TestDaoErrors::unreachableThrowsFromConnect()
{
    breakConnection();
    {
        queue::DAO dao;
        QVERIFY_EXCEPTION_THROWN(dao.connect(), BasicException);
        QCOMPARE(dao.getErrorsCount(), 0);
    }
    database->setSettings(server ? server->settings() : QString());
}

void TestDaoErrors::queueInfoOfALostTable()
{
    queue::DAO dao;
    dao.connect();
    change(u"ALTER TABLE message RENAME TO away"_s);
    const LogCapture log(u"dao"_s);
    QCOMPARE(dao.getQueueInfo().count, -1);
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(log.lines().first().startsWith(u"WARN Ошибка при выполнении запроса: "_s));
    change(u"ALTER TABLE away RENAME TO message"_s);
}

/// The main thread is asked for it while the database is away.
void TestDaoErrors::queueInfoWithoutConnection()
{
    change(u"ALTER TABLE message RENAME TO away"_s);
    {
        queue::DAO dao;
        // No statement can be prepared.
        dao.connect();
        dao.hasMessages(u"cardlab"_s, QString());
        QCOMPARE(dao.getErrorsCount(), 2);
        change(u"ALTER TABLE away RENAME TO message"_s);
        breakConnection();
        dao.hasMessages(u"cardlab"_s, QString());
        QCOMPARE(dao.getErrorsCount(), 3);

        const LogCapture log(u"dao"_s);
        QCOMPARE(dao.getQueueInfo().count, -1);
        QCOMPARE(dao.getErrorsCount(), 4);
        QCOMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith(u"WARN Ошибка при выполнении запроса: "_s)
                     && log.lines().first().size() > 50,
                 qPrintable(log.lines().first()));
        database->setSettings(server ? server->settings() : QString());
        QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
        QCOMPARE(dao.getQueueInfo().count, 0);
        QCOMPARE(dao.getErrorsCount(), 4);
    }
}

void TestDaoErrors::endRemovesTheConnection()
{
    database->put(u"cardlab"_s, u"{}"_s);
    QString name;
    const LogCapture log(u"dao"_s);
    std::thread worker([&name] {
        queue::DAO dao;
        dao.connect();
        name = Singleton<ConnectionFactory>::instance()->getConnection().connectionName();
        dao.getMessage(u"cardlab"_s, -1, false, QString());
    });
    worker.join();
    QVERIFY(!name.isEmpty());
    QVERIFY(!QSqlDatabase::contains(name));
    QCOMPARE(log.lines().last(), u"TRACE Удаление соединения с базой данных: "_s + name);
}

void TestDaoErrors::deletedFile()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    const LogCapture log(u"dao"_s);
    for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
        QVERIFY(QFile::remove(database->file() + suffix));
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);
    QVERIFY(log.lines().contains(
        u"WARN Ошибка при выполнении запроса: файл базы данных удалён или заменён"_s));
    QVERIFY(log.lines().contains(u"ERROR База данных недоступна"_s));

    // The next call creates a new file, and rows that the till writes into it are seen.
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    database->put(u"cardlab"_s, u"{}"_s);
    QVERIFY(dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);
}

void TestDaoErrors::deletedFileOfABusyStore()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    const auto removeFiles = [this] {
        for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
            QVERIFY(QFile::remove(database->file() + suffix));
    };
    database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QVERIFY(dao.getMessage(u"cardlab"_s, -1, false, QString()).id > 0);
    removeFiles();
    // A worker notices soon, but does not check at each statement.
    const auto isNoticed = [&dao] {
        dao.getMessage(u"cardlab"_s, -1, false, QString());
        return dao.getErrorsCount() == 2;
    };
    QTRY_VERIFY(isNoticed());

    // A single call notices at once.
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    database->put(u"cardlab"_s, u"{}"_s);
    QVERIFY(dao.getMessage(u"cardlab"_s, -1, false, QString()).id > 0);
    removeFiles();
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 4);
}

/// A backup is moved to this path, and the write-ahead log of the former file stays beside it.
void TestDaoErrors::replacedFile()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    const QString backup = database->root() + u"/backup.db"_s;
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    database->query(u"VACUUM queues INTO ?"_s, {backup});
    for (int i = 0; i < 100; ++i)
        database->put(u"heineken"_s, QString(1000, u'x'));
    QVERIFY(QFileInfo(database->file() + u"-wal"_s).size() > 100'000);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(::rename(QFile::encodeName(backup).constData(),
                      QFile::encodeName(database->file()).constData()),
             0);
    const LogCapture log(u"database"_s);
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);

    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, id);
    QVERIFY(!dao.hasMessages(u"heineken"_s, QString()));
    dao.deleteMessage(id);
    QCOMPARE(database->ids(), QList<int>());
    QCOMPARE(database->query(u"PRAGMA queues.integrity_check"_s).value(0).value(0), u"ok"_s);
    QCOMPARE(dao.getErrorsCount(), 2);
    QCOMPARE(log.lines().filter(u"ERROR Файл базы данных "_s).size(), 1);
}

/// What else runs on the thread, for instance the store of cards, replaces a lost connection too.
void TestDaoErrors::connectionThatAnotherRemoves()
{
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, id);
    dropConnection();
    if (!server)
        QCOMPARE(openDatabaseFiles(), 0);

    const LogCapture log(u"dao"_s);
    dao.deleteMessage(id);
    QCOMPARE(dao.getErrorsCount(), 2);
    QVERIFY(log.lines().contains(u"ERROR База данных недоступна"_s));
    dao.deleteMessage(id);
    QCOMPARE(dao.getErrorsCount(), 2);
    QCOMPARE(database->ids(), QList<int>());
}

/// The till creates its table after the store has connected.
void TestDaoErrors::tableThatComesLater()
{
    if (server)
        QSKIP("the same for a server, see causeThatGoesAway()");
    change(u"ALTER TABLE message RENAME TO later"_s);
    ConnectionFactory::setCreatesTables(false);
    const auto createAgain = qScopeGuard([] { ConnectionFactory::setCreatesTables(true); });
    dropConnection();
    queue::DAO dao;
    dao.connect();
    change(u"ALTER TABLE later RENAME TO message"_s);
    const int id = database->put(u"cardlab"_s, u"{\"a\":1}"_s);
    const Message message = dao.getMessage(u"cardlab"_s, -1, false, QString());
    QCOMPARE(message.id, id);
    QCOMPARE(message.body, (QVariantMap{{u"a"_s, 1}}));
    dao.deleteMessage(id);
    QCOMPARE(database->ids(), QList<int>());
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TestDaoErrors::readOnlyFile()
{
    if (server)
        QSKIP("what a server cannot write it tells like any failed statement");
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    database->query(u"PRAGMA query_only = ON"_s);
    const LogCapture log(u"dao"_s);
    dao.deleteMessage(id);
    database->query(u"PRAGMA query_only = OFF"_s);
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(database->ids(), QList<int>{id});
    dao.deleteMessage(id);
    QCOMPARE(database->ids(), QList<int>());
}

void TestDaoErrors::fullDisk()
{
    if (server)
        QSKIP("the server's disk is its own");
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();

    // No file of this process may grow: the system refuses the write as it does on a full disk.
    rlimit former = {};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto formerAction = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, former.rlim_max};
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &none), 0);
    const LogCapture log(u"dao"_s);
    dao.deleteMessage(id);
    const bool isStillRead = dao.getMessage(u"cardlab"_s, -1, false, QString()).id == id;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &former), 0);
    std::signal(SIGXFSZ, formerAction);

    QVERIFY(isStillRead);
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(log.lines().filter(u"WARN Ошибка при выполнении запроса: "_s).size(), 1);
    QCOMPARE(database->ids(), QList<int>{id});
    dao.deleteMessage(id);
    QCOMPARE(database->ids(), QList<int>());
}

void TestDaoErrors::serverRestart()
{
    if (!server)
        QSKIP("there is no server");
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    server->stop();
    const LogCapture log(u"dao"_s);
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, -1);
    QCOMPARE(dao.getErrorsCount(), 2);
    QVERIFY(log.lines().contains(u"ERROR База данных недоступна"_s));
    server->start();
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, id);
    QCOMPARE(dao.getErrorsCount(), 2);
}

void TestDaoErrors::idleLongerThanTheServerAllows()
{
    if (!server)
        QSKIP("a file has no sessions");
    database->put(u"cardlab"_s, u"{}"_s);
    dropConnection();
    server->run(u"SET GLOBAL wait_timeout = 1; SET GLOBAL interactive_timeout = 1"_s);
    const auto restore = qScopeGuard([this] {
        server->run(
            u"SET GLOBAL wait_timeout = DEFAULT; SET GLOBAL interactive_timeout = DEFAULT"_s);
    });
    queue::DAO dao;
    dao.connect();
    for (int poll = 0; poll < 2; ++poll) {
        // Another session, begun later: when the server has ended it, that of the store has been
        // idle for longer than the default of the server allows.
        QSqlDatabase other = QSqlDatabase::addDatabase(u"QMYSQL"_s, u"other"_s);
        other.setUserName(server->user());
        other.setPassword(server->password());
        other.setConnectOptions(u"UNIX_SOCKET="_s + server->socket());
        QVERIFY(other.open());
        QSqlQuery id(other);
        QVERIFY(id.exec(u"SELECT CONNECTION_ID()"_s) && id.next());
        const QString session =
            u"SELECT id FROM information_schema.processlist WHERE id = %1"_s.arg(
                id.value(0).toString());
        id = QSqlQuery();
        QTRY_COMPARE(server->run(session), QByteArray());
        other = QSqlDatabase();
        QSqlDatabase::removeDatabase(u"other"_s);

        QCOMPARE(dao.getMessageTypeCounts().size(), 1);
        QCOMPARE(dao.getErrorsCount(), 0);
    }
}

/// How many files of the database this process has open, the fixture's own excluded.
qsizetype TestDaoErrors::openDatabaseFiles() const
{
    const QFileInfoList entries = QDir(u"/proc/self/fd"_s).entryInfoList(QDir::Files);
    return std::ranges::count_if(entries, [this](const QFileInfo &entry) {
        return entry.symLinkTarget().startsWith(database->file());
    });
}

void TestDaoErrors::dropConnection()
{
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    const QString name = factory->getConnection().connectionName();
    factory->removeConnection(name);
}

void TestDaoErrors::breakConnection()
{
    // The test's own connection must not be returned.
    dropConnection();
    database->setSettings(server ? u"[database]\ndriver = QMYSQL\nsocket = /nowhere/db.sock\n"_s
                                 : u"[database]\nname = /nowhere/queues.db\n"_s);
}

int main(int argc, char **argv)
{
    return DaoFixture::runOnBoth<TestDaoErrors>(argc, argv);
}

#include "tst_daoerrors.moc"
