#include "benchmarks/process.h"

#include "benchmarks/statistics.h"

#include <QFile>

#include <ctime>

using namespace Qt::StringLiterals;

namespace {

constexpr int limitMs = 60'000;

} // namespace

Process::Process(const QString &program, const QStringList &arguments, const QString &log,
                 const QStringList &environment)
{
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

bool Process::end()
{
    if (process.state() == QProcess::NotRunning)
        return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    process.terminate();
    if (!process.waitForFinished(limitMs))
        process.kill();
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}
