#include "shared/core/sqlitefiles.h"

#include "shared/core/basicexception.h"
#include "shared/core/sqlitefilelock.h"

#include <log4qt/logmanager.h>

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// The target of a symbolic link, whether it exists or not.
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

} // namespace

/// Keeps the inode number of a deleted file from being reused.
class FilePin
{
public:
    explicit FilePin(const QString &path)
        // An O_PATH descriptor cannot read, and closing it releases no lock of this process.
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

SqliteFiles::SqliteFiles() = default;

SqliteFiles::~SqliteFiles() = default;

SqliteFiles::FileIdentity SqliteFiles::of(const QString &name) const
{
    return identities.lock()->value(name);
}

bool SqliteFiles::isCurrent(const QString &name) const
{
    const FileIdentity file = of(name);
    if (file.path.isEmpty())
        return true;
    struct stat status = {};
    return ::stat(QFile::encodeName(file.path).constData(), &status) == 0
           && status.st_dev == file.device && status.st_ino == file.inode;
}

void SqliteFiles::open(const QString &name, const QString &path,
                       const std::function<void()> &attach)
{
    const QMutexLocker opener(&opening);
    const QString reason = renameFormerLog(path);
    if (!reason.isEmpty())
        throw BasicException(reason);
    attach();
    note(name, path);
    reported = {};
}

void SqliteFiles::close(const QString &name)
{
    const QMutexLocker opener(&opening);
    const QString path = of(name).path;
    // Before the connection ends: the next process cannot know which companions belong to the
    // former file.
    if (!path.isEmpty())
        renameFormerLog(path);
    identities.lock()->remove(name);
}

bool SqliteFiles::isSameFile(const FileIdentity &one, const FileIdentity &other)
{
    return one.device == other.device && one.inode == other.inode;
}

void SqliteFiles::note(const QString &name, const QString &path)
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
    const auto known = identities.lock();
    const FileIdentity noted = known->value(name);
    // If it was replaced since the opening, the path names another file now.
    if (noted.inode == 0 || isSameFile(noted, identity))
        known->insert(name, identity);
}

/// Renames the former file's write-ahead log, which may contain rows. SQLite finds logs by name,
/// would apply it to the new file and damage that. Returns why the new file must not be opened;
/// empty if it may be.
QString SqliteFiles::renameFormerLog(const QString &path)
{
    struct stat status = {};
    FileIdentity current{path, realPathOf(path), 0, 0, {}};
    if (::stat(QFile::encodeName(path).constData(), &status) == 0) {
        current.device = status.st_dev;
        current.inode = status.st_ino;
    }
    bool isReplaced = false;
    {
        const auto known = identities.lock();
        for (const FileIdentity &file : std::as_const(*known)) {
            if (file.path != path)
                continue;
            // This connection was opened after the replacement, so the companions belong to its
            // file.
            if (isSameFile(file, current))
                return QString();
            isReplaced = true;
        }
    }
    const QStringList left = formerCompanions(current);
    if (!left.isEmpty())
        return renameCompanions(current, left);
    if (isReplaced)
        report(
            current,
            u"Файл базы данных '%1' удалён или заменён во время работы службы, перезапустите программы кассы, у которых он открыт"_s
                .arg(path));
    return QString();
}

/// The files beside `current` that belong to a former file.
QStringList SqliteFiles::formerCompanions(const FileIdentity &current)
{
    QStringList left;
    const QStringList endings = SqliteFileLock::companions();
    for (qsizetype i = 0; i < endings.size(); ++i) {
        const QString companion = current.realPath + endings[i];
        struct stat status = {};
        const bool isThere = ::stat(QFile::encodeName(companion).constData(), &status) == 0;
        const std::shared_ptr<FilePin> pin = pinnedCompanions.value(companion);
        bool isLeft = false;
        if (isThere && pin) {
            isLeft = pin->isAt(companion);
        } else if (isThere) {
            // The connection has it open, so its inode number cannot have been reused.
            const auto known = identities.lock();
            isLeft = std::ranges::any_of(std::as_const(*known), [&](const FileIdentity &file) {
                return file.realPath == current.realPath && file.device == status.st_dev
                       && file.companions.at(i) == status.st_ino;
            });
        }
        if (isLeft)
            left.append(companion);
        else
            pinnedCompanions.remove(companion);
    }
    return left;
}

QString SqliteFiles::renameCompanions(const FileIdentity &current, const QStringList &left)
{
    const QString path = current.realPath;
    QString reason;
    std::unique_ptr<SqliteFileLock> lock;
    if (current.inode != 0) {
        // A program that has opened the new file already uses the former log.
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
            pinnedCompanions.remove(companion);
        report(
            current,
            u"Файл базы данных '%1' удалён или заменён во время работы службы, его журнал сохранён как '%2', перезапустите программы кассы, у которых он открыт"_s
                .arg(path, keptName + left.first().mid(path.size())));
        return QString();
    }
    // Keeps their inodes until the next attempt, when all connections may be closed.
    for (const QString &companion : left) {
        if (!pinnedCompanions.contains(companion))
            pinnedCompanions.insert(companion, std::make_shared<FilePin>(companion));
    }
    const QString text =
        u"Файл базы данных '%1' заменён во время работы службы, рядом остался журнал '%2' прежнего файла (%3), вместе они повредят базу данных: остановите службу и программы кассы и восстановите файл командой queuectl restore"_s
            .arg(path, left.first(), reason);
    report(current, text);
    return text;
}

/// Logs once per replacement file.
void SqliteFiles::report(const FileIdentity &current, const QString &text)
{
    if (reported.path == current.path && isSameFile(reported, current))
        return;
    reported = current;
    Log4Qt::LogManager::logger(u"database"_s)->error(text);
}
