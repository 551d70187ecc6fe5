#pragma once

#include "benchmarks/processors.h"
#include "rig/childprocess.h"

#include <memory>

/// A program under measurement: the service, or a bare loop. Asked to end by the destructor.
class Process
{
public:
    /// Starts it on the chosen processors, whatever this process keeps to just now.
    explicit Process(std::unique_ptr<rig::ChildProcess> process,
                     Processors processors = Processors::All);
    ~Process();
    Process(const Process &) = delete;
    Process &operator=(const Process &) = delete;

    /// Processor time so far, all threads, in microseconds.
    double processorMicroseconds() const;
    double residentMb() const;
    /// What it has written to files on a disk.
    double writtenBytes() const;
    /// True when it ended with 0 in time, after SIGTERM.
    bool end();
    bool isRunning() { return process->isRunning(); }

private:
    std::unique_ptr<rig::ChildProcess> process;
};
