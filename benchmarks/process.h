#pragma once

#include "benchmarks/processors.h"
#include "rig/childprocess.h"

#include <memory>

/// A measured program: the service or a bare loop. The destructor asks it to end.
class Process
{
public:
    /// Starts the program on these processors, independent of this process's own.
    explicit Process(std::unique_ptr<rig::ChildProcess> process,
                     Processors processors = Processors::All);
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    /// Processor time of all threads so far, in microseconds.
    double processorMicroseconds() const;
    double residentMb() const;
    /// The peak of the resident memory since the start.
    double peakMb() const;
    /// Bytes written to files on a disk.
    double writtenBytes() const;
    /// Sends SIGTERM. True if it ended with exit code 0 in time.
    bool end();
    bool isRunning() { return process->isRunning(); }

private:
    std::unique_ptr<rig::ChildProcess> process;
};
