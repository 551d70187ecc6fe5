#pragma once

#include <QByteArray>

#include <chrono>

namespace rig {

/// What a running process takes of the machine, as the kernel tells it at each call. Throws Error
/// once the process is gone. Thread: any.
class ProcessUse
{
public:
    explicit ProcessUse(qint64 processId);

    /// Resident memory in KiB, now and at its highest since the start.
    qint64 memory() const;
    qint64 peakMemory() const;
    int threads() const;
    int descriptors() const;
    /// Those of the descriptors that are sockets.
    int sockets() const;
    /// Bytes of files that it has written and that had to go to a disk, since the start.
    qint64 writtenBytes() const;
    /// Of all threads, since the start.
    std::chrono::nanoseconds processorTime() const;

private:
    qint64 statusField(const QByteArray &name) const;

    qint64 processId;
};

} // namespace rig
