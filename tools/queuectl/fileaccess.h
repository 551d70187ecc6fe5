#pragma once

#include <QString>

namespace queuectl {

/// What this account can do with a file of the till.
enum class FileAccess
{
    Readable,
    /// There is none.
    Missing,
    /// It may not be read, or nobody can tell whether it is there: a folder above it is closed.
    Denied
};

FileAccess fileAccess(const QString &path);

} // namespace queuectl
