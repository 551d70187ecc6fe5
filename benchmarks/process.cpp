#include "benchmarks/process.h"

#include <chrono>

using namespace Qt::StringLiterals;

Process::Process(std::unique_ptr<rig::ChildProcess> newProcess, Processors processors)
    : process(std::move(newProcess))
{
    process->setChildSetup(keepingOn(processors));
    process->start();
}

Process::~Process()
{
    end();
}

double Process::processorMicroseconds() const
{
    return std::chrono::duration<double, std::micro>(process->use().processorTime()).count();
}

double Process::residentMb() const
{
    return static_cast<double>(process->use().memory()) / 1024;
}

double Process::peakMb() const
{
    return static_cast<double>(process->use().peakMemory()) / 1024;
}

double Process::writtenBytes() const
{
    return static_cast<double>(process->use().writtenBytes());
}

bool Process::end()
{
    if (process->isRunning() && !process->stop())
        process->kill();
    return process->end() == u"exit 0"_s;
}
