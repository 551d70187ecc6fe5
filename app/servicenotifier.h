#pragma once

#include <QDeadlineTimer>
#include <QString>
#include <QTimer>

#include <chrono>

/// Tells the service manager that the service is ready, alive and stopping. Does nothing where no
/// service manager listens, or where the build has no libsystemd.
/// Thread: the main thread; a main thread that hangs misses the watchdog's beat.
class ServiceNotifier
{
public:
    /// The service has started; from now on the watchdog, if the manager set one, gets its beat.
    void ready();
    /// The main thread has done a piece of its work. Several that each wait for a silent database
    /// server may follow one another before the timer of the watchdog's beat has its turn.
    void alive();
    /// One line for the service manager's list.
    void status(const QString &text);
    /// The service is about to end.
    void stopping();
    /// What is under way ends in its own time: the manager hears of the service again within
    /// `limit`, and until then does not end it.
    void extend(std::chrono::seconds limit);

private:
    void beat();

    QTimer watchdogTimer;
    /// Expired at first.
    QDeadlineTimer nextBeat;
};
