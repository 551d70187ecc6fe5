#pragma once

#include "shared/core/guarded.h"

#include <QMap>
#include <QSet>
#include <QString>

#include <atomic>
#include <memory>

class OutcomeSink;

/// The service's role when several services can reach one table.
enum class ServiceRole
{
    /// It delivers.
    Active,
    /// It is not yet known whether another service delivers.
    Undecided,
    /// Another service delivers.
    StandBy,
};

/// State that the main thread shares with the workers. Each holds it by shared pointer, so it lives
/// until the last delivery has ended, also during a shutdown.
/// The two mutexes are never held together, and never during a delivery.
struct SharedState
{
    /// 1 asks all workers to end after their current message.
    std::atomic<quint8> stopFlag{0};
    /// Only the active service begins a delivery.
    std::atomic<ServiceRole> role{ServiceRole::Active};
    /// Whether other services may read the same table, so that each worker must lock its type.
    std::atomic<bool> claimsTypes{false};
    /// The types with a live worker, from the moment their start is decided.
    Guarded<QSet<QString>> runningTypes;
    /// The fail id of each type that has one: the id of the message that was last refused. The next
    /// read starts after it; when that read finds nothing, the entry is removed. Locked during the
    /// read of a message.
    Guarded<QMap<QString, int>> startIds;
    /// Receives the outcome of each attempt; null: outcomes are not reported. Set before the first
    /// worker.
    std::shared_ptr<OutcomeSink> outcomes;
};
