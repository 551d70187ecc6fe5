#pragma once

#include "tools/queuectl/journalfile.h"

#include <QDateTime>
#include <QList>
#include <QString>

namespace queuectl {

/// A time in which attempts at messages of a type failed and none of its messages was delivered.
struct Outage
{
    QString type;
    /// The first failed attempt.
    QDateTime begin;
    /// The next delivery; without one, the last known attempt, or now if the outage is ongoing.
    QDateTime end;
    bool isOngoing = false;
    /// The number of messages whose first failed attempt was in this time.
    int messages = 0;

    qint64 seconds() const { return begin.secsTo(end); }
};

/// The outages that reach into the time from `since` to `now`, by type and time, ended ones only if
/// they lasted for `shortestSeconds`. A message that was delivered at its second attempt or later
/// counts as failed before; one that was kept or dropped counts if the reason was the network, a
/// certificate or a fault of the service, not if its request was refused. Empty if the journal
/// cannot be read.
QList<Outage> findOutages(JournalFile &journal, const QDateTime &since, const QDateTime &now,
                          qint64 shortestSeconds);

} // namespace queuectl
