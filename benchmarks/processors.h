#pragma once

#include <functional>

/// Processors of this program's affinity mask.
enum class Processors
{
    All,
    AllButLast,
    Last
};

/// Returns a function that pins the calling thread to these processors. It may be called between
/// fork and exec, because everything is computed beforehand. On a single processor it does nothing.
std::function<void()> keepingOn(Processors chosen);

/// Reserves the last processor for measured programs: while it exists, this process runs on the
/// others. Otherwise scheduling changes the result by up to 20 %, depending on whether the program
/// and the receiver share a processor. On a single processor it does nothing.
/// Thread: any; one object at a time.
class ProcessorLeft
{
public:
    ProcessorLeft();
    ~ProcessorLeft();
    ProcessorLeft(const ProcessorLeft &) = delete;
    ProcessorLeft &operator=(const ProcessorLeft &) = delete;
};
