#include "tools/queuectl/outputfile.h"

#include "tools/queuectl/command.h"
#include "tools/queuectl/text.h"

#include <QFileInfo>

namespace queuectl {

bool isSpecialFile(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() && !info.isFile() && !info.isDir();
}

OutputFile::OutputFile(const QString &path, QFile::Permissions permissions)
    : path(path)
    , regular(path)
    , special(path)
    , file(isSpecialFile(path) ? static_cast<QFileDevice &>(special) : regular)
{
    if (!file.open(QIODevice::WriteOnly)
        || (&file == &regular && !file.setPermissions(permissions)))
        fail();
}

void OutputFile::write(const QByteArray &bytes)
{
    if (file.write(bytes) != bytes.size())
        fail();
}

void OutputFile::commit()
{
    // A commit does not report what does not fit on the disk at the end.
    if (!file.flush() || (&file == &regular && !regular.commit()))
        fail();
}

void OutputFile::fail() const
{
    throw Failure(
        Failed,
        text("%1 cannot be written: %2", "%1 не записывается: %2").arg(path, file.errorString()));
}

} // namespace queuectl
