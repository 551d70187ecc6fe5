#include "tools/queuectl/todaytable.h"

#include "tools/queuectl/text.h"

using namespace Qt::StringLiterals;

namespace queuectl {

void addToday(Report &report, const Situation &situation)
{
    QStringList types = situation.today.keys();
    types.sort();
    QJsonArray records;
    Ended sum;
    for (const QString &type : std::as_const(types)) {
        const Ended ended = situation.today.value(type);
        sum.delivered += ended.delivered;
        sum.dropped += ended.dropped;
        if (ended.delivered == 0 && ended.dropped == 0)
            continue;
        records.append(QJsonObject{
            {u"type"_s, type}, {u"delivered"_s, ended.delivered}, {u"dropped"_s, ended.dropped}});
    }
    JournalFile &journal = situation.journal();
    report.data.insert(u"journal"_s,
                       QJsonObject{{u"state"_s, journal.stateName()}, {u"file"_s, journal.path()}});
    report.data.insert(u"today"_s, records);
    const QString reason = journal.why();
    report.data.insert(u"deliveredToday"_s,
                       reason.isEmpty() ? QJsonValue(sum.delivered) : QJsonValue());
    report.data.insert(u"droppedToday"_s,
                       reason.isEmpty() ? QJsonValue(sum.dropped) : QJsonValue());
    if (!reason.isEmpty()) {
        report.line(reason, Tone::Careful);
        return;
    }
    report.line(
        text("Today delivered: %1, dropped: %2", "Сегодня доставлено: %1, снято с доставки: %2")
            .arg(QString::number(sum.delivered), QString::number(sum.dropped)),
        sum.dropped > 0 ? Tone::Careful : Tone::Plain);
    const QString dropped = droppedByType(situation.today);
    if (!dropped.isEmpty())
        report.line(droppedSentence(dropped), Tone::Careful);
}

QString droppedByType(const QHash<QString, Ended> &ended)
{
    QStringList parts;
    for (const auto &[type, counts] : ended.asKeyValueRange()) {
        if (counts.dropped > 0)
            parts.append(
                u"%1: %2"_s.arg(shortened(type, usualWidth), QString::number(counts.dropped)));
    }
    parts.sort();
    return parts.join(u", "_s);
}

QString droppedSentence(const QString &byType)
{
    return text("Dropped: %1 (queuectl history --verdict dropped --since today)",
                "Снято с доставки: %1 (queuectl history --verdict dropped --since today)")
        .arg(byType);
}

} // namespace queuectl
