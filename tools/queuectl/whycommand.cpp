#include "app/settings.h"
#include "tools/catalogue/keepingrule.h"
#include "tools/queuectl/actors.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/entrytext.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/rowcheck.h"
#include "tools/queuectl/situation.h"
#include "tools/queuectl/text.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// The last answer as a part of the sentence.
QString answerText(const Row &row, Cause cause, const std::optional<JournalEntry> &entry,
                   const Situation &situation)
{
    if (entry && entry->verdict != u"kept")
        return text("the journal says that it was %1 at %2, but its row is still there",
                    "по журналу доставки %1 в %2, но строка на месте")
            .arg(verdictText(entry->verdict), timeText(entry->last));
    if (entry) {
        const QString answer = answerOf(*entry);
        const QString attempts =
            entry->attempts > 1 ? text(" (attempts: %1)", " (попыток: %1)").arg(entry->attempts)
                                : QString();
        if (answer.isEmpty())
            return text("it was tried at %1 and stayed, the answer is not recorded",
                        "попытка в %1 не удалась, ответ не записан")
                       .arg(timeText(entry->last))
                   + attempts;
        return text("the last answer, at %1, was \"%2\"", "последний ответ в %1: «%2»")
                   .arg(timeText(entry->last), answer)
               + attempts;
    }
    if (situation.wasRefused(row, entry))
        return text("it has been tried and refused, the answer is not recorded",
                    "попытка не удалась, записи о ней нет");
    if (cause == Cause::Turn)
        return text("it has not been tried yet", "попыток ещё не было");
    QString reason = situation.journal().why();
    while (reason.endsWith(u'.'))
        reason.chop(1);
    if (reason.isEmpty())
        reason = JournalFile::isEnabled()
                     ? text("the delivery journal begins after its first attempt",
                            "журнал доставки не хранит записей за это время")
                     : text("journal:enabled is off", "параметр journal:enabled выключен");
    return text("whether it has been tried is not known here: %1 (journalctl -u queue)",
                "были ли попытки, здесь неизвестно: %1 (journalctl -u queue)")
        .arg(reason);
}

/// Why the handler of the type keeps a row after such an answer.
QString keepingRule(const QString &type, Cause cause, const std::optional<JournalEntry> &entry)
{
    const catalogue::Type *known = catalogue::find(type);
    const catalogue::Outcome *outcome =
        known && entry ? catalogue::keepingRule(*known, {entry->kind, entry->status, entry->text})
                       : nullptr;
    if (!outcome)
        return text("a message of type %1 stays after this (%2; all rules: queuectl types %1)",
                    "сообщение типа %1 после этого остаётся (%2; все правила: queuectl types %1)")
            .arg(type, causeText(cause));
    QString rule = isRussian() ? outcome->whenRu : outcome->when;
    while (rule.endsWith(u'.'))
        rule.chop(1);
    return text("a message of type %1 stays after this (rule: %2)",
                "сообщение типа %1 после этого остаётся (правило: %2)")
        .arg(type, rule);
}

/// What the engine does with a row that is not finished with.
QString ruleText(const Row &row, Cause cause, const std::optional<JournalEntry> &entry)
{
    switch (cause) {
    case Cause::NoHandler:
        return text("there is no handler for type %1, so the service skips it",
                    "обработчика типа %1 нет, служба её пропускает")
            .arg(row.type);
    case Cause::Body:
        return text("its body is not a JSON object, so its handler gets an empty one",
                    "тело не объект JSON, обработчик получает пустое");
    case Cause::Turn:
    case Cause::Unknown:
    case Cause::Repeat:
        return text("rows of a type go one after another, oldest first",
                    "строки одного типа идут по одной, начиная со старшей");
    default:
        return keepingRule(row.type, cause, entry);
    }
}

struct NextTry
{
    QString text;
    /// The earliest time; invalid when unknown.
    QDateTime earliest;
};

NextTry nextTry(const Row &row, Cause cause, const Situation &situation, MessageRows &rows,
                PortState service)
{
    if (cause == Cause::NoHandler)
        return {text("it is never tried", "доставлять её никто не будет"), {}};
    if (service == PortState::Nobody)
        return {text("it is tried only when the service runs again",
                     "до запуска службы попыток не будет"),
                {}};
    if (service == PortState::Other)
        return {
            text(
                "the time of the next attempt is unknown, since the program that listens on 127.0.0.1:%1 does not answer like the service",
                "время следующей попытки неизвестно: на 127.0.0.1:%1 отвечает не служба, или служба зависла")
                .arg(controlPort()),
            {}};
    const auto period = settings::queue::timeout.value().count();
    const auto failId = situation.failIds.of(row.type);
    const auto in = [&](int polls) {
        return QDateTime::currentDateTime().addSecs(qint64(polls) * period);
    };
    if (!failId || row.id > *failId) {
        const int before =
            failId ? rows.countBehind(row.type, *failId) - rows.countBehind(row.type, row.id) - 1
                   : rows.countBefore(row.type, row.id);
        const QString when = text(
            "it is tried at the next poll, within %1 s, and each refusal of a row before it (%2) delays it by one poll",
            "она пойдёт при следующем опросе, не позже чем через %1 с, а каждый отказ по %2 строкам перед ней отодвинет её на один опрос");
        return before > 0
                   ? NextTry{when.arg(QString::number(period), QString::number(before)), in(1)}
                   : NextTry{text("it is tried at the next poll, within %1 s",
                                  "она пойдёт при следующем опросе, не позже чем через %1 с")
                                 .arg(period),
                             in(1)};
    }
    const int behind = rows.countBehind(row.type, *failId);
    if (behind > 0)
        return {
            text(
                "it is tried again after the %1 rows that follow the last refused one, in %2 s at the earliest",
                "она пойдёт снова, когда пройдут строки после последнего отказа (их %1), не раньше чем через %2 с")
                .arg(QString::number(behind), QString::number(2 * period)),
            in(2)};
    return {text("it is tried again in a new round, which begins within %1 s",
                 "она пойдёт в новом круге, он начнётся не позже чем через %1 с")
                .arg(2 * period),
            in(2)};
}

/// The row is gone: what is on record of messages with this number, the newest one first. A table
/// that is made again begins to count at 1, so there may be several.
Report explainGone(int id)
{
    JournalFile journal;
    JournalFilter filter;
    filter.id = id;
    const QList<JournalEntry> entries = journal.entries(filter);
    if (entries.isEmpty()) {
        const QString reason = journal.why();
        throw Failure(NotFound, text("There is no row %1, and there is no record of it. %2",
                                     "Строки %1 нет, и записи о ней нет. %2")
                                    .arg(QString::number(id), reason)
                                    .trimmed());
    }
    Report report;
    QJsonArray records;
    for (const JournalEntry &entry : entries) {
        QString sentence = entrySentence(entry);
        if (entry.verdict == u"kept")
            sentence += text(" Since then its row was deleted or moved by hand (queuectl "
                             "drop, queuectl requeue), or by another program.",
                             " С тех пор строки нет: её удалили или перенесли вручную (queuectl "
                             "drop, queuectl requeue) или это сделала другая программа.");
        QJsonObject record = entry.toJson();
        record.insert(u"sentence"_s, sentence);
        records.append(record);
        report.line(sentence, entry.verdict == u"delivered" ? Tone::Good : Tone::Careful);
    }
    report.data = {{u"id"_s, id},
                   {u"waiting"_s, false},
                   {u"type"_s, entries.first().type},
                   {u"verdict"_s, entries.first().verdict},
                   {u"sentence"_s, records.first()[u"sentence"_s]},
                   {u"history"_s, records}};
    return report;
}

} // namespace

Report explainRow(const Call &call)
{
    const int id = rowId(call);
    MessageRows rows;
    const auto row = rows.find(id);
    if (!row)
        return explainGone(id);
    const Situation situation = Situation::read();
    const PortState service = controlPortState();
    const std::optional<JournalEntry> entry = situation.entryOf(*row);
    const Cause cause = situation.cause(*row, entry);
    const NextTry next = nextTry(*row, cause, situation, rows, service);
    const QString answer = answerText(*row, cause, entry, situation);
    const QString rule = ruleText(*row, cause, entry);
    const QString actor =
        actionText(cause, service, row->type,
                   destinationOf(row->type, row->object().value_or(QJsonObject())), id);
    const QString sentence =
        text("Row %1 (%2) has waited for %3: %4; %5; %6; %7.",
             "Строка %1 (%2) ждёт %3: %4; %5; %6; %7.")
            .arg(QString::number(id), row->type, durationText(row->ageSeconds()), answer, rule,
                 next.text, actor);

    Report report;
    report.data = {{u"id"_s, id},
                   {u"waiting"_s, true},
                   {u"type"_s, row->type},
                   {u"ageSeconds"_s, row->ageSeconds()},
                   {u"cause"_s, causeName(cause)},
                   {u"lastAnswer"_s, answer},
                   {u"attempts"_s, entry ? entry->attempts : 0},
                   {u"rule"_s, rule},
                   {u"nextTry"_s, next.text},
                   {u"nextTryEarliest"_s, jsonTime(next.earliest)},
                   {u"actor"_s, actor},
                   {u"who"_s, actorName(actorFor(cause, service))},
                   {u"serviceRunning"_s, service == PortState::Service},
                   {u"sentence"_s, sentence}};
    report.line(sentence);
    return report;
}

} // namespace queuectl
