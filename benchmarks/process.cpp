#include "benchmarks/process.h"

#include "benchmarks/statistics.h"

#include <QDir>
#include <QFile>

#include <ctime>
#include <sched.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int limitMs = 60'000;

enum class Processors
{
    All,
    AllButLast,
    Last
};

/// Those that this process was given.
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

/// `thread` 0 is the calling one. Without effect where there is no choice.
void keepOn(Processors chosen, pid_t thread = 0)
{
    cpu_set_t set = usableProcessors();
    if (CPU_COUNT(&set) < 2)
        return;
    size_t last = CPU_SETSIZE - 1;
    while (!CPU_ISSET(last, &set))
        --last;
    if (chosen != Processors::All)
        CPU_CLR(last, &set);
    if (chosen == Processors::Last) {
        CPU_ZERO(&set);
        CPU_SET(last, &set);
    }
    sched_setaffinity(thread, sizeof set, &set);
}

void keepAllThreadsOn(Processors chosen)
{
    const QStringList threads =
        QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &thread : threads)
        keepOn(chosen, thread.toInt());
}

} // namespace

ProcessorLeft::ProcessorLeft()
{
    keepAllThreadsOn(Processors::AllButLast);
}

ProcessorLeft::~ProcessorLeft()
{
    keepAllThreadsOn(Processors::All);
}

Process::Process(const QString &program, const QStringList &arguments, const QString &log,
                 const QStringList &environment, Place place)
{
    // Whatever this process keeps to just now.
    const Processors processors =
        place == Place::LastProcessor ? Processors::Last : Processors::All;
    process.setChildProcessModifier([processors] { keepOn(processors); });
    process.setEnvironment(QProcess::systemEnvironment() + environment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(log);
    process.start(program, arguments);
    if (!process.waitForStarted(limitMs))
        fail(u"%1: %2"_s.arg(program, process.errorString()));
}

Process::~Process()
{
    end();
}

double Process::processorMicroseconds() const
{
    clockid_t clock = 0;
    timespec time = {};
    if (clock_getcpuclockid(static_cast<pid_t>(process.processId()), &clock) != 0
        || clock_gettime(clock, &time) != 0)
        fail(u"%1 has ended"_s.arg(process.program()));
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

double Process::residentMb() const
{
    QFile status(u"/proc/%1/status"_s.arg(process.processId()));
    if (!status.open(QIODevice::ReadOnly))
        fail(u"%1 has ended"_s.arg(process.program()));
    const QStringList lines = QString::fromUtf8(status.readAll()).split(u'\n');
    for (const QString &line : lines) {
        if (line.startsWith(u"VmRSS:"))
            return line.section(u':', 1).trimmed().section(u' ', 0, 0).toDouble() / 1024;
    }
    fail(u"%1 does not say how much memory it has"_s.arg(status.fileName()));
}

bool Process::isRunning()
{
    process.waitForFinished(0);
    return process.state() != QProcess::NotRunning;
}

bool Process::end()
{
    if (process.state() == QProcess::NotRunning)
        return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    process.terminate();
    if (!process.waitForFinished(limitMs))
        process.kill();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}
