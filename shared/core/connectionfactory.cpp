#include "shared/core/connectionfactory.h"

#include "shared/core/basicexception.h"
#include "shared/core/databasesettings.h"
#include "shared/core/databasevalues.h"
#include "shared/core/sqlitefilelock.h"
#include "shared/core/writegate.h"

#include <log4qt/logmanager.h>

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

/// A static library's resources are linked in only where somebody asks for them.
static void initSchemaResource()
{
    Q_INIT_RESOURCE(sql);
}

namespace {

constexpr auto busyTimeout = std::chrono::milliseconds(5000);
/// The write-ahead log begins again at about 4 MiB, unless a reader holds it or a row is large.
constexpr qint64 ordinaryLogBytes = 8 * 1024 * 1024;
/// A statement on a busy server may wait for a lock; a server that is gone must not hold a thread.
constexpr auto serverTimeout = std::chrono::seconds(30);
/// Some servers end a session that is idle for less than the time between two polls.
constexpr auto longestIdle = std::chrono::seconds(24 * 60 * 60);

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

[[noreturn]] void fail(const QString &what, const QSqlError &error)
{
    throw BasicException(u"%1: %2"_s.arg(what, databaseErrorText(error)));
}

void execute(const QSqlDatabase &database, const QString &statement, const QString &what)
{
    QSqlQuery query(database);
    if (!query.exec(statement))
        fail(what, query.lastError());
}

struct SchemaStatement
{
    QString table;
    QString text;
};

/// The statements of the schema that is compiled in, without its comments.
QList<SchemaStatement> readSchema()
{
    initSchemaResource();
    QFile file(u":/sql/sqlite.sql"_s);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The schema %s is not compiled in", qPrintable(file.fileName()));
    QString script;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (const QString &line : lines) {
        if (!line.trimmed().startsWith(u"--"))
            script += line + u'\n';
    }
    static const QRegularExpression tableName(
        u"^CREATE (?:TABLE IF NOT EXISTS|INDEX IF NOT EXISTS \\w+ ON) (\\w+)"_s);
    QList<SchemaStatement> schema;
    const QStringList parts = script.split(u';');
    for (const QString &part : parts) {
        const QString text = part.trimmed();
        if (text.isEmpty())
            continue;
        const QRegularExpressionMatch match = tableName.match(text);
        if (!match.hasMatch())
            qFatal("The schema holds a statement of no table: %s", qPrintable(text));
        schema.append({match.captured(1), text});
    }
    return schema;
}

const QList<SchemaStatement> &schema()
{
    static const QList<SchemaStatement> statements = readSchema();
    return statements;
}

/// What the file has: nothing of ours, or which of our tables are missing.
struct Tables
{
    bool isEmpty = true;
    QStringList missing;
};

/// Looks into `schemaName` of the query's connection. Nothing when that fails; the query has the
/// error.
std::optional<Tables> readTables(QSqlQuery &query, const QString &schemaName)
{
    // A view in place of a table is the till's affair as well.
    if (!query.exec(
            u"SELECT lower(name) FROM %1.sqlite_master WHERE type IN ('table', 'view')"_s.arg(
                schemaName)))
        return std::nullopt;
    QStringList present;
    while (query.next())
        present.append(query.value(0).toString());
    query.finish();

    Tables tables;
    tables.isEmpty = present.isEmpty();
    for (const SchemaStatement &statement : schema()) {
        if (!present.contains(statement.table) && !tables.missing.contains(statement.table))
            tables.missing.append(statement.table);
    }
    return tables;
}

/// Creates those of our tables that the file lacks, each with its indexes. Returns their names, or
/// nothing when it fails; the query has the error.
std::optional<QStringList> createMissingTables(QSqlQuery &query)
{
    // Other processes may do the same at this moment, and the till may make a table of its own.
    if (!query.exec(u"BEGIN IMMEDIATE"_s))
        return std::nullopt;
    const auto tables = readTables(query, u"main"_s);
    if (!tables)
        return std::nullopt;
    for (const SchemaStatement &statement : schema()) {
        if (tables->missing.contains(statement.table) && !query.exec(statement.text))
            return std::nullopt;
    }
    if (!query.exec(u"COMMIT"_s))
        return std::nullopt;
    return tables->missing;
}

/// Works on a connection that has the file as its main database, so that the schema's statements
/// are the ones an installer runs by hand. `isNew`: the file has no tables at all.
/// Throws BasicException.
void createTables(const QString &path, bool isNew)
{
    const QString name = connectionNameOfThread() + u"-schema"_s;
    QSqlError error;
    std::optional<QStringList> created;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
        database.setDatabaseName(path);
        database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=%1"_s.arg(busyTimeout.count()));
        if (!database.open()) {
            error = database.lastError();
        } else {
            QSqlQuery query(database);
            // Only while nobody else has the file open can its mode be changed for sure.
            if (!isNew || query.exec(u"PRAGMA journal_mode=WAL"_s)) {
                query.finish();
                created = createMissingTables(query);
            }
            error = query.lastError();
        }
    }
    QSqlDatabase::removeDatabase(name);
    if (!created)
        fail(u"Не удалось создать таблицы в базе данных '%1'"_s.arg(path), error);
    if (!created->isEmpty())
        logger()->info(
            u"В базе данных '%1' созданы таблицы %2"_s.arg(path, created->join(u", "_s)));
}

/// Brings the write-ahead log into the file and to the disk while the till goes on reading and
/// writing. Emptying a log that holds something still would keep the till from writing for all
/// that time. False when something is left.
bool copyLog(QSqlQuery &query)
{
    constexpr int maxRounds = 5;
    QVariant framesBefore;
    for (int round = 0; round < maxRounds; ++round) {
        if (!query.exec(u"PRAGMA queues.wal_checkpoint(PASSIVE)"_s) || !query.next())
            return false;
        const QVariant frames = query.value(1);
        const bool isCopied = query.value(2) == frames;
        query.finish();
        if (!isCopied)
            return false;
        // Nothing came in during the round before, so that one has also flushed the file.
        if (frames == framesBefore)
            return true;
        framesBefore = frames;
    }
    return false;
}

/// The file that a link leads to, whether it is there or not.
QString realPathOf(const QString &path)
{
    const QFileInfo info(path);
    const QString existing = info.canonicalFilePath();
    if (!existing.isEmpty())
        return existing;
    const QFileInfo target(info.isSymLink() ? info.symLinkTarget() : path);
    const QString folder = QFileInfo(target.path()).canonicalFilePath();
    return folder.isEmpty() ? path : folder + u'/' + target.fileName();
}

bool isServerDriver(const QString &driver)
{
    return driver == u"QMYSQL" || driver == u"QMARIADB";
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

/// Keeps a file's number from being given to another one after the file has been deleted.
class FilePin
{
public:
    explicit FilePin(const QString &path)
        // Such a descriptor reads nothing, and its end drops no lock of this process.
        : file(::open(QFile::encodeName(path).constData(), O_PATH | O_CLOEXEC))
    {
    }
    ~FilePin()
    {
        if (file >= 0)
            ::close(file);
    }
    FilePin(const FilePin &) = delete;
    FilePin &operator=(const FilePin &) = delete;

    bool isAt(const QString &path) const
    {
        struct stat own = {};
        struct stat there = {};
        return ::fstat(file, &own) == 0 && ::stat(QFile::encodeName(path).constData(), &there) == 0
               && own.st_dev == there.st_dev && own.st_ino == there.st_ino;
    }

private:
    const int file;
};

ConnectionFactory::~ConnectionFactory() = default;

void ConnectionFactory::removeConnection(const QString &name)
{
    {
        const QMutexLocker opener(&opening);
        const QString path = files.lock()->value(name).path;
        // Already now: a service that ends leaves the new file to the next one, which cannot know
        // what is left of the former.
        if (!path.isEmpty())
            putFormerLogAside(path);
        files.lock()->remove(name);
    }
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

bool ConnectionFactory::isSameFile(const FileIdentity &one, const FileIdentity &other)
{
    return one.device == other.device && one.inode == other.inode;
}

bool ConnectionFactory::isConnectionCurrent(const QString &name)
{
    const FileIdentity file = files.lock()->value(name);
    if (file.path.isEmpty())
        return true;
    struct stat status = {};
    return ::stat(QFile::encodeName(file.path).constData(), &status) == 0
           && status.st_dev == file.device && status.st_ino == file.inode;
}

void ConnectionFactory::shrinkLog(const QString &name)
{
    const FileIdentity file = files.lock()->value(name);
    struct stat status = {};
    if (file.path.isEmpty()
        || ::stat(QFile::encodeName(file.realPath + u"-wal"_s).constData(), &status) != 0
        || status.st_size <= ordinaryLogBytes || !isConnectionCurrent(name))
        return;
    QSqlQuery query(QSqlDatabase::database(name, false));
    // What a reader needs, or a till adds all the time, is left to a later pass. Cutting the file
    // holds up a writer for as long as the file system takes, which was 0.2 s for 124 MiB.
    if (!copyLog(query))
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
    const FileIdentity file = files.lock()->value(database.connectionName());
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
        fail(what, database.lastError());

    QSqlQuery query(database);
    std::optional<Tables> tables;
    {
        const QMutexLocker opener(&opening);
        const QString reason = putFormerLogAside(path);
        if (!reason.isEmpty())
            throw BasicException(reason);
        // Attached under the schema's name, the file answers to `message` and to `queues.message`
        // alike.
        query.prepare(u"ATTACH DATABASE ? AS queues"_s);
        query.addBindValue(path);
        if (!query.exec())
            fail(what, query.lastError());
        query.finish();
        tables = readTables(query, u"queues"_s);
        if (!tables)
            fail(what, query.lastError());
        noteFile(database.connectionName(), path);
        reported = {};
    }
    if (!tables->missing.isEmpty() && createsTables) {
        try {
            createTables(path, tables->isEmpty);
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
    execute(database, u"PRAGMA queues.synchronous=FULL"_s, what);
    // A log that has grown and begins again is cut by the next commit.
    execute(database, u"PRAGMA queues.journal_size_limit=%1"_s.arg(ordinaryLogBytes), what);
    // Texts compare by their bytes, as on the server.
    execute(database, u"PRAGMA case_sensitive_like=ON"_s, what);

    // A new file has its log only now.
    noteFile(database.connectionName(), path);
}

void ConnectionFactory::noteFile(const QString &name, const QString &path)
{
    struct stat status = {};
    if (::stat(QFile::encodeName(path).constData(), &status) != 0)
        return;
    FileIdentity identity{path, realPathOf(path), status.st_dev, status.st_ino, {}};
    const QStringList endings = SqliteFileLock::companions();
    for (qsizetype i = 0; i < endings.size(); ++i) {
        if (::stat(QFile::encodeName(identity.realPath + endings[i]).constData(), &status) == 0)
            identity.companions.at(i) = status.st_ino;
    }
    const auto known = files.lock();
    const FileIdentity noted = known->value(name);
    // Replaced since it was opened: what is there now belongs to another file.
    if (noted.inode == 0 || isSameFile(noted, identity))
        known->insert(name, identity);
}

/// SQLite finds a write-ahead log by its name. It would apply what is left of the former file to
/// the new one, and damage it. Rows may be in it, so it is kept under another name. Returns why
/// the file in place must not be opened; an empty text when it may be.
QString ConnectionFactory::putFormerLogAside(const QString &path)
{
    struct stat status = {};
    FileIdentity current{path, realPathOf(path), 0, 0, {}};
    if (::stat(QFile::encodeName(path).constData(), &status) == 0) {
        current.device = status.st_dev;
        current.inode = status.st_ino;
    }
    bool isReplaced = false;
    {
        const auto known = files.lock();
        for (const FileIdentity &file : std::as_const(*known)) {
            if (file.path != path)
                continue;
            // This one was opened after the replacement, and what is beside it is its own.
            if (isSameFile(file, current))
                return QString();
            isReplaced = true;
        }
    }
    const QStringList left = companionsLeft(current);
    if (!left.isEmpty())
        return moveAside(current, left);
    if (isReplaced)
        report(
            current,
            u"Файл базы данных '%1' удалён или заменён во время работы службы, перезапустите программы кассы, у которых он открыт"_s
                .arg(path));
    return QString();
}

/// The files beside `current` that belong to a file which was there before.
QStringList ConnectionFactory::companionsLeft(const FileIdentity &current)
{
    QStringList left;
    const QStringList endings = SqliteFileLock::companions();
    for (qsizetype i = 0; i < endings.size(); ++i) {
        const QString companion = current.realPath + endings[i];
        struct stat status = {};
        const bool isThere = ::stat(QFile::encodeName(companion).constData(), &status) == 0;
        const std::shared_ptr<FilePin> pin = unmoved.value(companion);
        bool isLeft = false;
        if (isThere && pin) {
            isLeft = pin->isAt(companion);
        } else if (isThere) {
            // A connection has it open, so its number cannot have been given to another file.
            const auto known = files.lock();
            isLeft = std::ranges::any_of(std::as_const(*known), [&](const FileIdentity &file) {
                return file.realPath == current.realPath && file.device == status.st_dev
                       && file.companions.at(i) == status.st_ino;
            });
        }
        if (isLeft)
            left.append(companion);
        else
            unmoved.remove(companion);
    }
    return left;
}

QString ConnectionFactory::moveAside(const FileIdentity &current, const QStringList &left)
{
    const QString path = current.realPath;
    QString reason;
    std::unique_ptr<SqliteFileLock> lock;
    if (current.inode != 0) {
        // Somebody who has opened the new file already has begun to use the log of the former.
        lock = std::make_unique<SqliteFileLock>(path);
        if (!lock->isTaken())
            reason = lock->isInUse() ? u"файл уже открыт другой программой"_s : lock->reason();
    }
    const QString keptName = SqliteFileLock::keptName(path, u"replaced"_s);
    for (const QString &companion : left) {
        const QString kept = keptName + companion.mid(path.size());
        if (reason.isEmpty()
            && ::rename(QFile::encodeName(companion).constData(),
                        QFile::encodeName(kept).constData())
                   != 0)
            reason = qt_error_string(errno);
    }
    if (reason.isEmpty()) {
        for (const QString &companion : left)
            unmoved.remove(companion);
        report(
            current,
            u"Файл базы данных '%1' удалён или заменён во время работы службы, его журнал сохранён как '%2', перезапустите программы кассы, у которых он открыт"_s
                .arg(path, keptName + left.first().mid(path.size())));
        return QString();
    }
    // Its connections may be closed before the next attempt.
    for (const QString &companion : left) {
        if (!unmoved.contains(companion))
            unmoved.insert(companion, std::make_shared<FilePin>(companion));
    }
    const QString text =
        u"Файл базы данных '%1' заменён во время работы службы, рядом остался журнал '%2' прежнего файла (%3), вместе они повредят базу данных: остановите службу и программы кассы и восстановите файл командой queuectl restore"_s
            .arg(path, left.first(), reason);
    report(current, text);
    return text;
}

/// Once for each file that is found in place of another.
void ConnectionFactory::report(const FileIdentity &current, const QString &text)
{
    if (reported.path == current.path && isSameFile(reported, current))
        return;
    reported = current;
    logger()->error(text);
}

void ConnectionFactory::openServer(QSqlDatabase &database, std::chrono::seconds timeout)
{
    const QString schema = settings::database::schemaName();
    const QString socket = settings::database::socket.value();
    const QString host = settings::database::host.value();

    database.setDatabaseName(schema);
    database.setHostName(host);
    const int port = settings::database::port.value();
    if (port > 0)
        database.setPort(port);
    database.setUserName(settings::database::user.value());
    database.setPassword(settings::database::password.value());
    QString options =
        u"MYSQL_OPT_CONNECT_TIMEOUT=%1;MYSQL_OPT_READ_TIMEOUT=%2;MYSQL_OPT_WRITE_TIMEOUT=%2"_s
            .arg(settings::database::connectTimeout.value().count())
            .arg(timeout.count());
    if (!socket.isEmpty())
        options += u";UNIX_SOCKET="_s + socket;
    database.setConnectOptions(options);

    const QString what = u"Не удалось подключиться к базе данных '%1' на сервере %2"_s.arg(
        schema, socket.isEmpty() ? host : socket);
    if (!database.open())
        fail(what, database.lastError());
    // Times are the till's own, whatever zone the driver has asked for.
    execute(database, u"SET SESSION time_zone = 'SYSTEM'"_s, what);
    // The probe selects a plain column beside COUNT.
    execute(database,
            u"SET SESSION sql_mode = REPLACE(@@SESSION.sql_mode, 'ONLY_FULL_GROUP_BY', '')"_s,
            what);
    execute(database, u"SET SESSION wait_timeout = %1"_s.arg(longestIdle.count()), what);
}
