#include "tools/queuectl/page/pagevalues.h"

#include "tools/queuectl/command.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/entrytext.h"
#include "tools/queuectl/masking.h"
#include "tools/queuectl/settingsfiles.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/versions.h"

#include <QMap>
#include <QSysInfo>

#include <algorithm>
#include <numeric>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// A shorter one is usually a single retry.
constexpr qint64 shortestOutageSeconds = 60;
constexpr int mostTypes = 60;
constexpr int mostWaitingTypes = 40;
constexpr int mostDestinations = 30;
constexpr int mostConcerns = 30;
constexpr int mostOutages = 40;
constexpr int mostDropped = 50;
constexpr qsizetype mostSettingsLetters = 20'000;
constexpr qsizetype longestName = 60;
constexpr qsizetype longestAnswer = 300;
/// Masking costs time by the length; what comes after this much is not shown anyway.
constexpr qsizetype readLetters = 4000;

/// A text from outside, in one line.
QString shown(const QString &outside, qsizetype longest)
{
    return shortened(withoutLongNumbers(maskedText(outside.left(readLetters))).simplified(),
                     longest);
}

QString shownName(const QString &outside)
{
    return shown(outside, longestName);
}

/// Leaves the first `most` entries and returns how many there were besides.
template <typename T>
int cut(QList<T> &list, qsizetype most)
{
    const qsizetype further = std::max<qsizetype>(0, list.size() - most);
    list.resize(list.size() - further);
    return static_cast<int>(further);
}

void add(QList<int> &parts, int part, int count, int &sum)
{
    parts[part] += count;
    sum += count;
}

void addTo(TypeFlow &type, QuarterCount::What what, int part, int count)
{
    switch (what) {
    case QuarterCount::What::Delivered:
        return add(type.flow.delivered, part, count, type.delivered);
    case QuarterCount::What::Dropped:
        return add(type.flow.dropped, part, count, type.dropped);
    case QuarterCount::What::Failed:
        return add(type.flow.failed, part, count, type.failed);
    }
}

/// The types by their names, and the sum of all.
void collectFlow(PageValues &page, JournalFile &journal, const QHash<QString, Streak> &streaks,
                 const QSet<QString> &waitingTypes)
{
    const TimeScale &scale = page.scale;
    QMap<QString, TypeFlow> types;
    TypeFlow all;
    all.flow = Flow(scale.count());
    const auto typeOf = [&](const QString &name) -> TypeFlow & {
        TypeFlow &type = types[name];
        if (type.flow.delivered.isEmpty()) {
            type.type = name;
            type.flow = Flow(scale.count());
        }
        return type;
    };
    journal.countByTime(scale.begin(), [&](const QuarterCount &count) {
        // The first quarter may have begun before the time that is looked at.
        const int part = scale.partOf(std::max(count.time, scale.begin()));
        if (part < 0)
            return;
        addTo(typeOf(count.type), count.what, part, count.count);
        addTo(all, count.what, part, count.count);
    });
    for (const auto &[name, streak] : streaks.asKeyValueRange()) {
        if (streak.failingSince.isValid() && waitingTypes.contains(name))
            typeOf(name).failingSince = streak.failingSince;
    }
    page.flow = all.flow;
    page.types = types.values();
    std::stable_sort(page.types.begin(), page.types.end(),
                     [](const TypeFlow &a, const TypeFlow &b) {
                         if (a.failingSince.isValid() != b.failingSince.isValid())
                             return a.failingSince.isValid();
                         return a.delivered + a.dropped > b.delivered + b.dropped;
                     });
    page.furtherTypes = cut(page.types, mostTypes);
    for (TypeFlow &type : page.types)
        type.type = shownName(type.type);
}

void collectOutages(PageValues &page, JournalFile &journal)
{
    page.outages =
        findOutages(journal, page.scale.begin(), page.scale.end(), shortestOutageSeconds);
    std::stable_sort(page.outages.begin(), page.outages.end(), [](const auto &a, const auto &b) {
        return a.isOngoing != b.isOngoing ? a.isOngoing : a.seconds() > b.seconds();
    });
    page.furtherOutages = cut(page.outages, mostOutages);
    std::sort(page.outages.begin(), page.outages.end(), [](const Outage &a, const Outage &b) {
        return a.type != b.type ? a.type < b.type : a.begin < b.begin;
    });
    for (Outage &outage : page.outages)
        outage.type = shownName(outage.type);
}

void collectDropped(PageValues &page, JournalFile &journal)
{
    JournalFilter filter;
    filter.verdict = u"dropped"_s;
    filter.since = page.scale.begin();
    filter.limit = mostDropped;
    journal.entries(filter, [&page](const JournalEntry &entry) {
        if (page.dropped.size() == mostDropped)
            return false;
        page.dropped.append({entry.id, shownName(entry.type), shownName(entry.reference),
                             entry.attempts, entry.last, causeOfKind(entry.kind),
                             shown(answerOf(entry), longestAnswer)});
        return true;
    });
    const int all = totalOf(page.flow.dropped);
    page.furtherDropped = std::max(0, all - static_cast<int>(page.dropped.size()));
}

/// Where the types go: by the rows that wait, or by a setting.
void collectAddresses(PageValues &page)
{
    QMap<QString, QStringList> found;
    for (const ShapeDestination &destination : std::as_const(page.destinations)) {
        for (const QString &type : destination.types) {
            if (!destination.address.isEmpty())
                found[type].append(destination.address);
        }
    }
    for (const QString &type : deliveredTypes()) {
        const QString address = destinationOf(type, {});
        if (!found.contains(type) && !address.isEmpty())
            found.insert(type, {address});
    }
    for (const auto &[type, addresses] : found.asKeyValueRange())
        page.addresses.insert(shownName(type), shownName(addresses.join(u", "_s)));
}

template <typename Rows, typename Member>
void sortByMost(QList<Rows> &list, Member Rows::*count)
{
    std::stable_sort(list.begin(), list.end(),
                     [count](const Rows &a, const Rows &b) { return a.*count > b.*count; });
}

void collectWaiting(PageValues &page, const Shape &shape)
{
    QMap<Cause, WaitingCause> causes;
    QMap<std::pair<QString, Cause>, WaitingType> types;
    for (const ShapeGroup &group : shape.groups) {
        WaitingCause &cause = causes[group.cause];
        cause.cause = group.cause;
        cause.ages.resize(ageClasses().size());
        cause.ages[group.ageClass] += group.count;
        cause.total += group.count;
        cause.oldestSeconds = std::max(cause.oldestSeconds, group.oldestSeconds);
        WaitingType &type = types[{group.type, group.cause}];
        type.type = shownName(group.type);
        type.cause = group.cause;
        type.count += group.count;
        type.oldestSeconds = std::max(type.oldestSeconds, group.oldestSeconds);
        page.oldestSeconds = std::max(page.oldestSeconds, group.oldestSeconds);
    }
    page.waiting = shape.total;
    page.waitingCauses = causes.values();
    sortByMost(page.waitingCauses, &WaitingCause::total);
    page.waitingTypes = types.values();
    sortByMost(page.waitingTypes, &WaitingType::count);
    page.furtherWaitingTypes = cut(page.waitingTypes, mostWaitingTypes);
}

void collectDestinations(PageValues &page, const Shape &shape)
{
    page.destinations = shape.destinations;
    collectAddresses(page);
    page.furtherDestinations = cut(page.destinations, mostDestinations);
    for (ShapeDestination &destination : page.destinations) {
        destination.address = shownName(destination.address);
        destination.types = {shown(destination.types.join(u", "_s), longestAnswer)};
    }
}

void collectConcerns(PageValues &page, const QList<Concern> &concerns)
{
    page.concerns = concerns;
    page.furtherConcerns = cut(page.concerns, mostConcerns);
    for (Concern &concern : page.concerns) {
        concern.type = shownName(concern.type);
        concern.text = shown(concern.text, longestAnswer);
    }
}

/// Returns the types that have rows.
QSet<QString> collectRows(PageValues &page, const Situation &situation)
{
    QSet<QString> types;
    try {
        MessageRows rows;
        const Shape shape = collectShape(rows, situation);
        collectConcerns(page, concernsOf(rows, situation));
        collectWaiting(page, shape);
        collectDestinations(page, shape);
        for (const ShapeGroup &group : shape.groups)
            types.insert(group.type);
    } catch (const BasicException &exception) {
        page.databaseFault = shown(exception.tr().ru(), longestAnswer);
    }
    return types;
}

QList<SettingsText> readSettings()
{
    QList<SettingsText> settings;
    for (const QString &path : settingsFilePaths()) {
        const QString text = maskedSettings(path).trimmed();
        if (!text.isEmpty())
            settings.append({path, shortened(text, mostSettingsLetters)});
    }
    return settings;
}

} // namespace

int totalOf(const QList<int> &values)
{
    return std::accumulate(values.cbegin(), values.cend(), 0);
}

PageValues collectPage(const QDateTime &since, const QDateTime &now)
{
    PageValues page(TimeScale(since, now));
    page.host = QSysInfo::machineHostName();
    const Situation situation = Situation::read();
    JournalFile &journal = situation.journal();
    page.hasService = controlPortState() == PortState::Service;
    const QSet<QString> waitingTypes = collectRows(page, situation);
    collectFlow(page, journal, situation.streaks, waitingTypes);
    collectOutages(page, journal);
    collectDropped(page, journal);
    const auto oldest = journal.oldest();
    if (oldest && oldest->first > since)
        page.journalBegin = oldest->first;
    page.journalFault = journal.why();
    page.settings = readSettings();
    page.versions = versionLines();
    return page;
}

} // namespace queuectl
