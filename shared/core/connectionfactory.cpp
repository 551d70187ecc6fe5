#include "shared/core/connectionfactory.h"

#include "shared/core/basicexception.h"
#include "shared/core/databasesettings.h"
#include "shared/core/databasestatements.h"
#include "shared/core/serverconnection.h"
#include "shared/core/sqliteschema.h"
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
/// The write-ahead log begins again at about 4 MiB, unless a reader holds it or a row is large.
constexpr qint64 ordinaryLogBytes = 8 * 1024 * 1024;
/// A statement on a busy server may wait for a lock; a server that is gone must not hold a thread.
constexpr auto serverTimeout = std::chrono::seconds(30);

Log4Qt::Logger *logger()
{
    return Log4Qt::LogManager::logger(u"database"_s);
}

/// One name for each thread that ever asked: a system thread id comes back for a later thread.
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
    if (QSqlDatabase::contains(name))
        QSqlDatabase::removeDatabase(name);
}

QSqlDatabase ConnectionFactory::getConnection()
{
    const QString name = connectionNameOfThread();
    if (QSqlDatabase::contains(name)) {
        const QSqlDatabase database = QSqlDatabase::database(name, false);
        // A row that is written into a deleted file is lost, so this is looked at in any case.
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
    // What a reader needs, or a till adds all the time, is left to a later pass. Cutting the file
    // holds up a writer for as long as the file system takes, which was 0.2 s for 124 MiB.
    if (!copyWriteAheadLog(query))
        return;
    // Our own writers come one after the other. In SQLite's busy handler they would sleep.
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
    if (!database.open())
        throwDatabaseError(what, database.lastError());

    QSqlQuery query(database);
    std::optional<SchemaTables> tables;
    files.open(database.connectionName(), path, [&] {
        // Attached under the schema's name, the file answers to `message` and to `queues.message`
        // alike.
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
            // With the till's own tables in it the file is of use without ours.
            if (tables->isEmpty)
                throw;
            logger()->error(exception.tr().ru());
        }
    }

    // A row that was written survives a power cut.
    if (!query.exec(u"PRAGMA queues.journal_mode=WAL"_s) || !query.next()
        || query.value(0).toString() != u"wal")
        logger()->warn(
            u"База данных '%1' не переводится в режим WAL, проверьте права на файл и каталог"_s,
            path);
    query.finish();
    executeStatement(database, u"PRAGMA queues.synchronous=FULL"_s, what);
    // A log that has grown and begins again is cut by the next commit.
    executeStatement(database, u"PRAGMA queues.journal_size_limit=%1"_s.arg(ordinaryLogBytes),
                     what);
    // Texts compare by their bytes, as on the server.
    executeStatement(database, u"PRAGMA case_sensitive_like=ON"_s, what);

    // A new file has its log only now.
    files.note(database.connectionName(), path);
}
