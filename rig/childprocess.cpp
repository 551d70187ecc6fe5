#include "rig/childprocess.h"

#include "rig/error.h"

#include <csignal>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace rig {

std::function<void()> dyingWithThisProcess(std::function<void()> more)
{
    return [parent = ::getpid(), more = std::move(more)] {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        // The parent may have ended before prctl() took effect.
        if (::getppid() != parent)
            ::_exit(1);
        if (more)
            more();
    };
}

void giveUpFileCapabilities()
{
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE);
    ::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH);
}

ChildProcess::ChildProcess(const QString &program, const QStringList &arguments)
{
    process.setProgram(program);
    process.setArguments(arguments);
}

ChildProcess::~ChildProcess()
{
    process.disconnect();
    if (process.state() != QProcess::NotRunning)
        kill();
}

void ChildProcess::setVariable(const QString &name, const QString &value)
{
    environment.insert(name, value);
}

void ChildProcess::setOutputFile(const QString &path)
{
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(path, QIODevice::Append);
}

void ChildProcess::setErrorFile(const QString &path)
{
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardErrorFile(path, QIODevice::Append);
}

void ChildProcess::start()
{
    process.setProcessEnvironment(environment);
    process.setChildProcessModifier(
        dyingWithThisProcess([setup = childSetup, obeys = obeysFileRights] {
            if (obeys)
                giveUpFileCapabilities();
            if (setup)
                setup();
        }));
    wasStarted = true;
    process.start(QIODevice::ReadOnly);
    if (!process.waitForStarted(-1))
        throw Error(u"%1: %2"_s.arg(process.program(), process.errorString()));
}

bool ChildProcess::isRunning()
{
    // Without an event loop QProcess does not notice the end by itself.
    return process.state() != QProcess::NotRunning && !process.waitForFinished(0);
}

bool ChildProcess::hasEnded() const
{
    return wasStarted && process.state() == QProcess::NotRunning;
}

void ChildProcess::signal(int number) const
{
    ::kill(static_cast<pid_t>(process.processId()), number);
}

void ChildProcess::kill()
{
    process.kill();
    process.waitForFinished(-1);
}

bool ChildProcess::stop(std::chrono::milliseconds limit)
{
    terminate();
    return waitForEnd(limit) && end() == u"exit 0";
}

bool ChildProcess::waitForEnd(std::chrono::milliseconds limit)
{
    return process.state() == QProcess::NotRunning
           || process.waitForFinished(static_cast<int>(limit.count()));
}

QString ChildProcess::end() const
{
    return process.exitStatus() == QProcess::NormalExit ? u"exit %1"_s.arg(process.exitCode())
                                                        : u"signal"_s;
}

} // namespace rig
