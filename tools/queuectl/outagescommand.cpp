#include "tools/queuectl/cause.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/entrytext.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/outages.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const QString usualSince = u"today"_s;
constexpr qsizetype wordsWidth = 80;

QJsonObject outageRecord(const Outage &outage, const QDateTime &now)
{
    const QDateTime end = outage.goesOn ? now : outage.end;
    return {{u"type"_s, outage.type},
            {u"from"_s, jsonTime(outage.begin)},
            {u"until"_s, jsonTime(outage.goesOn ? QDateTime() : outage.end)},
            {u"seconds"_s, outage.begin.secsTo(end)},
            {u"messages"_s, outage.messages},
            {u"deliveredMeanwhile"_s, outage.deliveredMeanwhile},
            {u"cause"_s,
             outage.kept ? QJsonValue(causeName(causeOfKind(outage.kept->kind))) : QJsonValue()},
            {u"answer"_s, outage.kept ? QJsonValue(answerOf(*outage.kept)) : QJsonValue()}};
}

void render(Report &report)
{
    report.table(
        u"outages"_s,
        {{u"from"_s, text("From", "С"), Format::Time},
         {u"until"_s, text("Until", "До"), Format::Time},
         {u"seconds"_s, text("Lasted", "Длилось"), Format::Duration, true},
         {u"type"_s, text("Type", "Тип")},
         {u"messages"_s, text("Delayed", "Задержано"), Format::Plain, true},
         {u"deliveredMeanwhile"_s, text("Delivered", "Доставлено"), Format::Plain, true},
         {u"answer"_s, text("Last failure", "Последний отказ"), Format::Plain, false, wordsWidth}});
    report.line(QString());
    report.line(
        text("Delayed: messages that were tried again, or still wait; without an end: it goes on.",
             "Задержано: сообщения с повторными попытками и те, что ещё ждут; без конца — "
             "продолжается."));
    report.line(text("Delivered: those that went out at once meanwhile. 0: the service was away.",
                     "Доставлено: сообщения, ушедшие в это время сразу. 0 — сервис был "
                     "недоступен."));
}

} // namespace

Report showOutages(const Call &call)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QDateTime since =
        readTime(u"since"_s, call.value(u"since"_s, usualSince), DayEnd::First, now);
    const QString type = call.value(u"type"_s);
    JournalFile journal;
    const QList<Outage> outages = outagesSince(journal, since, type);
    if (journal.state() != JournalFile::State::Read)
        throw Failure(journal.state() == JournalFile::State::Missing ? NotFound : Failed,
                      journal.why());
    if (outages.isEmpty() && !type.isEmpty())
        requireDelivered(type);

    Report report;
    QJsonArray records;
    for (const Outage &outage : outages)
        records.append(outageRecord(outage, now));
    report.data = {{u"since"_s, jsonTime(since)}, {u"outages"_s, records}};
    if (outages.isEmpty())
        report.line(text("Every message since %1 was finished with at its first attempt.",
                         "С %1 каждое сообщение уходило с первой попытки.")
                        .arg(timeText(since)),
                    Tone::Good);
    else
        render(report);
    return report;
}

} // namespace queuectl
