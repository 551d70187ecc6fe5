#pragma once

#include "rig/processuse.h"

#include <QProcess>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>

namespace rig {

/// For QProcess::setChildProcessModifier(): the program is killed when this process ends. `more`
/// runs in the child too, between fork and exec, where only what is safe in a signal handler may be
/// called.
std::function<void()> dyingWithThisProcess(std::function<void()> more = {});

/// Gives up the capabilities by which root passes over the rights of files. For use as `more`
/// above.
void giveUpFileCapabilities();

/// A program that we start. It dies with this process. Works with and without an event loop.
/// Thread: the one that made it.
class ChildProcess
{
public:
    explicit ChildProcess(const QString &program, const QStringList &arguments = {});
    /// Kills it.
    virtual ~ChildProcess();
    ChildProcess(const ChildProcess &) = delete;
    ChildProcess &operator=(const ChildProcess &) = delete;

    // These hold from the next start on.

    /// A variable of its environment, which otherwise is ours.
    void setVariable(const QString &name, const QString &value);
    /// Output and errors go to the end of this file.
    void setOutputFile(const QString &path);
    /// Errors go to a file of their own instead.
    void setErrorFile(const QString &path);
    /// The rights of files hold for the program, also where root starts it.
    void obeyFileRights() { obeysFileRights = true; }
    /// See dyingWithThisProcess().
    void setChildSetup(std::function<void()> setup) { childSetup = std::move(setup); }

    /// Throws Error when the program cannot be started.
    virtual void start();
    bool isRunning();
    /// It was started and has ended, as far as the event loop knows; everything it wrote is here.
    bool hasEnded() const;
    /// 0 while it does not run.
    qint64 processId() const { return process.processId(); }
    ProcessUse use() const { return ProcessUse(processId()); }

    /// Sends SIGTERM.
    void terminate() { process.terminate(); }
    void signal(int number) const;
    /// Sends SIGKILL; the process is gone when this returns.
    void kill();
    /// Sends SIGTERM. False when it did not end with exit code 0 in time.
    bool stop(std::chrono::milliseconds limit = std::chrono::minutes(1));
    /// False when it did not end by itself in time.
    bool waitForEnd(std::chrono::milliseconds limit = std::chrono::minutes(1));
    /// How the process that no longer runs has ended: "exit 1" or "signal".
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
