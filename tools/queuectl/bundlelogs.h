#pragma once

#include <QByteArray>
#include <QDateTime>

namespace queuectl {

// What an archive for support has of the time from `since` on. Secrets that can be told, and long
// numbers, are masked; what cannot be read is replaced by a line that says why.

/// The service's log file, the last 16 MiB at most.
QByteArray logFileSince(const QDateTime &since);
/// The unit's lines in systemd's journal, the last 100,000 at most.
QByteArray systemdLogSince(const QDateTime &since);
/// The delivery journal, an object a line, newest first, 20,000 messages at most.
QByteArray historySince(const QDateTime &since);

} // namespace queuectl
