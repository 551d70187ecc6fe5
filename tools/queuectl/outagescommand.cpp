#include "tools/queuectl/cause.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/entrytext.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/outages.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const QString usualSince = u"today"_s;
/// A shorter one is a single retry.
constexpr qint64 shortestSeconds = 1;

QJsonObject outageRecord(const Outage &outage, JournalFile &journal)
{
    // Why a message that was delivered in the end had failed before is not recorded.
    const auto kept = outage.isOngoing ? journal.lastKept(outage.type) : std::nullopt;
    return {{u"type"_s, outage.type},
            {u"from"_s, jsonTime(outage.begin)},
            {u"until"_s, outage.isOngoing ? QJsonValue() : jsonTime(outage.end)},
            {u"seconds"_s, outage.seconds()},
            {u"messages"_s, outage.messages},
            {u"cause"_s, kept ? QJsonValue(causeName(causeOfKind(kept->kind))) : QJsonValue()},
            {u"answer"_s, kept ? QJsonValue(answerOf(*kept)) : QJsonValue()}};
}

void render(Report &report)
{
    report.table(u"outages"_s, {{u"from"_s, text("From", "С"), Format::Time},
                                {u"until"_s, text("Until", "До"), Format::Time},
                                {u"seconds"_s, text("Lasted", "Длилось"), Format::Duration, true},
                                {u"type"_s, text("Type", "Тип")},
                                {u"messages"_s, text("Delayed", "Задержано"), Format::Plain, true},
                                {u"answer"_s, text("Last failure", "Последний отказ"),
                                 Format::Plain, false, answerColumnWidth}});
    report.line(QString());
    report.line(
        text("Delayed: messages that failed in this time. Without an end the outage goes on.",
             "Задержано: сообщения с отказами за это время. Без конца — сбой продолжается."));
}

} // namespace

Report showOutages(const Call &call)
{
    const QDateTime now = QDateTime::currentDateTime();
    const QDateTime since =
        readTime(u"since"_s, call.value(u"since"_s, usualSince), DayEnd::First, now);
    const QString type = call.value(u"type"_s);
    JournalFile journal;
    QList<Outage> outages = findOutages(journal, since, now, shortestSeconds);
    if (journal.state() != JournalFile::State::Read)
        throw Failure(journal.state() == JournalFile::State::Missing ? NotFound : Failed,
                      journal.why());
    if (!type.isEmpty())
        outages.removeIf([&type](const Outage &outage) { return outage.type != type; });
    if (outages.isEmpty() && !type.isEmpty())
        requireDelivered(type);
    std::sort(outages.begin(), outages.end(),
              [](const Outage &a, const Outage &b) { return a.begin < b.begin; });

    Report report;
    QJsonArray records;
    for (const Outage &outage : outages)
        records.append(outageRecord(outage, journal));
    report.data = {{u"since"_s, jsonTime(since)}, {u"outages"_s, records}};
    if (outages.isEmpty())
        report.line(text("No service was away since %1.", "С %1 сервисы были доступны.")
                        .arg(timeText(since)),
                    Tone::Good);
    else
        render(report);
    return report;
}

} // namespace queuectl
