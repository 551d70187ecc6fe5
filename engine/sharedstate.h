#pragma once

#include "shared/core/guarded.h"

#include <QMap>
#include <QSet>
#include <QString>

#include <atomic>

/// What the main thread and the workers know of each other. Both hold it by shared pointer, so a
/// delivery that ends while the service shuts down still finds it alive.
/// The two mutexes are never held together, and never across a delivery.
struct SharedState
{
    /// 1 asks all workers to end after the message at hand.
    std::atomic<quint8> stopFlag{0};
    /// The types with a live worker, from the moment at which its start is decided.
    Guarded<QSet<QString>> runningTypes;
    /// The fail id of each type that has one: the message that was last refused. The next read starts
    /// behind it, and the entry goes when that read finds nothing. Held across the read of a message.
    Guarded<QMap<QString, int>> startIds;
};
