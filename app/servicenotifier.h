#pragma once

#include <QTimer>

/// Tells the service manager that the service is ready, alive and stopping. Does nothing where no
/// service manager listens, or where the build has no libsystemd.
/// Thread: the main thread; a main thread that hangs misses the watchdog's beat.
class ServiceNotifier
{
public:
    /// The service has started; from now on the watchdog, if the manager set one, gets its beat.
    void ready();
    /// The service is about to end.
    void stopping();

private:
    QTimer watchdogTimer;
};
