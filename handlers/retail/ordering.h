#pragma once

#include "engine/basichandler.h"

#include <QString>
#include <QStringList>

/// How messages about the same thing are kept in their order: a message waits while an older one of
/// its type holds one of its markers anywhere in its body. An empty marker is in every body. The
/// order lives in the table alone, so it outlasts a restart.
struct Ordering
{
    /// What a message is about.
    QStringList (*markersOf)(const Message &message);
    /// What becomes of the pass when a message has to wait.
    BasicHandler::Turn onHit;
};

/// The rule of a worker that keeps this order.
BasicHandler::TurnRule inOrder(const Ordering &ordering);

/// Announces the message in the log and says whether it goes out now. Markers are looked for in
/// their order, up to the first one that is found.
BasicHandler::Turn turnOf(const Message &message, queue::DAO &dao, Log4Qt::Logger &logger,
                          const Ordering &ordering);

/// The texts under `key` in the elements of the JSON array that the message's `body` holds as a
/// text; none when it holds no such array. An element without the key gives an empty marker.
QStringList markersInList(const Message &message, const QString &key);
