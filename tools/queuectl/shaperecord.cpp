#include "tools/queuectl/shaperecord.h"

#include "tools/queuectl/json.h"
#include "tools/queuectl/text.h"

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

QString stateSince(Cause cause, const QDateTime &since)
{
    const QString time = since.isValid() && since.date() == QDate::currentDate()
                             ? since.toString(u"HH:mm"_s)
                             : timeText(since);
    switch (cause) {
    case Cause::Turn:
        return text("waits for its turn", "ждут очереди");
    case Cause::Unknown:
        return text("not known whether it was tried (no record of it)",
                    "были ли попытки, неизвестно (записей нет)");
    case Cause::Network:
    case Cause::Certificate:
    case Cause::Service:
        return since.isValid() ? text("down since %1", "не работает с %1").arg(time)
                               : text("down", "не работает");
    case Cause::NoHandler:
    case Cause::Body:
    case Cause::Repeat:
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
    case Cause::Repeat:
        return u"stuck"_s;
    default:
        return u"refusing"_s;
    }
}

QJsonObject groupRecord(const ShapeGroup &group)
{
    const AgeClass &ageClass = ageClasses()[group.ageClass];
    return {{u"type"_s, group.type},
            {u"age"_s, ageClass.name},
            {u"ageText"_s, text(ageClass.english, ageClass.russian)},
            {u"cause"_s, causeName(group.cause)},
            {u"causeText"_s, causeText(group.cause)},
            {u"rows"_s, group.count},
            {u"oldestAgeSeconds"_s, group.oldestSeconds}};
}

QJsonObject destinationRecord(const ShapeDestination &destination)
{
    return {{u"destination"_s,
             destination.address.isEmpty() ? QJsonValue() : QJsonValue(destination.address)},
            {u"state"_s, stateName(destination.cause)},
            {u"cause"_s, causeName(destination.cause)},
            {u"since"_s, jsonTime(destination.since)},
            {u"rows"_s, destination.count},
            {u"oldestAgeSeconds"_s, destination.oldestSeconds},
            {u"deliveredToday"_s, destination.today.delivered},
            {u"droppedToday"_s, destination.today.dropped},
            {u"types"_s, QJsonArray::fromStringList(destination.types)},
            {u"text"_s, destinationText(destination)}};
}

} // namespace

QString stateText(const ShapeDestination &destination)
{
    return stateSince(destination.cause, destination.since);
}

QString destinationText(const ShapeDestination &destination)
{
    const QString title = destination.address.isEmpty()
                              ? text("%1 (no address in the row)", "%1 (в строке нет адреса)")
                                    .arg(destination.types.join(u", "_s))
                              : destination.address;
    QString line = text("%1: %2, rows: %3, oldest %4", "%1: %2, строк: %3, старшей %4")
                       .arg(title, stateText(destination), QString::number(destination.count),
                            durationText(destination.oldestSeconds));
    const auto &[delivered, dropped] = destination.today;
    if (delivered > 0 || dropped > 0)
        line += text("; today delivered: %1, dropped: %2",
                     "; сегодня доставлено: %1, снято с доставки: %2")
                    .arg(QString::number(delivered), QString::number(dropped));
    return line;
}

QJsonObject shapeRecord(const Shape &shape)
{
    QJsonArray groups;
    for (const ShapeGroup &group : shape.groups)
        groups.append(groupRecord(group));
    QJsonArray destinations;
    for (const ShapeDestination &destination : shape.destinations)
        destinations.append(destinationRecord(destination));
    return {{u"waiting"_s, shape.total}, {u"destinations"_s, destinations}, {u"rows"_s, groups}};
}

} // namespace queuectl
