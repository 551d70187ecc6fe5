#include "tools/queuectl/openfiles.h"

#include "tools/queuectl/text.h"

#include <QDir>
#include <QFile>

#include <cerrno>
#include <dirent.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

struct Identity
{
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const Identity &) const = default;
};

enum class Use
{
    None,
    Open,
    Unknown
};

Use useOf(const QByteArray &processFolder, const QList<Identity> &files)
{
    const QByteArray folder = processFolder + "/fd/";
    const std::unique_ptr<DIR, int (*)(DIR *)> descriptors(::opendir(folder.constData()),
                                                           ::closedir);
    if (!descriptors)
        return errno == EACCES || errno == EPERM ? Use::Unknown : Use::None;
    while (const dirent *entry = ::readdir(descriptors.get())) {
        struct stat status = {};
        if (::stat((folder + entry->d_name).constData(), &status) == 0
            && files.contains(Identity{status.st_dev, status.st_ino}))
            return Use::Open;
    }
    return Use::None;
}

QString nameOf(const QByteArray &processFolder)
{
    QFile file(QString::fromLatin1(processFolder) + u"/comm"_s);
    if (!file.open(QIODevice::ReadOnly))
        return u"?"_s;
    return QString::fromUtf8(file.readAll()).trimmed();
}

} // namespace

FileUsers usersOf(const QStringList &paths)
{
    QList<Identity> files;
    for (const QString &path : paths) {
        struct stat status = {};
        if (::stat(QFile::encodeName(path).constData(), &status) == 0)
            files.append({status.st_dev, status.st_ino});
    }
    FileUsers users;
    const QStringList entries = QDir(u"/proc"_s).entryList(QDir::Dirs);
    for (const QString &entry : entries) {
        bool isProcess = false;
        const qint64 id = entry.toLongLong(&isProcess);
        if (!isProcess || id == ::getpid())
            continue;
        const QByteArray folder = "/proc/" + entry.toLatin1();
        const Use use = useOf(folder, files);
        if (use == Use::Open)
            users.processes.append(u"%1 (%2)"_s.arg(nameOf(folder), entry));
        users.isComplete &= use != Use::Unknown;
    }
    return users;
}

QString FileUsers::toText() const
{
    if (!processes.isEmpty())
        return processes.join(u", "_s);
    return isComplete ? text("no other", "других нет")
                      : text("only root can see them (sudo)", "их видит только root (sudo)");
}

} // namespace queuectl
