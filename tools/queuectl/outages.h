#pragma once

#include "tools/queuectl/journalfile.h"

#include <QDateTime>
#include <QList>
#include <QString>

namespace queuectl {

/// A time in which messages of a type were not finished with at their first attempt.
struct Outage
{
    QString type;
    /// First attempt of the earliest of these messages.
    QDateTime begin;
    /// The attempt that finished the last of them, or the last attempt so far.
    QDateTime end;
    /// The type is still failing.
    bool goesOn = false;
    /// Messages that had to be tried again, or were kept.
    int messages = 0;
    /// Messages that were delivered at their first attempt meanwhile. With none the service was
    /// away; with some it refused single messages.
    int deliveredMeanwhile = 0;
    /// The newest message that was kept: its answer is the reason. What kept a message that was
    /// finished with later is not on record.
    std::optional<JournalEntry> kept;
};

/// The outages that lasted until `since` or longer, of one type or of all (empty), in the order of
/// their beginnings. Empty where the journal cannot be read.
QList<Outage> outagesSince(JournalFile &journal, const QDateTime &since, const QString &type = {});

} // namespace queuectl
