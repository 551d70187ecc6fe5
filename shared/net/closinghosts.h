#pragma once

#include "shared/core/guarded.h"

#include <QByteArray>
#include <QList>

#include <atomic>
#include <chrono>

/// Hosts that have closed a kept-alive connection without announcing it. A request that is sent at
/// that moment is lost, and the client cannot know whether the server read it. Therefore each
/// request to such a host gets a new connection.
///
/// A host is remembered for an hour, since a single restart also closes connections. It is dropped
/// earlier when more than 64 other hosts follow. Thread: any.
class ClosingHosts
{
public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::hours lifetime{1};
    static constexpr qsizetype capacity = 64;

    void add(const QByteArray &host, Time now);
    /// Takes no lock while the list is empty, as on most tills.
    bool contains(const QByteArray &host, Time now) const;

private:
    struct Entry
    {
        QByteArray host;
        Time end;
    };

    /// In the order of their last addition.
    Guarded<QList<Entry>> entries;
    std::atomic<bool> isEmpty{true};
};
