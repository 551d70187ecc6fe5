#include "app/servicenotifier.h"

#include <chrono>

#ifdef QUEUE_WITH_SYSTEMD
#include <systemd/sd-daemon.h>

/// A watchdog message more often than this has no use.
static constexpr auto beatInterval = std::chrono::seconds(1);

void ServiceNotifier::ready()
{
    sd_notify(0, "READY=1");

    std::uint64_t limitUs = 0;
    if (sd_watchdog_enabled(0, &limitUs) <= 0)
        return;
    QObject::connect(&watchdogTimer, &QTimer::timeout, &watchdogTimer, [this] { beat(); });
    nextBeat.setRemainingTime(beatInterval);
    watchdogTimer.start(std::chrono::milliseconds(limitUs / 1000 / 2));
}

void ServiceNotifier::alive()
{
    if (watchdogTimer.isActive() && nextBeat.hasExpired())
        beat();
}

void ServiceNotifier::beat()
{
    nextBeat.setRemainingTime(beatInterval);
    sd_notify(0, "WATCHDOG=1");
}

void ServiceNotifier::status(const QString &text)
{
    sd_notify(0, ("STATUS=" + text.toUtf8()).constData());
}

void ServiceNotifier::stopping()
{
    sd_notify(0, "STOPPING=1");
}

void ServiceNotifier::extend(std::chrono::seconds limit)
{
    const auto limitUs = std::chrono::microseconds(limit).count();
    sd_notify(0, ("EXTEND_TIMEOUT_USEC=" + QByteArray::number(qint64{limitUs})).constData());
}

#else

void ServiceNotifier::ready() {}

void ServiceNotifier::alive() {}

void ServiceNotifier::beat() {}

void ServiceNotifier::status(const QString & /*text*/) {}

void ServiceNotifier::stopping() {}

void ServiceNotifier::extend(std::chrono::seconds /*limit*/) {}

#endif
