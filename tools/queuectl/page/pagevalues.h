#pragma once

#include "tools/queuectl/concerns.h"
#include "tools/queuectl/outages.h"
#include "tools/queuectl/page/timescale.h"
#include "tools/queuectl/shape.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

namespace queuectl {

/// The form of times on the page.
constexpr QStringView pageTimeForm = u"yyyy-MM-dd HH:mm";

int totalOf(const QList<int> &values);

/// What became of messages in each part of a time scale.
struct Flow
{
    QList<int> delivered;
    /// Messages whose first attempt failed, at the time of that attempt.
    QList<int> failed;
    QList<int> dropped;

    Flow() = default;
    explicit Flow(int parts)
        : delivered(parts)
        , failed(parts)
        , dropped(parts)
    {
    }
};

struct TypeFlow
{
    QString type;
    Flow flow;
    /// Messages in the whole time.
    int delivered = 0;
    int failed = 0;
    int dropped = 0;
    /// Since when all attempts fail while rows wait; invalid when they do not.
    QDateTime failingSince;
};

/// Rows that wait for one cause.
struct WaitingCause
{
    Cause cause = Cause::Turn;
    /// By the index in ageClasses().
    QList<int> ages;
    int total = 0;
    qint64 oldestSeconds = 0;
};

/// Rows of a type that wait for one cause.
struct WaitingType
{
    QString type;
    Cause cause = Cause::Turn;
    int count = 0;
    qint64 oldestSeconds = 0;
};

/// A message that was finished with undelivered.
struct DroppedMessage
{
    int id = 0;
    QString type;
    QString reference;
    int attempts = 0;
    QDateTime time;
    Cause cause = Cause::Other;
    QString answer;
};

struct SettingsText
{
    QString path;
    QString text;
};

/// The values of a page about the queue. Texts that come from rows, replies or files have their
/// secrets and long numbers masked, and lists have a limit; they are not yet escaped.
struct PageValues
{
    explicit PageValues(const TimeScale &scale)
        : scale(scale)
        , flow(scale.count())
    {
    }

    QString host;
    TimeScale scale;
    bool hasService = false;
    /// Why the table of messages cannot be read; empty when it can.
    QString databaseFault;
    /// The same of the delivery journal.
    QString journalFault;
    /// The first attempt on record, when that is later than the scale's beginning.
    QDateTime journalBegin;

    int waiting = 0;
    qint64 oldestSeconds = 0;
    /// Those with the most rows first, as with the types and destinations that follow.
    QList<WaitingCause> waitingCauses;
    QList<WaitingType> waitingTypes;
    int furtherWaitingTypes = 0;
    QList<ShapeDestination> destinations;
    int furtherDestinations = 0;
    QList<Concern> concerns;
    int furtherConcerns = 0;

    Flow flow;
    /// Failing types first, then those with the most messages.
    QList<TypeFlow> types;
    int furtherTypes = 0;

    /// The longest ones, by type and time.
    QList<Outage> outages;
    int furtherOutages = 0;
    /// Where messages of a type go, as far as rows or settings tell.
    QHash<QString, QString> addresses;

    /// Newest first.
    QList<DroppedMessage> dropped;
    int furtherDropped = 0;

    QList<SettingsText> settings;
    QStringList versions;
};

/// Gathers the values of the time from `since` to `now`. What cannot be read is told in the values;
/// nothing throws.
PageValues collectPage(const QDateTime &since, const QDateTime &now);

} // namespace queuectl
