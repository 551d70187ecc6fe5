#pragma once

#include "engine/basichandler.h"

#include <QString>
#include <QStringList>

/// Keeps messages about the same object in order: a message waits while an older one of its type
/// contains one of its markers anywhere in its body. An empty marker is in every body. Only the
/// table defines the order, so it survives a restart.
struct Ordering
{
    /// The objects that a message is about.
    QStringList (*markersOf)(const Message &message);
    /// Whether the pass continues when a message has to wait.
    BasicHandler::Turn onHit;
};

/// The turn rule of a worker with this ordering.
BasicHandler::TurnRule inOrder(const Ordering &ordering);

/// Logs the announcement of the message and decides whether it goes out now. Markers are searched
/// in order, up to the first one that is found.
BasicHandler::Turn turnOf(const Message &message, queue::DAO &dao, Log4Qt::Logger &logger,
                          const Ordering &ordering);

/// The values under `key` in the elements of a JSON array, which is a text in the message's `body`;
/// none without such an array. An element without the key gives an empty marker.
QStringList markersInList(const Message &message, const QString &key);
