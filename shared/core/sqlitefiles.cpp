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
    const QString reason = putFormerLogAside(path);
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
    // Already now: a service that ends leaves the new file to the next one, which cannot know
    // what is left of the former.
    if (!path.isEmpty())
        putFormerLogAside(path);
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
    // Replaced since it was opened: what is there now belongs to another file.
    if (noted.inode == 0 || isSameFile(noted, identity))
        known->insert(name, identity);
}

/// SQLite finds a write-ahead log by its name. It would apply what is left of the former file to
/// the new one, and damage it. Rows may be in it, so it is kept under another name. Returns why
/// the file in place must not be opened; an empty text when it may be.
QString SqliteFiles::putFormerLogAside(const QString &path)
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
QStringList SqliteFiles::companionsLeft(const FileIdentity &current)
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
            const auto known = identities.lock();
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

QString SqliteFiles::moveAside(const FileIdentity &current, const QStringList &left)
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
void SqliteFiles::report(const FileIdentity &current, const QString &text)
{
    if (reported.path == current.path && isSameFile(reported, current))
        return;
    reported = current;
    Log4Qt::LogManager::logger(u"database"_s)->error(text);
}
