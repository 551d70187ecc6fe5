#pragma once

#include <functional>

/// Which of the processors that this program was given.
enum class Processors
{
    All,
    AllButLast,
    Last
};

/// Keeps the thread that calls it on these. Everything is found out beforehand, so it may be called
/// between fork and exec. Without effect where there is only one processor.
std::function<void()> keepingOn(Processors chosen);

/// Leaves the last processor to programs that ask for it; while it lives, this process runs on the
/// others. Left to the scheduler, a program and the receiver that it wakes run on one processor or
/// on two, and a message takes up to a fifth more or less for it. On a machine with one processor
/// it does nothing.
/// Thread: any; one object at a time.
class ProcessorLeft
{
public:
    ProcessorLeft();
    ~ProcessorLeft();
    ProcessorLeft(const ProcessorLeft &) = delete;
    ProcessorLeft &operator=(const ProcessorLeft &) = delete;
};
