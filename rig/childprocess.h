#pragma once

#include "rig/processuse.h"

#include <QProcess>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>

namespace rig {

/// For QProcess::setChildProcessModifier(): the child is killed when this process ends. `more` also
/// runs in the child, between fork and exec, so it may call only async-signal-safe functions.
std::function<void()> dyingWithThisProcess(std::function<void()> more = {});

/// Drops the capabilities by which root ignores file permissions. For use as `more` above.
void giveUpFileCapabilities();

/// A child process. It is killed when this process ends. Works with and without an event loop.
/// Thread: the one that made it.
class ChildProcess
{
public:
    explicit ChildProcess(const QString &program, const QStringList &arguments = {});
    /// Kills the process.
    virtual ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // These apply from the next start on.

    /// Sets an environment variable; the others are inherited.
    void setVariable(const QString &name, const QString &value);
    /// Output and errors are appended to this file.
    void setOutputFile(const QString &path);
    /// Errors go to this file instead.
    void setErrorFile(const QString &path);
    /// File permissions apply to the program even if root starts it.
    void obeyFileRights() { obeysFileRights = true; }
    /// See dyingWithThisProcess().
    void setChildSetup(std::function<void()> setup) { childSetup = std::move(setup); }

    /// Throws Error when the program cannot be started.
    virtual void start();
    bool isRunning();
    /// It was started and has ended, as far as the event loop knows; all of its output has been
    /// read.
    bool hasEnded() const;
    /// 0 while it is not running.
    qint64 processId() const { return process.processId(); }
    ProcessUse use() const { return ProcessUse(processId()); }

    /// Sends SIGTERM.
    void terminate() { process.terminate(); }
    void signal(int number) const;
    /// Sends SIGKILL and waits for the process's end.
    void kill();
    /// Sends SIGTERM. False if it did not end with exit code 0 in time.
    bool stop(std::chrono::milliseconds limit = std::chrono::minutes(1));
    /// False if it did not end by itself in time.
    bool waitForEnd(std::chrono::milliseconds limit = std::chrono::minutes(1));
    /// How the process ended: "exit 1" or "signal".
    QString end() const;

protected:
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();

private:
    std::function<void()> childSetup;
    bool obeysFileRights = false;
    bool wasStarted = false;
};

} // namespace rig
