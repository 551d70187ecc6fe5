#include "benchmarks/processors.h"

#include <QDir>
#include <QStringList>

#include <sched.h>

using namespace Qt::StringLiterals;

namespace {

/// The processors of this process's affinity mask at its start.
const cpu_set_t &usableProcessors()
{
    static const cpu_set_t usable = [] {
        cpu_set_t set;
        CPU_ZERO(&set);
        sched_getaffinity(0, sizeof set, &set);
        return set;
    }();
    return usable;
}

cpu_set_t setOf(Processors chosen)
{
    cpu_set_t set = usableProcessors();
    if (CPU_COUNT(&set) < 2)
        return set;
    size_t last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &set))
        --last;
    if (chosen != Processors::All)
        CPU_CLR(last, &set);
    if (chosen == Processors::Last) {
        CPU_ZERO(&set);
        CPU_SET(last, &set);
    }
    return set;
}

void keepAllThreadsOn(Processors chosen)
{
    const cpu_set_t set = setOf(chosen);
    const QStringList threads =
        QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &thread : threads)
        sched_setaffinity(thread.toInt(), sizeof set, &set);
}

} // namespace

std::function<void()> keepingOn(Processors chosen)
{
    return [set = setOf(chosen)] {
        sched_setaffinity(0, sizeof set, &set);
    };
}

ProcessorLeft::ProcessorLeft()
{
    keepAllThreadsOn(Processors::AllButLast);
}

ProcessorLeft::~ProcessorLeft()
{
    keepAllThreadsOn(Processors::All);
}
