#pragma once

#include <QFileInfo>
#include <QString>

namespace faults {

/// Temporary folders lie in memory from here on where the system has such a place. For tests that
/// write many thousand rows and whose faults have nothing to do with the disk, which would be
/// waited for at each.
inline void useMemoryForTemporaryFolders()
{
    if (QFileInfo(QStringLiteral("/dev/shm")).isWritable())
        qputenv("TMPDIR", "/dev/shm");
}

} // namespace faults
