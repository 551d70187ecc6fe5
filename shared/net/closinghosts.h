#pragma once

#include "shared/core/guarded.h"

#include <QByteArray>
#include <QList>

#include <atomic>
#include <chrono>

/// The hosts that have closed a kept connection without announcing it. A request that is on its way
/// when that happens is lost, and nobody can tell whether it was read. So each request to such a
/// host gets a connection of its own.
///
/// A host is remembered for an hour, since a service that was restarted once is no such host for
/// ever, and forgotten earlier when more than 64 others have come after it. Thread: any.
class ClosingHosts
{
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::hours lifetime{1};
    static constexpr qsizetype capacity = 64;

    void add(const QByteArray &host, Time now);
    /// Takes no lock while no host is known, as on most tills.
    bool contains(const QByteArray &host, Time now) const;

private:
    struct Entry
    {
        QByteArray host;
        Time end;
    };

    /// In the order in which they were added last.
    Guarded<QList<Entry>> entries;
    std::atomic<bool> isEmpty{true};
};
