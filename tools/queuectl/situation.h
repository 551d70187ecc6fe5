#pragma once

#include "tools/queuectl/cause.h"
#include "tools/queuectl/failids.h"
#include "tools/queuectl/journalfile.h"
#include "tools/queuectl/messagerows.h"

#include <QHash>
#include <QJsonObject>
#include <QString>

#include <optional>

namespace queuectl {

/// What is known beside the rows themselves: how far each type has come and what became of
/// attempts.
class Situation
{
public:
    static Situation read();

    FailIds failIds;
    /// By type.
    QHash<QString, Streak> streaks;
    /// Messages that ended today, by type.
    QHash<QString, Ended> today;

    JournalFile &journal() const { return *journal_; }

    /// The record of the attempts at this row; nothing when it was not tried or the journal has no
    /// record.
    std::optional<JournalEntry> entryOf(const Row &row) const;
    /// The same for many rows, by their ids.
    QHash<int, JournalEntry> entriesOf(const QList<Row> &rows) const;

    /// Whether the row has been refused: by its entry, or by the fail ids, which the service saves
    /// every two minutes.
    bool wasRefused(const Row &row, const std::optional<JournalEntry> &entry) const;
    Cause cause(const Row &row, const std::optional<JournalEntry> &entry) const;

private:
    bool isKnownSince(const QDateTime &time) const;

    std::shared_ptr<JournalFile> journal_;
    /// Since when every attempt is recorded; invalid with `isWhole`: since the beginning.
    QDateTime knownSince;
    bool isWhole = false;
};

/// Where a message goes: `host:port` of its address, those of a list with commas between them, or
/// the setting that names the address. Empty when neither the row nor a setting tells.
QString destinationOf(const QString &type, const QJsonObject &body);

} // namespace queuectl
