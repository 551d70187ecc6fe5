#pragma once

#include <QDeadlineTimer>
#include <QString>
#include <QTimer>

#include <chrono>

/// Tells the service manager that the service is ready, alive or stopping. Does nothing without a
/// service manager or in a build without libsystemd.
/// Thread: the main thread. A main thread that hangs sends no watchdog message.
class ServiceNotifier
{
public:
    /// The service has started. From now on the watchdog, if configured, gets its messages.
    void ready();
    /// The main thread has finished a step. Called after each step: several of them may wait for a
    /// silent database server before the timer gets its turn.
    void alive();
    /// One line for `systemctl status`.
    void status(const QString &text);
    void stopping();
    /// Asks the manager to wait up to `limit` before it kills the service. Call again within that
    /// time.
    void extend(std::chrono::seconds limit);

private:
    void beat();

    QTimer watchdogTimer;
    /// Expired at first, so the first call sends.
    QDeadlineTimer nextBeat;
};
