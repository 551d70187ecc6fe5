#include "shared/core/sqlitefilelock.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// SQLite locks a byte range that begins here, in all its versions and on all systems.
constexpr off_t lockedBytes = 0x40000000;
/// PENDING, RESERVED and the range of SHARED locks.
constexpr off_t lockedSize = 2 + 510;

bool isFree(const QString &name)
{
    QStringList paths{name};
    for (const QString &ending : SqliteFileLock::companions())
        paths.append(name + ending);
    for (const QString &path : std::as_const(paths)) {
        const QFileInfo info(path);
        if (info.exists() || info.isSymLink())
            return false;
    }
    return true;
}

} // namespace

SqliteFileLock::SqliteFileLock(const QString &path)
    : file(::open(QFile::encodeName(path).constData(), O_RDWR | O_CLOEXEC))
{
    if (file < 0) {
        reason_ = qt_error_string(errno);
        return;
    }
    // An open file description lock conflicts with the locks of all processes, including this one.
    struct flock range = {};
    range.l_type = F_WRLCK;
    range.l_whence = SEEK_SET;
    range.l_start = lockedBytes;
    range.l_len = lockedSize;
    isTaken_ = ::fcntl(file, F_OFD_SETLK, &range) == 0;
    if (isTaken_)
        return;
    isInUse_ = errno == EAGAIN || errno == EACCES;
    reason_ = qt_error_string(errno);
}

SqliteFileLock::~SqliteFileLock()
{
    if (file >= 0)
        ::close(file);
}

QStringList SqliteFileLock::companions()
{
    return {u"-wal"_s, u"-shm"_s};
}

QString SqliteFileLock::keptName(const QString &path, const QString &fate)
{
    const QString name =
        u"%1.%2-%3"_s.arg(path, fate, QDateTime::currentDateTime().toString(u"yyyyMMdd-HHmmss"_s));
    QString result = name;
    for (int number = 2; !isFree(result); ++number)
        result = u"%1-%2"_s.arg(name, QString::number(number));
    return result;
}
