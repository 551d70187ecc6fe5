#pragma once

#include <QByteArray>

#include <chrono>

namespace rig {

/// The resources that a running process uses, read from the kernel at each call. Throws Error once
/// the process has ended. Thread: any.
class ProcessUse
{
public:
    explicit ProcessUse(qint64 processId);

    /// Resident memory in KiB: current, and maximum since the start.
    qint64 memory() const;
    qint64 peakMemory() const;
    int threads() const;
    int descriptors() const;
    /// The descriptors that are sockets.
    int sockets() const;
    /// Bytes that it has caused to be written to a disk since the start.
    qint64 writtenBytes() const;
    /// Processor time of all threads since the start.
    std::chrono::nanoseconds processorTime() const;

private:
    qint64 statusField(const QByteArray &name) const;

    qint64 processId;
};

} // namespace rig
