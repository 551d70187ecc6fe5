#include "tools/queuectl/fileaccess.h"

#include <QFile>

#include <cerrno>
#include <unistd.h>

namespace queuectl {

FileAccess fileAccess(const QString &path)
{
    if (::access(QFile::encodeName(path).constData(), R_OK) == 0)
        return FileAccess::Readable;
    return errno == ENOENT || errno == ENOTDIR ? FileAccess::Missing : FileAccess::Denied;
}

QString ownerOf(const QFileInfo &file)
{
    const QString name = file.owner();
    return name.isEmpty() ? QString::number(file.ownerId()) : name;
}

} // namespace queuectl
