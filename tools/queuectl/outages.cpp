#include "tools/queuectl/outages.h"

#include <QHash>
#include <QMap>

#include <algorithm>

namespace queuectl {

namespace {

/// What the journal has of one type.
struct TypeTimes
{
    QList<Outage> delays;
    QList<QDateTime> deliveredAtOnce;
};

QMap<QString, TypeTimes> readTimes(JournalFile &journal, const QDateTime &since,
                                   const QString &type)
{
    QMap<QString, TypeTimes> times;
    journal.entries({.type = type, .since = since}, [&times](const JournalEntry &entry) {
        if (!entry.first.isValid() || !entry.last.isValid())
            return true;
        const bool isKept = entry.verdict == QLatin1String("kept");
        if (isKept || entry.attempts > 1) {
            Outage delay;
            delay.type = entry.type;
            // After the clock was set back, the last attempt is the earlier one.
            delay.begin = std::min(entry.first, entry.last);
            delay.end = entry.last;
            delay.messages = 1;
            if (isKept)
                delay.kept = entry;
            times[entry.type].delays.append(delay);
        } else if (entry.verdict == QLatin1String("delivered")) {
            times[entry.type].deliveredAtOnce.append(entry.last);
        }
        return true;
    });
    return times;
}

void takeIn(Outage &outage, const Outage &delay)
{
    outage.end = std::max(outage.end, delay.end);
    ++outage.messages;
    if (delay.kept && (!outage.kept || delay.kept->last > outage.kept->last))
        outage.kept = delay.kept;
}

/// Delays that overlap are one outage.
QList<Outage> merged(QList<Outage> delays)
{
    std::sort(delays.begin(), delays.end(),
              [](const Outage &a, const Outage &b) { return a.begin < b.begin; });
    QList<Outage> outages;
    for (const Outage &delay : std::as_const(delays)) {
        if (!outages.isEmpty() && delay.begin <= outages.last().end)
            takeIn(outages.last(), delay);
        else
            outages.append(delay);
    }
    return outages;
}

} // namespace

QList<Outage> outagesSince(JournalFile &journal, const QDateTime &since, const QString &type)
{
    const QMap<QString, TypeTimes> times = readTimes(journal, since, type);
    const QHash<QString, Streak> streaks = journal.streaks();
    QList<Outage> result;
    for (const auto &[name, ofType] : times.asKeyValueRange()) {
        QList<Outage> outages = merged(ofType.delays);
        for (Outage &outage : outages) {
            outage.deliveredMeanwhile = static_cast<int>(
                std::count_if(ofType.deliveredAtOnce.cbegin(), ofType.deliveredAtOnce.cend(),
                              [&outage](const QDateTime &time) {
                                  return time >= outage.begin && time <= outage.end;
                              }));
        }
        // The row of a message that stayed may have been deleted by hand since.
        if (!outages.isEmpty() && outages.last().kept)
            outages.last().goesOn = streaks.value(name).failingSince.isValid();
        result += outages;
    }
    std::sort(result.begin(), result.end(),
              [](const Outage &a, const Outage &b) { return a.begin < b.begin; });
    return result;
}

} // namespace queuectl
