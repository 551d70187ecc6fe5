#pragma once

#include "engine/outcome.h"
#include "shared/net/httpresponse.h"

#include <QString>

/// Gives one message with the id 7 and this body, a JSON object, to a new handler of the type, as a
/// worker does. True when the message is finished.
bool deliver(const QString &type, const QString &body);

/// What became of a message in one line: "delivered", "delivered: reason", "dropped: reason",
/// "kept service" or "kept network: reason".
QString told(const Outcome &outcome);

/// Delivers like deliver(), and returns what became of the message. An exception keeps it.
QString outcomeOf(const QString &type, const QString &body);

/// The outcome text of a message that stays because its last exchange failed so.
QString keptBy(const http::Response &answer);
