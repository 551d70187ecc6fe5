#include "tools/queuectl/command.h"
#include "tools/queuectl/situation.h"
#include "tools/queuectl/text.h"

#include <QMap>
#include <QSet>

#include <algorithm>
#include <limits>
#include <tuple>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int pageRows = 500;

struct AgeClass
{
    QString name;
    qint64 below;
    const char *english;
    const char *russian;
};

const QList<AgeClass> &ageClasses()
{
    static const QList<AgeClass> classes = {
        {u"minutes"_s, 600, "up to 10 min", "до 10 мин"},
        {u"hour"_s, 3600, "10 min to 1 h", "от 10 мин до 1 ч"},
        {u"day"_s, 86400, "1 h to 1 d", "от 1 ч до 1 д"},
        {u"older"_s, std::numeric_limits<qint64>::max(), "over 1 d", "больше 1 д"},
    };
    return classes;
}

int ageClassOf(qint64 seconds)
{
    int index = 0;
    while (seconds >= ageClasses()[index].below)
        ++index;
    return index;
}

struct Group
{
    int count = 0;
    qint64 oldestSeconds = 0;

    void add(const Row &row)
    {
        ++count;
        oldestSeconds = std::max(oldestSeconds, row.ageSeconds());
    }
};

struct Destination
{
    Group all;
    QMap<int, int> causes;
    QSet<QString> types;
    /// Since when it fails, by the log.
    QDateTime since;
};

/// What most of the rows that have been tried wait for; their turn when none has been.
Cause mainCause(const Destination &destination)
{
    Cause best = destination.causes.contains(static_cast<int>(Cause::Unknown)) ? Cause::Unknown
                                                                               : Cause::Turn;
    int most = 0;
    for (const auto &[number, count] : destination.causes.asKeyValueRange()) {
        const auto cause = static_cast<Cause>(number);
        if (cause == Cause::Turn || cause == Cause::Unknown || count <= most)
            continue;
        best = cause;
        most = count;
    }
    return best;
}

QString stateText(Cause cause, const QDateTime &since)
{
    const QString time = since.isValid() && since.date() == QDate::currentDate()
                             ? since.toString(u"HH:mm"_s)
                             : timeText(since);
    switch (cause) {
    case Cause::Turn:
        return text("waits for its turn", "ждут очереди");
    case Cause::Unknown:
        return text("not known whether it was tried (no log of it)",
                    "были ли попытки, неизвестно (нет журнала)");
    case Cause::Network:
    case Cause::Certificate:
    case Cause::Service:
        return since.isValid() ? text("down since %1", "не работает с %1").arg(time)
                               : text("down", "не работает");
    case Cause::NoHandler:
    case Cause::Body:
        return causeText(cause);
    default:
        break;
    }
    return since.isValid() ? text("refuses since %1", "отказывает с %1").arg(time)
                           : text("refuses", "отказывает");
}

QString stateName(Cause cause)
{
    switch (cause) {
    case Cause::Turn:
        return u"waiting"_s;
    case Cause::Unknown:
        return u"unknown"_s;
    case Cause::Network:
    case Cause::Certificate:
    case Cause::Service:
        return u"down"_s;
    case Cause::NoHandler:
    case Cause::Body:
        return u"stuck"_s;
    default:
        return u"refusing"_s;
    }
}

} // namespace

Report showShape(const Call & /*call*/)
{
    const Situation situation = Situation::read();
    MessageRows rows;
    QMap<std::tuple<QString, int, int>, Group> groups;
    // By address; rows without one by their type, since nothing shows that they go to one place.
    QMap<QPair<QString, QString>, Destination> destinations;
    int total = 0;
    int after = -1;
    while (true) {
        const QList<Row> page = rows.page(QString(), after, pageRows);
        for (const Row &row : page) {
            const Cause cause = situation.cause(row);
            groups[{row.type, ageClassOf(row.ageSeconds()), static_cast<int>(cause)}].add(row);
            const auto body = row.object();
            const QString address = destinationOf(row.type, body.value_or(QJsonObject()));
            Destination &destination =
                destinations[{address, address.isEmpty() ? row.type : QString()}];
            destination.all.add(row);
            ++destination.causes[static_cast<int>(cause)];
            destination.types.insert(row.type);
            const QDateTime since = situation.log.history(row.type).failingSince;
            if (cause != Cause::Turn && cause != Cause::Unknown && since.isValid()
                && (!destination.since.isValid() || since < destination.since))
                destination.since = since;
            ++total;
        }
        if (page.size() < pageRows)
            break;
        after = page.last().id;
    }

    QJsonArray groupRecords;
    for (const auto &[key, group] : groups.asKeyValueRange()) {
        const auto &[type, age, cause] = key;
        const AgeClass &ageClass = ageClasses()[age];
        groupRecords.append(QJsonObject{{u"type"_s, type},
                                        {u"age"_s, ageClass.name},
                                        {u"ageText"_s, text(ageClass.english, ageClass.russian)},
                                        {u"cause"_s, causeName(static_cast<Cause>(cause))},
                                        {u"causeText"_s, causeText(static_cast<Cause>(cause))},
                                        {u"rows"_s, group.count},
                                        {u"oldestAgeSeconds"_s, group.oldestSeconds}});
    }
    QList<QPair<QString, Destination>> sorted;
    for (const auto &[place, destination] : destinations.asKeyValueRange())
        sorted.append({place.first, destination});
    std::stable_sort(sorted.begin(), sorted.end(), [](const auto &a, const auto &b) {
        return a.second.all.count > b.second.all.count;
    });

    Report report;
    QJsonArray destinationRecords;
    for (const auto &[name, destination] : std::as_const(sorted)) {
        const Cause cause = mainCause(destination);
        QStringList types(destination.types.cbegin(), destination.types.cend());
        types.sort();
        const QString title = name.isEmpty()
                                  ? text("%1 (no address in the row)", "%1 (в строке нет адреса)")
                                        .arg(types.join(u", "_s))
                                  : name;
        const QString line = text("%1: %2, rows: %3, oldest %4", "%1: %2, строк: %3, старшей %4")
                                 .arg(title, stateText(cause, destination.since),
                                      QString::number(destination.all.count),
                                      durationText(destination.all.oldestSeconds));
        destinationRecords.append(
            QJsonObject{{u"destination"_s, name.isEmpty() ? QJsonValue() : QJsonValue(name)},
                        {u"state"_s, stateName(cause)},
                        {u"cause"_s, causeName(cause)},
                        {u"since"_s, destination.since.isValid()
                                         ? QJsonValue(destination.since.toString(Qt::ISODate))
                                         : QJsonValue()},
                        {u"rows"_s, destination.all.count},
                        {u"oldestAgeSeconds"_s, destination.all.oldestSeconds},
                        {u"types"_s, QJsonArray::fromStringList(types)},
                        {u"text"_s, line}});
        report.line(line, cause == Cause::Turn      ? Tone::Plain
                          : cause == Cause::Unknown ? Tone::Careful
                                                    : Tone::Bad);
    }
    report.data = {
        {u"waiting"_s, total}, {u"destinations"_s, destinationRecords}, {u"rows"_s, groupRecords}};
    if (total == 0) {
        report.line(text("Nothing waits.", "Очередь пуста."), Tone::Good);
        return report;
    }
    report.line(QString());
    report.table(u"rows"_s,
                 {{u"type"_s, text("Type", "Тип")},
                  {u"ageText"_s, text("Age", "Ждёт")},
                  {u"causeText"_s, text("Cause", "Причина")},
                  {u"rows"_s, text("Rows", "Строк"), Format::Plain, true},
                  {u"oldestAgeSeconds"_s, text("Oldest", "Старшей"), Format::Duration, true}});
    return report;
}

} // namespace queuectl
