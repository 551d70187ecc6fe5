#include "shared/core/folderlock.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QScopeGuard>

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// The till application's account, a member of the group, may read; other accounts could take the
/// lock.
constexpr mode_t fileMode = 0660;
/// holder() takes the lock for a moment, which must not cause a refusal.
constexpr int attempts = 10;
constexpr auto attemptInterval = std::chrono::milliseconds(20);
/// Constant size, so that a role is replaced in one write.
constexpr qsizetype contentSize = 128;

int openFile(const QByteArray &path, int flags)
{
    // Without O_NOFOLLOW a link would have another file locked and overwritten.
    return ::open(path.constData(), flags | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY,
                  fileMode);
}

bool isPlainFile(int file)
{
    struct stat status = {};
    return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

/// Gives a file that root has created to the owner of the folder; otherwise the service could not
/// open it. Root creates it, for instance, when a tool works while the service is stopped.
void chownToFolderOwner(int file, const QString &path)
{
    struct stat folder = {};
    if (::geteuid() == 0
        && ::stat(QFile::encodeName(QFileInfo(path).path()).constData(), &folder) == 0) {
        // A failure is acceptable: the file then belongs to root, as one made by hand.
        [[maybe_unused]] const int result = ::fchown(file, folder.st_uid, folder.st_gid);
    }
}

FolderLock::Holder contentOf(int file)
{
    QByteArray text(contentSize, '\0');
    text.truncate(
        std::max<ssize_t>(0, ::pread(file, text.data(), static_cast<size_t>(text.size()), 0)));
    const QJsonObject content = QJsonDocument::fromJson(text).object();
    return {content.value(u"pid"_s).toInteger(), content.value(u"role"_s).toString()};
}

} // namespace

FolderLock::FolderLock(const QString &path)
    : path(path)
{
}

FolderLock::~FolderLock()
{
    if (file >= 0)
        ::close(file);
}

FolderLock::Result FolderLock::take(const QString &role)
{
    for (int attempt = 0; attempt < attempts; ++attempt) {
        if (attempt > 0)
            std::this_thread::sleep_for(attemptInterval);
        const Result opened = open();
        if (opened != Result::Taken)
            return opened;
        if (::flock(file, LOCK_EX | LOCK_NB) == 0) {
            if (isFileInPlace()) {
                setRole(role);
                return Result::Taken;
            }
        } else if (errno != EWOULDBLOCK) {
            reason_ = qt_error_string(errno);
            ::close(std::exchange(file, -1));
            return Result::Unavailable;
        }
        ::close(std::exchange(file, -1));
    }
    return Result::Held;
}

void FolderLock::setRole(const QString &role)
{
    if (file < 0)
        return;
    const QJsonObject content{{u"pid"_s, qint64{::getpid()}}, {u"role"_s, role}};
    const QByteArray text =
        QJsonDocument(content).toJson(QJsonDocument::Compact).leftJustified(contentSize - 1) + '\n';
    // If the write fails, only a reader of the file misses the role; the lock still holds.
    [[maybe_unused]] const ssize_t written =
        ::pwrite(file, text.constData(), static_cast<size_t>(text.size()), 0);
}

std::optional<FolderLock::Holder> FolderLock::holder(const QString &path)
{
    const int file = openFile(QFile::encodeName(path), O_RDONLY);
    if (file < 0)
        return {};
    const auto closed = qScopeGuard([file] { ::close(file); });
    if (!isPlainFile(file) || ::flock(file, LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK)
        return {};
    return contentOf(file);
}

FolderLock::Result FolderLock::open()
{
    const QByteArray name = QFile::encodeName(path);
    file = openFile(name, O_RDWR | O_CREAT | O_EXCL);
    const bool isNew = file >= 0;
    if (!isNew)
        file = openFile(name, O_RDWR | O_CREAT);
    // flock() also works on a read-only file system.
    if (file < 0 && errno == EROFS)
        file = openFile(name, O_RDONLY);
    if (file < 0) {
        reason_ = qt_error_string(errno);
        struct stat status = {};
        return ::lstat(name.constData(), &status) == 0 ? Result::Refused : Result::Unavailable;
    }
    if (!isPlainFile(file)) {
        reason_ = qt_error_string(EINVAL);
        ::close(std::exchange(file, -1));
        return Result::Refused;
    }
    struct stat status = {};
    if (::fstat(file, &status) == 0 && status.st_uid == ::geteuid()
        && (status.st_mode & 07777) != fileMode)
        ::fchmod(file, fileMode);
    if (isNew)
        chownToFolderOwner(file, path);
    return Result::Taken;
}

/// False when the file was deleted or replaced between its opening and the lock.
bool FolderLock::isFileInPlace() const
{
    struct stat own = {};
    struct stat current = {};
    return ::fstat(file, &own) == 0 && ::lstat(QFile::encodeName(path).constData(), &current) == 0
           && own.st_dev == current.st_dev && own.st_ino == current.st_ino;
}
