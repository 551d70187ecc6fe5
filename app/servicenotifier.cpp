#include "app/servicenotifier.h"

#ifdef QUEUE_WITH_SYSTEMD
#include <systemd/sd-daemon.h>

void ServiceNotifier::ready()
{
    sd_notify(0, "READY=1");

    std::uint64_t limitUs = 0;
    if (sd_watchdog_enabled(0, &limitUs) <= 0)
        return;
    QObject::connect(&watchdogTimer, &QTimer::timeout, &watchdogTimer,
                     [] { sd_notify(0, "WATCHDOG=1"); });
    watchdogTimer.start(std::chrono::milliseconds(limitUs / 1000 / 2));
}

void ServiceNotifier::stopping()
{
    sd_notify(0, "STOPPING=1");
}

#else

void ServiceNotifier::ready() {}

void ServiceNotifier::stopping() {}

#endif
