#include "shared/core/connectionfactory.h"

#include "shared/core/basicexception.h"
#include "shared/core/databasesettings.h"
#include "shared/core/databasestatements.h"
#include "shared/core/serverconnection.h"
#include "shared/core/sqliteschema.h"
#include "shared/core/sqlitestatement.h"
#include "shared/core/writeaheadlog.h"
#include "shared/core/writegate.h"

#include <log4qt/logmanager.h>

#include <QFile>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

#include <chrono>
#include <optional>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

constexpr auto busyTimeout = std::chrono::milliseconds(5000);
/// SQLite restarts the write-ahead log at about 4 MiB, unless a reader holds it or a row is large.
constexpr qint64 ordinaryLogBytes = 8 * 1024 * 1024;
/// A statement may wait for a lock on a busy server; a lost server must not block a thread.
constexpr auto serverTimeout = std::chrono::seconds(30);

Log4Qt::Logger *logger()
{
    return Log4Qt::LogManager::logger(u"database"_s);
}

/// A unique name per thread: the system reuses thread ids.
QString connectionNameOfThread()
{
    static std::atomic<int> count{0};
    thread_local const QString name = u"queue-%1"_s.arg(++count);
    return name;
}

QString configuredDriver()
{
    return settings::database::driver.value();
}

QSqlDatabase addDatabase(const QString &driver, const QString &name)
{
    const QSqlDatabase database = QSqlDatabase::addDatabase(driver, name);
    if (!database.isValid())
        throw BasicException(u"Драйвер базы данных %1 не установлен (пакет libqt6sql6-%2)"_s.arg(
            driver, isServerDriver(driver) ? u"mysql"_s : u"sqlite"_s));
    return database;
}

} // namespace

ConnectionFactory::~ConnectionFactory() = default;

void ConnectionFactory::removeConnection(const QString &name)
{
    files.close(name);
    if (!QSqlDatabase::contains(name))
        return;
    if (sqlite3 *const handle = SqliteStatement::handleOf(QSqlDatabase::database(name, false)))
        SqliteStatement::finalizeAll(handle);
    QSqlDatabase::removeDatabase(name);
}

QSqlDatabase ConnectionFactory::getConnection()
{
    const QString name = connectionNameOfThread();
    if (QSqlDatabase::contains(name)) {
        const QSqlDatabase database = QSqlDatabase::database(name, false);
        // Checked on every call: a row written to a deleted file is lost.
        if (database.isOpen() && isConnectionCurrent(name)
            && (!withCheck || QSqlQuery(database).exec(u"SELECT 1"_s)))
            return database;
    }
    removeConnection(name);
    try {
        return open(name);
    } catch (const BasicException &) {
        removeConnection(name);
        throw;
    }
}

bool ConnectionFactory::isConnectionCurrent(const QString &name)
{
    return files.isCurrent(name);
}

void ConnectionFactory::shrinkLog(const QString &name)
{
    const SqliteFiles::FileIdentity file = files.of(name);
    struct stat status = {};
    if (file.path.isEmpty()
        || ::stat(QFile::encodeName(file.realPath + u"-wal"_s).constData(), &status) != 0
        || status.st_size <= ordinaryLogBytes || !isConnectionCurrent(name))
        return;
    QSqlQuery query(QSqlDatabase::database(name, false));
    // If a reader needs the log, or the till writes all the time, a later pass truncates it.
    // Truncation blocks writers for as long as the file system takes: 0.2 s for 124 MiB.
    if (!copyWriteAheadLog(query))
        return;
    // Turns keep our own writers from meeting SQLite's busy handler, which sleeps.
    const WriteGate::Turn turn = WriteGate::enter(&WriteGate::of(file.device, file.inode));
    query.exec(u"PRAGMA busy_timeout = 0"_s);
    query.finish();
    query.exec(u"PRAGMA queues.wal_checkpoint(TRUNCATE)"_s);
    query.finish();
    query.exec(u"PRAGMA busy_timeout = %1"_s.arg(busyTimeout.count()));
}

WriteGate *ConnectionFactory::gateOf(const QSqlDatabase &database) const
{
    if (isServerDriver(database.driverName()))
        return nullptr;
    const SqliteFiles::FileIdentity file = files.of(database.connectionName());
    return file.path.isEmpty() ? nullptr : &WriteGate::of(file.device, file.inode);
}

bool ConnectionFactory::usesServer()
{
    return isServerDriver(configuredDriver());
}

QSqlDatabase ConnectionFactory::connectToServer(const QString &name, std::chrono::seconds timeout)
{
    QSqlDatabase database = addDatabase(configuredDriver(), name);
    openServer(database, timeout);
    return database;
}

void ConnectionFactory::setWithCheck(bool check)
{
    withCheck = check;
}

void ConnectionFactory::setCreatesTables(bool creates)
{
    createsTables = creates;
}

QSqlDatabase ConnectionFactory::open(const QString &name)
{
    const QString driver = configuredDriver();
    if (driver != u"QSQLITE" && !isServerDriver(driver))
        throw BasicException(
            u"Неизвестный драйвер базы данных '%1' в параметре database:driver, допустимы QSQLITE, QMYSQL и QMARIADB"_s
                .arg(driver));

    QSqlDatabase database = addDatabase(driver, name);
    if (isServerDriver(driver))
        openServer(database, serverTimeout);
    else
        openSqlite(database, settings::database::fileName());
    return database;
}

void ConnectionFactory::openSqlite(QSqlDatabase &database, const QString &path)
{
    const QString what = u"Не удалось открыть базу данных '%1'"_s.arg(path);
    database.setDatabaseName(u":memory:"_s);
    database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=%1"_s.arg(busyTimeout.count()));
    // In memory, so it fails only without memory.
    if (!database.open())
        throwDatabaseError(what, database.lastError());

    QSqlQuery query(database);
    std::optional<SchemaTables> tables;
    files.open(database.connectionName(), path, [&] {
        // Attached as `queues`, the table can be named both `message` and `queues.message`.
        query.prepare(u"ATTACH DATABASE ? AS queues"_s);
        query.addBindValue(path);
        if (!query.exec())
            throwDatabaseError(what, query.lastError());
        query.finish();
        tables = readSchemaTables(query, u"queues"_s);
        if (!tables)
            throwDatabaseError(what, query.lastError());
    });
    if (!tables->missing.isEmpty() && createsTables) {
        try {
            createSchemaTables(path, tables->isEmpty, connectionNameOfThread() + u"-schema"_s,
                               busyTimeout);
        } catch (const BasicException &exception) {
            // If the file contains the till's own tables, it is usable without ours.
            if (tables->isEmpty)
                throw;
            logger()->error(exception.tr().ru());
        }
    }

    // Committed rows survive a power cut.
    query.exec(u"PRAGMA queues.journal_mode=WAL"_s);
    // A statement that failed has no row.
    if (!query.next() || query.value(0).toString() != u"wal")
        logger()->warn(
            u"База данных '%1' не переводится в режим WAL, проверьте права на файл и каталог"_s,
            path);
    query.finish();
    executeStatement(database, u"PRAGMA queues.synchronous=FULL"_s, what);
    // When a large log restarts, the next commit truncates it.
    executeStatement(database, u"PRAGMA queues.journal_size_limit=%1"_s.arg(ordinaryLogBytes),
                     what);
    // LIKE compares bytes, as on the server.
    executeStatement(database, u"PRAGMA case_sensitive_like=ON"_s, what);

    // SQLite has created a new file's write-ahead log by now.
    files.note(database.connectionName(), path);
}
