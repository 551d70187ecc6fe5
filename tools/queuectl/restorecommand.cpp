#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "shared/core/sqlitefilelock.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/openfiles.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// The columns that the service reads.
const QStringList &neededColumns()
{
    static const QStringList columns = {u"messageid"_s,  u"type"_s,       u"body"_s,
                                        u"cardnumber"_s, u"statuscode"_s, u"creationtime"_s};
    return columns;
}

/// Files that SQLite may keep beside the database, in any journal mode.
QStringList endings()
{
    return SqliteFileLock::companions() + QStringList{u"-journal"_s};
}

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

[[noreturn]] void failWith(const QString &what)
{
    throw Failure(Failed, what + u' ' + text("Nothing was changed.", "Ничего не изменено."));
}

[[noreturn]] void failSystem(const QString &path, int error)
{
    failWith(text("%1 cannot be written: %2.", "%1 не записывается: %2.")
                 .arg(path, qt_error_string(error)));
}

/// A database file, opened alone, as the till opens it.
class Database
{
public:
    Database(const QString &path, const QString &options)
        : database(QSqlDatabase::addDatabase(u"QSQLITE"_s, u"restore"_s))
    {
        database.setDatabaseName(path);
        database.setConnectOptions(options);
        database.open();
    }
    ~Database()
    {
        database = QSqlDatabase();
        QSqlDatabase::removeDatabase(u"restore"_s);
    }
    Database(const Database &) = delete;

    /// The values of one column, or nothing when the statement fails; error() says why.
    std::optional<QStringList> column(const QString &statement, int column)
    {
        QSqlQuery query(database);
        if (!query.exec(statement)) {
            error_ =
                (database.isOpen() ? query.lastError() : database.lastError()).text().simplified();
            return std::nullopt;
        }
        QStringList values;
        while (query.next())
            values.append(query.value(column).toString());
        return values;
    }
    QString error() const { return error_; }

private:
    QSqlDatabase database;
    QString error_;
};

/// The backup that will replace the database: a copy beside it, deleted with this object unless it
/// was moved.
class Copy
{
public:
    explicit Copy(const QString &target)
        : path(SqliteFileLock::keptName(target, u"restoring"_s))
    {
    }
    ~Copy()
    {
        for (const QString &ending : endings() + QStringList{QString()})
            ::unlink(encoded(path + ending).constData());
    }
    Copy(const Copy &) = delete;

    void take(const QString &source);
    /// Moves the contents of its log into the file. Returns what is wrong, or an empty text.
    QString check();
    int rows() const { return rows_; }
    /// Sets owner and rights, and syncs it to the disk.
    void finish(const struct stat &rights);
    const QString path;

private:
    /// Returns the number of the new file.
    static ino_t copyFile(const QString &source, const QString &target);

    ino_t inode = 0;
    int rows_ = 0;
};

void Copy::take(const QString &source)
{
    inode = copyFile(source, path);
    // The last rows may be in a log beside the file.
    for (const QString &ending : {u"-wal"_s, u"-journal"_s}) {
        if (QFileInfo(source + ending).size() > 0)
            copyFile(source + ending, path + ending);
    }
}

ino_t Copy::copyFile(const QString &source, const QString &target)
{
    QFile from(source);
    if (!from.open(QIODevice::ReadOnly))
        failWith(
            text("%1 cannot be read: %2.", "%1 не читается: %2.").arg(source, from.errorString()));
    // Others may write into the folder, so a link there is not followed.
    QFile to;
    const int file =
        ::open(encoded(target).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0)
        failSystem(target, errno);
    if (!to.open(file, QIODevice::WriteOnly | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle))
        failSystem(target, errno);
    struct stat status = {};
    if (::fstat(file, &status) != 0)
        failSystem(target, errno);
    while (!from.atEnd()) {
        const QByteArray block = from.read(1024 * 1024);
        if (block.isEmpty() || to.write(block) != block.size()) {
            const QString reason = block.isEmpty() ? from.errorString() : to.errorString();
            failWith(text("%1 cannot be copied: %2.", "%1 не копируется: %2.").arg(source, reason));
        }
    }
    return status.st_ino;
}

QString Copy::check()
{
    {
        Database database(path, {});
        const auto integrity = database.column(u"PRAGMA integrity_check(1)"_s, 0);
        if (!integrity)
            return text("it is not a readable SQLite file: %1", "это не читаемый файл SQLite: %1")
                .arg(database.error());
        if (*integrity != QStringList{u"ok"_s})
            return text("it is damaged: %1", "он повреждён: %1")
                .arg(integrity->join(u' ').simplified());
        const QStringList columns =
            database.column(u"PRAGMA table_info(message)"_s, 1).value_or(QStringList());
        if (columns.isEmpty())
            return text("it has no table message", "в нём нет таблицы message");
        for (const QString &column : neededColumns()) {
            if (!columns.contains(column, Qt::CaseInsensitive))
                return text("its table message has no column %1",
                            "в его таблице message нет столбца %1")
                    .arg(column);
        }
        const auto count = database.column(u"SELECT COUNT(*) FROM message"_s, 0);
        if (!count)
            return database.error();
        rows_ = count->value(0).toInt();
        database.column(u"PRAGMA wal_checkpoint(TRUNCATE)"_s, 0);
    }
    for (const QString &ending : endings()) {
        if (QFileInfo(path + ending).size() > 0)
            return text("the contents of %1 cannot be moved into it",
                        "содержимое %1 в него не переносится")
                .arg(ending);
        ::unlink(encoded(path + ending).constData());
    }
    return {};
}

void Copy::finish(const struct stat &rights)
{
    const int file = ::open(encoded(path).constData(), O_RDWR | O_NOFOLLOW | O_CLOEXEC);
    if (file < 0)
        failSystem(path, errno);
    const auto closed = qScopeGuard([file] { ::close(file); });
    struct stat own = {};
    if (::fstat(file, &own) != 0 || own.st_ino != inode)
        failWith(text("Another program has put a file in place of %1.",
                      "Другая программа подменила файл %1.")
                     .arg(path));
    const bool isOwned = (own.st_uid == rights.st_uid && own.st_gid == rights.st_gid)
                         || ::fchown(file, rights.st_uid, rights.st_gid) == 0;
    if (!isOwned)
        failWith(
            text(
                "%1 cannot be given to the owner of the database (%2); run the command as root or as that "
                "account.",
                "%1 нельзя передать владельцу базы данных (%2); запустите от имени root или этой "
                "учётной записи.")
                .arg(path, qt_error_string(errno)));
    if (::fchmod(file, rights.st_mode & 07777) != 0 || ::fsync(file) != 0)
        failSystem(path, errno);
}

/// Renames and links that are undone unless all of them succeed.
class Moves
{
public:
    ~Moves()
    {
        for (auto move = done.crbegin(); move != done.crend(); ++move) {
            if (move->isLink)
                ::unlink(encoded(move->to).constData());
            else
                ::rename(encoded(move->to).constData(), encoded(move->from).constData());
        }
    }
    void rename(const QString &from, const QString &to)
    {
        if (::rename(encoded(from).constData(), encoded(to).constData()) != 0)
            failSystem(to, errno);
        done.append({from, to, false});
    }
    void link(const QString &from, const QString &to)
    {
        if (::link(encoded(from).constData(), encoded(to).constData()) != 0)
            failSystem(to, errno);
        done.append({from, to, true});
    }
    void keep() { done.clear(); }

private:
    struct Move
    {
        QString from;
        QString to;
        bool isLink = false;
    };
    QList<Move> done;
};

void flushFolder(const QString &path)
{
    const int folder = ::open(encoded(QFileInfo(path).path()).constData(), O_RDONLY | O_CLOEXEC);
    if (folder < 0)
        return;
    ::fsync(folder);
    ::close(folder);
}

/// The service must neither run nor start meanwhile.
std::unique_ptr<FolderLock> requireStopped()
{
    if (controlPortState() == PortState::Service)
        failWith(text("The service is running; stop it first: systemctl stop queue.",
                      "Служба работает; сначала остановите её: systemctl stop queue."));
    auto lock = std::make_unique<FolderLock>(serviceLockFile());
    switch (lock->take(u"restore"_s)) {
    case FolderLock::Result::Held: {
        const auto holder = FolderLock::holder(serviceLockFile());
        failWith(
            text(
                "Process %1 works on the folder %2; stop the service first: systemctl stop queue.",
                "С каталогом %2 работает процесс %1; сначала остановите службу: systemctl stop queue.")
                .arg(holder ? QString::number(holder->processId) : u"?"_s,
                     QFileInfo(serviceLockFile()).path()));
    }
    case FolderLock::Result::Refused:
        failWith(text("%1 cannot be opened (%2), so it is unknown whether the service runs.",
                      "%1 не открывается (%2), и неизвестно, работает ли служба.")
                     .arg(serviceLockFile(), lock->reason()));
    case FolderLock::Result::Unavailable:
        // The service does the same where a file system has no locks.
    case FolderLock::Result::Taken:
        break;
    }
    return lock;
}

/// A program that has the database open would go on writing into the former file.
void requireUnused(const QString &path)
{
    const FileUsers users = usersOf({path});
    if (!users.processes.isEmpty())
        failWith(text("The database is open in %1; stop the till's programs first.",
                      "База данных открыта: %1; сначала остановите программы кассы.")
                     .arg(users.toText()));
}

std::unique_ptr<SqliteFileLock> requireLock(const QString &path)
{
    auto lock = std::make_unique<SqliteFileLock>(path);
    if (lock->isTaken())
        return lock;
    if (lock->isInUse())
        failWith(
            text("A program has the database %1 open; stop the till's programs first.",
                 "База данных %1 открыта какой-то программой; сначала остановите программы кассы.")
                .arg(path));
    failWith(
        text("%1 cannot be written: %2.", "%1 не записывается: %2.").arg(path, lock->reason()));
}

QString countText(const std::optional<int> &rows)
{
    return rows ? text("rows: %1", "строк: %1").arg(*rows) : text("unreadable", "не читается");
}

} // namespace

Report restoreDatabase(const Call &call)
{
    if (databaseFile().isEmpty())
        failWith(text(
            "The settings name a database server; a backup of it goes back by its own tools, as "
            "in mariadb queues < queues.sql.",
            "В настройках указан сервер баз данных; его копия восстанавливается его средствами, "
            "например mariadb queues < queues.sql."));
    // The files beside the database are beside the file itself, not beside a link to it.
    const QString real = QFileInfo(databaseFile()).canonicalFilePath();
    const QString path = real.isEmpty() ? databaseFile() : real;
    const QString source = call.arguments.first();
    struct stat backup = {};
    if (::stat(encoded(source).constData(), &backup) != 0 || !S_ISREG(backup.st_mode))
        throw Failure(NotFound, text("There is no file %1", "Файла %1 нет").arg(source));
    struct stat former = {};
    const bool hasFormer = ::stat(encoded(path).constData(), &former) == 0;
    if (hasFormer && former.st_dev == backup.st_dev && former.st_ino == backup.st_ino)
        failWith(text("%1 is the database itself.", "%1 — это и есть база данных.").arg(source));

    const auto service = requireStopped();
    struct stat rights = former;
    if (hasFormer) {
        requireUnused(path);
        requireLock(path);
    } else {
        if (::stat(encoded(QFileInfo(path).path()).constData(), &rights) != 0)
            failSystem(path, errno);
        rights.st_mode = 0660;
    }

    Copy copy(path);
    copy.take(source);
    Report report;
    report.data = {{u"file"_s, path}, {u"source"_s, source}, {u"restored"_s, false}};
    const QString fault = copy.check();
    if (!fault.isEmpty()) {
        report.data.insert(u"fault"_s, fault);
        report.line(text("%1 is not restored: %2.", "%1 не восстановлен: %2.").arg(source, fault),
                    Tone::Bad);
        report.line(text("Nothing was changed.", "Ничего не изменено."));
        report.exitCode = Found;
        return report;
    }
    std::optional<int> formerRows;
    if (hasFormer) {
        // Reading it may need its log, which must not be moved into it: the log may belong to
        // another file.
        Database database(path, u"QSQLITE_OPEN_READONLY"_s);
        const auto count = database.column(u"SELECT COUNT(*) FROM message"_s, 0);
        if (count)
            formerRows = count->value(0).toInt();
    }
    if (!call.has(u"yes"_s))
        confirm(hasFormer ? text("Replace %1 (%2) by %3 (%4)?", "Заменить %1 (%2) на %3 (%4)?")
                                .arg(path, countText(formerRows), source, countText(copy.rows()))
                          : text("Put %1 (%2) into place as %3?", "Поместить %1 (%2) на место %3?")
                                .arg(source, countText(copy.rows()), path));

    copy.finish(rights);
    const QString kept = SqliteFileLock::keptName(path, u"before-restore"_s);
    QStringList keptFiles;
    {
        const std::unique_ptr<SqliteFileLock> lock = hasFormer ? requireLock(path) : nullptr;
        Moves moves;
        // The path always names a file: a service that found none would create an empty one.
        if (hasFormer) {
            moves.link(path, kept);
            keptFiles.append(kept);
        }
        for (const QString &ending : {u"-wal"_s, u"-journal"_s}) {
            if (QFileInfo(path + ending).size() == 0)
                continue;
            moves.rename(path + ending, kept + ending);
            keptFiles.append(kept + ending);
        }
        // These hold nothing that the other files lack.
        for (const QString &ending : endings())
            ::unlink(encoded(path + ending).constData());
        if (::rename(encoded(copy.path).constData(), encoded(path).constData()) != 0)
            failSystem(path, errno);
        moves.keep();
    }
    flushFolder(path);

    report.data.insert(u"restored"_s, true);
    report.data.insert(u"rows"_s, copy.rows());
    report.data.insert(u"formerRows"_s, formerRows ? QJsonValue(*formerRows) : QJsonValue());
    report.data.insert(u"kept"_s, QJsonArray::fromStringList(keptFiles));
    report.line(text("%1 is restored from %2, %3.", "%1 восстановлен из %2, %3.")
                    .arg(path, source, countText(copy.rows())),
                Tone::Good);
    for (const QString &file : std::as_const(keptFiles))
        report.line(text("Kept: %1", "Сохранён: %1").arg(file));
    report.line(
        text("What was delivered after the backup goes out once more: look at queuectl list, and "
             "drop it, before the service is started: systemctl start queue",
             "Доставленное после копирования уйдёт ещё раз: проверьте queuectl list и удалите "
             "лишнее до запуска службы: systemctl start queue"),
        Tone::Careful);
    return report;
}

} // namespace queuectl
