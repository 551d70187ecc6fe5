#include "tools/queuectl/watch/watchvalues.h"

#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/concerns.h"
#include "tools/queuectl/entrytext.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/situation.h"

#include <QMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 lateSeconds = 600;
constexpr qint64 longFailureSeconds = 900;
/// The table may hold types of any name and number.
constexpr int maxForeignTypes = 200;

void readRows(WatchValues &values, QMap<QString, WatchedType> &types)
{
    MessageRows rows;
    QList<int> lowestIds;
    int foreignTypes = 0;
    rows.countTypes([&](const QString &type, qint64 count, int lowestId) {
        const bool hasHandler = isDelivered(type);
        if (!hasHandler && ++foreignTypes > maxForeignTypes) {
            ++values.unlistedTypes;
            values.unlistedRows += count;
            return;
        }
        WatchedType &watched = types[type];
        watched.type = type;
        watched.waiting = count;
        watched.hasHandler = hasHandler;
        lowestIds.append(lowestId);
    });
    const QHash<QString, QDateTime> oldest = rows.oldest(lowestIds);
    for (WatchedType &watched : types)
        watched.oldest = oldest.value(watched.type);
}

void readJournal(WatchedType &watched, const Situation &situation)
{
    const Ended ended = situation.today.value(watched.type);
    watched.delivered = ended.delivered;
    watched.dropped = ended.dropped;
    const Streak streak = situation.streaks.value(watched.type);
    watched.lastDelivered = streak.lastDelivered;
    watched.failingSince = streak.failingSince;
    if (watched.waiting == 0)
        return;
    if (!watched.hasHandler) {
        watched.cause = Cause::NoHandler;
        return;
    }
    const std::optional<JournalEntry> kept = situation.journal().lastKept(watched.type);
    // What was kept before the oldest row was written is about a row that is gone.
    if (!kept || (watched.oldest.isValid() && kept->last < watched.oldest))
        return;
    watched.cause = causeOfKind(kept->kind);
    watched.answer = answerOf(*kept);
    watched.answered = kept->last;
}

void readService(WatchValues &values)
{
    const ServiceAnswer answer = lookAtService();
    values.service = answer.state;
    values.databaseErrors = answer.errorsCount;
    if (const auto holder = FolderLock::holder(serviceLockFile()))
        values.role = holder->role;
}

qint64 ageOf(const WatchedType &type, const QDateTime &now)
{
    return type.oldest.isValid() ? type.oldest.secsTo(now) : 0;
}

/// What `status` ends with 1 for, see concernsOf().
bool isConcern(const WatchedType &type, const QDateTime &now)
{
    const bool hasOnlyFailed = type.failingSince.isValid() && !type.lastDelivered.isValid();
    return type.waiting > 0
           && (!type.hasHandler || hasOnlyFailed || ageOf(type, now) > oldRowSeconds);
}

} // namespace

Urgency urgencyOf(const WatchedType &type, const QDateTime &now)
{
    if (type.waiting == 0)
        return Urgency::None;
    const bool isFailing = type.failingSince.isValid();
    if (isConcern(type, now) || (isFailing && type.failingSince.secsTo(now) >= longFailureSeconds))
        return Urgency::Bad;
    return isFailing || ageOf(type, now) > lateSeconds ? Urgency::Careful : Urgency::None;
}

qint64 WatchValues::waiting() const
{
    qint64 sum = unlistedRows;
    for (const WatchedType &type : types)
        sum += type.waiting;
    return sum;
}

int WatchValues::delivered() const
{
    int sum = 0;
    for (const WatchedType &type : types)
        sum += type.delivered;
    return sum;
}

int WatchValues::dropped() const
{
    int sum = 0;
    for (const WatchedType &type : types)
        sum += type.dropped;
    return sum;
}

ExitCode WatchValues::exitCode() const
{
    if (!databaseFault.isEmpty())
        return NoDatabase;
    if (service != PortState::Service)
        return NoService;
    const bool isAnyWrong =
        std::any_of(types.cbegin(), types.cend(),
                    [this](const WatchedType &type) { return isConcern(type, time); });
    return isAnyWrong ? Found : Done;
}

WatchValues readWatchValues(const WatchValues &before)
{
    WatchValues values;
    const Situation situation = Situation::read();
    QMap<QString, WatchedType> types;
    for (const auto &[type, ended] : situation.today.asKeyValueRange()) {
        if (ended.delivered > 0 || ended.dropped > 0)
            types[type].type = type;
    }
    try {
        readRows(values, types);
        for (WatchedType &watched : types)
            readJournal(watched, situation);
        values.types = types.values();
        values.rowsTime = QDateTime::currentDateTime();
    } catch (const BasicException &exception) {
        values.databaseFault = exception.tr().ru();
        values.rowsTime = before.rowsTime;
        values.types = before.types;
        values.unlistedTypes = before.unlistedTypes;
        values.unlistedRows = before.unlistedRows;
    }
    values.journalFault = situation.journal().why();
    readService(values);
    values.time = QDateTime::currentDateTime();
    return values;
}

} // namespace queuectl
