#pragma once

#include <QString>

/// Hands one message with the id 7 and this body, a JSON object, to a fresh handler of the type, as a
/// worker does, and returns what becomes of it: true when it is finished with.
bool deliver(const QString &type, const QString &body);
