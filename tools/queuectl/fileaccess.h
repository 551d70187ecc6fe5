#pragma once

#include <QFileInfo>
#include <QString>

namespace queuectl {

/// What this account can do with a file of the till.
enum class FileAccess
{
    Readable,
    /// There is no such file.
    Missing,
    /// It cannot be read, or a folder above it is closed, so that its existence is unknown.
    Denied
};

FileAccess fileAccess(const QString &path);

/// The account that the file belongs to; one that the system does not know by name, by its number.
QString ownerOf(const QFileInfo &file);

} // namespace queuectl
