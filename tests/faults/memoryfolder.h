#pragma once

#include <QFileInfo>
#include <QString>

namespace faults {

/// From here on, temporary folders are in memory if the system has such a place. For tests that
/// write many thousand rows and do not test the disk, whose syncs would slow them down.
inline void useMemoryForTemporaryFolders()
{
    if (QFileInfo(QStringLiteral("/dev/shm")).isWritable())
        qputenv("TMPDIR", "/dev/shm");
}

} // namespace faults
