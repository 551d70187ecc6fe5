#pragma once

#include "shared/core/guarded.h"

#include <QMap>
#include <QSet>
#include <QString>

#include <atomic>
#include <memory>

class OutcomeSink;

/// What a service does for a table that several services can reach.
enum class ServiceRole
{
    /// It delivers.
    Active,
    /// It does not know whether another service delivers.
    Undecided,
    /// Another service delivers.
    StandBy,
};

/// What the main thread and the workers know of each other. Both hold it by shared pointer, so a
/// delivery that ends while the service shuts down still finds it alive.
/// The two mutexes are never held together, and never across a delivery.
struct SharedState
{
    /// 1 asks all workers to end after the message at hand.
    std::atomic<quint8> stopFlag{0};
    /// No delivery begins but by the active service.
    std::atomic<ServiceRole> role{ServiceRole::Active};
    /// Whether other services may read the same table, so that a worker must have its type for
    /// itself.
    std::atomic<bool> claimsTypes{false};
    /// The types with a live worker, from the moment at which its start is decided.
    Guarded<QSet<QString>> runningTypes;
    /// The fail id of each type that has one: the message that was last refused. The next read
    /// starts behind it, and the entry goes when that read finds nothing. Held across the read of a
    /// message.
    Guarded<QMap<QString, int>> startIds;
    /// Is told what becomes of each message that is tried; null: nobody is. Set before the first
    /// worker.
    std::shared_ptr<OutcomeSink> outcomes;
};
