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
    QStringList dropped;
    for (const QString &type : std::as_const(types)) {
        const Ended ended = situation.today.value(type);
        sum.delivered += ended.delivered;
        sum.dropped += ended.dropped;
        if (ended.delivered == 0 && ended.dropped == 0)
            continue;
        if (ended.dropped > 0)
            dropped.append(
                u"%1: %2"_s.arg(shortened(type, usualWidth), QString::number(ended.dropped)));
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
    if (!dropped.isEmpty())
        report.line(text("Dropped: %1 (queuectl history --verdict dropped --since today)",
                         "Снято с доставки: %1 (queuectl history --verdict dropped --since today)")
                        .arg(dropped.join(u", "_s)),
                    Tone::Careful);
}

} // namespace queuectl
