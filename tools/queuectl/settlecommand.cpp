#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "tools/queuectl/actors.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/entrytext.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/progress.h"
#include "tools/queuectl/shape.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"
#include "tools/queuectl/todaytable.h"

#include <QDeadlineTimer>
#include <QMap>
#include <QSet>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <numeric>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace queuectl {

namespace {

constexpr int usualWaitSeconds = 30;
constexpr auto lookInterval = 500ms;
/// A pass ends at the first refusal, so the rows after it need further starts.
constexpr auto askInterval = 2000ms;
/// The service writes its record once a second.
constexpr auto recordDelay = 1200ms;

/// Rows of one type that wait for one cause.
struct Blocker
{
    QString type;
    Cause cause = Cause::Turn;
    int count = 0;
    /// The one with the smallest id.
    Row oldest;
    /// The newest answer to one of them.
    std::optional<JournalEntry> entry;
};

int rowsOf(const QList<TypeRows> &types)
{
    int sum = 0;
    for (const TypeRows &type : types)
        sum += type.count;
    return sum;
}

/// What the service is asked while rows wait.
class Settlement
{
public:
    explicit Settlement(Cutoff cutoff)
        : cutoff(std::move(cutoff))
    {
    }

    /// Has the service try the types until nothing older waits, or the time is over.
    void wait(std::chrono::seconds limit, bool isProgressShown);
    QList<Blocker> blockers();

    PortState service = PortState::Nobody;
    bool isStandby = false;
    /// Types whose worker the service did not start when it was last asked.
    QSet<QString> refused;
    QSet<QString> asked;

private:
    void look();
    void ask(const QList<TypeRows> &types);

    Cutoff cutoff;
    MessageRows rows;
};

void Settlement::look()
{
    service = controlPortState();
    const auto holder = FolderLock::holder(serviceLockFile());
    isStandby = service == PortState::Service && holder
                && (holder->role == u"standby" || holder->role == u"undecided");
}

void Settlement::ask(const QList<TypeRows> &types)
{
    for (const TypeRows &type : types) {
        if (!isDelivered(type.type))
            continue;
        const StartAnswer answer = askStart(type.type);
        // A service that hangs would take up the whole time, type by type.
        if (answer.state == StartAnswer::State::NoAnswer) {
            look();
            return;
        }
        asked.insert(type.type);
        if (answer.state == StartAnswer::State::Refused)
            refused.insert(type.type);
        else
            refused.remove(type.type);
    }
}

void Settlement::wait(std::chrono::seconds limit, bool isProgressShown)
{
    look();
    if (limit == 0s)
        return;
    // Rows on a server may be delivered by the service of another machine.
    const bool hasOthers = databaseFile().isEmpty();
    const QDeadlineTimer end(limit);
    QDeadlineTimer nextAsking(0);
    Progress progress(limit.count(), isProgressShown);
    while (service == PortState::Service || hasOthers) {
        const QList<TypeRows> types = rows.older(cutoff);
        if (types.isEmpty())
            return;
        const bool isAnyDelivered =
            std::any_of(types.cbegin(), types.cend(),
                        [](const TypeRows &type) { return isDelivered(type.type); });
        if (end.hasExpired() || !isAnyDelivered)
            break;
        if (nextAsking.hasExpired() && service == PortState::Service && !isStandby) {
            ask(types);
            nextAsking = QDeadlineTimer(askInterval);
        }
        progress.show(
            // Whole seconds that have passed.
            limit.count() - (end.remainingTime() + 999) / 1000,
            text("seconds; rows that wait: %1", "секунд; ждут строк: %1").arg(rowsOf(types)));
        QThread::msleep(static_cast<unsigned long>(lookInterval.count()));
    }
    if (!asked.isEmpty())
        QThread::msleep(static_cast<unsigned long>(recordDelay.count()));
}

QList<Blocker> Settlement::blockers()
{
    const Situation situation = Situation::read();
    QMap<QPair<QString, Cause>, Blocker> found;
    const QList<TypeRows> types = rows.older(cutoff);
    for (const TypeRows &type : types) {
        eachRow(rows, situation, type.type,
                [&](const Row &row, const std::optional<JournalEntry> &entry) {
                    if (!cutoff.takesIn(row))
                        return;
                    const Cause cause = situation.cause(row, entry);
                    Blocker &blocker = found[{row.type, cause}];
                    if (blocker.count++ == 0) {
                        blocker.type = row.type;
                        blocker.cause = cause;
                        blocker.oldest = row;
                    }
                    if (entry && (!blocker.entry || entry->last > blocker.entry->last))
                        blocker.entry = entry;
                });
    }
    return found.values();
}

Cutoff cutoffOf(const Call &call, MessageRows &rows)
{
    Cutoff cutoff;
    // Rows have whole seconds; one of this second is told by its id.
    cutoff.before = QDateTime::fromSecsSinceEpoch(QDateTime::currentSecsSinceEpoch());
    if (call.has(u"before"_s))
        cutoff.before = readTime(u"before"_s, call.value(u"before"_s), DayEnd::First);
    else
        cutoff.lastId = rows.lastId();
    cutoff.types = call.lists.value(u"type"_s);
    for (const QString &type : std::as_const(cutoff.types)) {
        // A slip of the finger must not pass for a type of which nothing waits.
        if (rows.count(type) == 0)
            requireDelivered(type);
    }
    return cutoff;
}

QJsonObject blockerRecord(const Blocker &blocker, const Settlement &settlement,
                          const QDateTime &started)
{
    const Row &row = blocker.oldest;
    const PortState service = settlement.service;
    const QString address = destinationOf(row.type, row.object().value_or(QJsonObject()));
    const QString answer = blocker.entry ? answerOf(*blocker.entry) : QString();
    return {{u"type"_s, blocker.type},
            {u"rows"_s, blocker.count},
            {u"id"_s, row.id},
            {u"oldestAgeSeconds"_s,
             row.creationTime.isValid() ? QJsonValue(row.ageSeconds()) : QJsonValue()},
            {u"destination"_s, address.isEmpty() ? QJsonValue() : QJsonValue(address)},
            {u"cause"_s, causeName(blocker.cause)},
            {u"causeText"_s, causeText(blocker.cause)},
            {u"answer"_s, answer.isEmpty() ? QJsonValue() : QJsonValue(answer)},
            {u"tried"_s, blocker.entry && blocker.entry->last >= started},
            {u"started"_s,
             settlement.asked.contains(blocker.type) && !settlement.refused.contains(blocker.type)},
            {u"who"_s, actorName(actorFor(blocker.cause, service))},
            {u"whoText"_s, actorTitle(actorFor(blocker.cause, service))},
            {u"action"_s, actionText(blocker.cause, service, blocker.type, address, row.id)}};
}

/// What kept the service from trying, as far as that is known.
QString hindrance(const Settlement &settlement)
{
    switch (settlement.service) {
    case PortState::Nobody:
        return text("The service does not run: nobody listens on 127.0.0.1:%1.",
                    "Служба не запущена: на 127.0.0.1:%1 никто не отвечает.")
            .arg(controlPort());
    case PortState::Other:
        return text("The service does not answer on 127.0.0.1:%1: another program has its port, or "
                    "it hangs.",
                    "Служба не отвечает на 127.0.0.1:%1: порт занят другой программой, или служба "
                    "зависла.")
            .arg(controlPort());
    case PortState::Service:
        break;
    }
    if (settlement.isStandby)
        return text("The service of this machine is a stand-by; the one that delivers could not be "
                    "asked.",
                    "Служба этой машины в резерве; ту, что доставляет, отсюда попросить нельзя.");
    if (settlement.refused.isEmpty())
        return {};
    QStringList types(settlement.refused.cbegin(), settlement.refused.cend());
    types.sort();
    return text("The service did not start the workers of %1: it runs as many as it may, or "
                "another service delivers.",
                "Служба не запустила обработчики %1: достигнут лимит количества потоков, или "
                "доставляет другая служба.")
        .arg(types.join(u", "_s));
}

void render(Report &report, const Settlement &settlement)
{
    report.line(QString());
    report.table(
        u"blocking"_s,
        {{u"type"_s, text("Type", "Тип")},
         {u"rows"_s, text("Rows", "Строк"), Format::Plain, true},
         {u"oldestAgeSeconds"_s, text("Oldest", "Старшей"), Format::Duration, true},
         {u"causeText"_s, text("Cause", "Причина")},
         {u"tried"_s, text("Tried now", "Попытка сейчас"), Format::YesNo},
         {u"whoText"_s, text("Who must act", "Кто действует")},
         {u"answer"_s, text("Last answer", "Последний ответ"), Format::Plain, false, answerWidth}});
    report.line(QString());
    for (const QJsonValue &value : report.data.value(u"blocking"_s).toArray()) {
        const QJsonObject record = value.toObject();
        report.line(u"%1: %2."_s.arg(shortened(record.value(u"type"_s).toString(), usualWidth),
                                     record.value(u"action"_s).toString()));
    }
    const QString reason = hindrance(settlement);
    if (!reason.isEmpty())
        report.line(reason, Tone::Bad);
}

/// A message that was dropped blocks nothing, but what it asked for is not done.
void addDropped(Report &report, const QStringList &types)
{
    JournalFile journal;
    QHash<QString, Ended> ended = journal.ended(QDate::currentDate().startOfDay());
    const bool isKnown = journal.state() == JournalFile::State::Read;
    ended.removeIf(
        [&types](const auto &entry) { return !types.isEmpty() && !types.contains(entry.key()); });
    const int count =
        std::accumulate(ended.cbegin(), ended.cend(), 0,
                        [](int sum, const Ended &each) { return sum + each.dropped; });
    report.data.insert(u"droppedToday"_s, isKnown ? QJsonValue(count) : QJsonValue());
    if (count > 0)
        report.line(droppedSentence(droppedByType(ended)), Tone::Careful);
}

} // namespace

Report settle(const Call &call)
{
    const QDateTime started = QDateTime::currentDateTime();
    const std::chrono::seconds limit(call.number(u"wait"_s, usualWaitSeconds, 0));
    MessageRows rows;
    const Cutoff cutoff = cutoffOf(call, rows);
    Settlement settlement(cutoff);
    QList<Blocker> blockers = settlement.blockers();
    if (!blockers.isEmpty()) {
        settlement.wait(limit, !call.isJson);
        blockers = settlement.blockers();
    }

    Report report;
    QJsonArray records;
    int waiting = 0;
    for (const Blocker &blocker : std::as_const(blockers)) {
        records.append(blockerRecord(blocker, settlement, started));
        waiting += blocker.count;
    }
    report.data = {{u"settled"_s, blockers.isEmpty()},
                   {u"before"_s, jsonTime(cutoff.before)},
                   {u"waiting"_s, waiting},
                   {u"blocking"_s, records}};
    const QString time = timeText(cutoff.before);
    if (blockers.isEmpty()) {
        report.line(text("The shift may be closed: no row that was written before %1 waits.",
                         "Смену можно закрыть: строк, записанных до %1, в очереди нет.")
                        .arg(time),
                    Tone::Good);
        addDropped(report, cutoff.types);
        return report;
    }
    report.data.insert(u"service"_s, settlement.service == PortState::Service ? u"ok"_s
                                     : settlement.service == PortState::Other ? u"other"_s
                                                                              : u"silent"_s);
    report.data.insert(u"standby"_s, settlement.isStandby);
    report.line(text("The shift should not be closed: rows that were written before %1 wait (%2).",
                     "Смену закрывать рано: ждут строки, записанные до %1 (%2).")
                    .arg(time, QString::number(waiting)),
                Tone::Bad);
    render(report, settlement);
    addDropped(report, cutoff.types);
    const bool isAlone = !databaseFile().isEmpty();
    report.exitCode = settlement.service != PortState::Service && isAlone ? NoService : Found;
    return report;
}

} // namespace queuectl
