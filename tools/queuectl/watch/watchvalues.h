#pragma once

#include "tools/queuectl/cause.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/failure.h"

#include <QDateTime>
#include <QList>
#include <QString>

#include <optional>

namespace queuectl {

/// A type at one moment.
struct WatchedType
{
    QString type;
    qint64 waiting = 0;
    /// Invalid where nothing waits or no time can be read.
    QDateTime oldest = {};
    /// Whether the service delivers it.
    bool hasHandler = true;
    /// Messages that ended today.
    int delivered = 0;
    int dropped = 0;
    /// Invalid: never.
    QDateTime lastDelivered = {};
    /// Invalid when its last attempt went well.
    QDateTime failingSince = {};
    /// Why the last message was kept, of those that wait; nothing when none was.
    std::optional<Cause> cause = {};
    QString answer = {};
    QDateTime answered = {};
};

/// How much somebody has to look after a type.
enum class Urgency
{
    /// Nothing to do.
    None,
    /// It fails, or rows have waited for more than ten minutes.
    Careful,
    /// Nobody delivers it, it was never delivered and only refused, it has failed for a quarter of
    /// an hour, or rows have waited for more than an hour.
    Bad,
};

Urgency urgencyOf(const WatchedType &type, const QDateTime &now);

/// What database, journal and service tell at one moment.
struct WatchValues
{
    QDateTime time;
    /// Why the rows cannot be read; empty when they can. The types are then those of `rowsTime`.
    QString databaseFault;
    /// Invalid: the rows were never read.
    QDateTime rowsTime;
    /// Those with rows, and those of which messages ended today, by name.
    QList<WatchedType> types;
    /// Types beyond a number that no screen has room for, and their rows.
    int unlistedTypes = 0;
    qint64 unlistedRows = 0;
    /// Why the delivery journal cannot be read; empty when it can.
    QString journalFault;
    PortState service = PortState::Nobody;
    /// Of the process that has the service's folder; empty when it cannot be told.
    QString role;
    qint64 databaseErrors = 0;

    qint64 waiting() const;
    int delivered() const;
    int dropped() const;
    /// What the command ends with after this look: as `status` does.
    ExitCode exitCode() const;
};

/// Reads with statements that hold no lock when they return; takes seconds where somebody does not
/// answer. When the rows cannot be read, those of `before` stay. Nothing throws. Thread: one, whose
/// database connection it uses.
WatchValues readWatchValues(const WatchValues &before);

} // namespace queuectl
