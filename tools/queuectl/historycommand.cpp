#include "tools/queuectl/cause.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/entrytext.h"
#include "tools/queuectl/journalfile.h"
#include "tools/queuectl/json.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr int usualEntries = 50;
/// The mask and four digits.
constexpr qsizetype cardWidth = 12;

QString verdictOf(const Call &call)
{
    const QString verdict = call.value(u"verdict"_s);
    const QStringList known{u"delivered"_s, u"dropped"_s, u"kept"_s};
    if (call.has(u"verdict"_s) && !known.contains(verdict))
        throw Failure(Usage, text("--verdict takes delivered, dropped or kept, not '%1'",
                                  "--verdict принимает delivered, dropped или kept, а не '%1'")
                                 .arg(verdict));
    return verdict;
}

JournalFilter filterOf(const Call &call)
{
    JournalFilter filter;
    if (!call.arguments.isEmpty())
        filter.id = rowId(call);
    filter.type = call.value(u"type"_s);
    filter.card = call.value(u"card"_s);
    filter.reference = call.value(u"reference"_s);
    filter.verdict = verdictOf(call);
    if (call.has(u"since"_s))
        filter.since = readTime(u"since"_s, call.value(u"since"_s), DayEnd::First);
    if (call.has(u"until"_s))
        filter.until = readTime(u"until"_s, call.value(u"until"_s), DayEnd::Last);
    filter.limit = call.number(u"limit"_s, usualEntries);
    return filter;
}

void requireJournal(const JournalFile &journal)
{
    if (journal.state() != JournalFile::State::Read)
        throw Failure(journal.state() == JournalFile::State::Missing ? NotFound : Failed,
                      journal.why());
}

/// Nothing was found: a typing error is likelier than a message without a record.
void requireSense(const JournalFilter &filter)
{
    if (filter.id > 0)
        throw Failure(
            NotFound,
            text("There is no record of message %1", "Записи о сообщении %1 нет").arg(filter.id));
    if (!filter.type.isEmpty())
        requireDelivered(filter.type);
}

/// One object per line while reading: there may be 200,000 entries.
Report printLines(JournalFile &journal, const JournalFilter &filter)
{
    const QDateTime now = QDateTime::currentDateTime();
    int count = 0;
    journal.entries(filter, [&](const JournalEntry &entry) {
        if (count == filter.limit)
            return false;
        ++count;
        print(jsonAnswer(entry.toJson(), JsonForm::Line, now));
        return true;
    });
    requireJournal(journal);
    if (count == 0)
        requireSense(filter);
    Report report;
    report.isPrinted = true;
    return report;
}

QJsonObject lineRecord(const JournalEntry &entry)
{
    QJsonObject record = entry.toJson();
    const bool isKept = entry.verdict == u"kept";
    const QString verdict = verdictText(entry.verdict);
    record.insert(u"verdictText"_s,
                  isKept ? u"%1 (%2)"_s.arg(verdict, causeText(causeOfKind(entry.kind))) : verdict);
    record.insert(u"answer"_s, answerOf(entry));
    return record;
}

void addTable(Report &report)
{
    report.table(u"entries"_s,
                 {{u"last"_s, text("Last", "Когда"), Format::Time},
                  {u"id"_s, text("Id", "Номер"), Format::Plain, true},
                  {u"type"_s, text("Type", "Тип")},
                  {u"verdictText"_s, text("Verdict", "Итог")},
                  {u"attempts"_s, text("Attempts", "Попыток"), Format::Plain, true},
                  {u"card"_s, text("Card", "Карта"), Format::Plain, false, cardWidth},
                  {u"reference"_s, text("Reference", "Документ")},
                  {u"answer"_s, text("Answer", "Ответ"), Format::Plain, false, answerColumnWidth}});
}

} // namespace

Report showHistory(const Call &call)
{
    const JournalFilter filter = filterOf(call);
    JournalFile journal;
    requireJournal(journal);
    if (call.isJson)
        return printLines(journal, filter);

    QList<JournalEntry> entries = journal.entries(filter);
    requireJournal(journal);
    if (entries.isEmpty())
        requireSense(filter);
    const bool hasMore = entries.size() > filter.limit;
    if (hasMore)
        entries.removeLast();
    Report report;
    QJsonArray records;
    for (const JournalEntry &entry : std::as_const(entries))
        records.append(lineRecord(entry));
    report.data.insert(u"entries"_s, records);
    // Answers in full for one message; a table cuts them.
    for (const JournalEntry &entry : std::as_const(entries)) {
        if (filter.id > 0)
            report.line(entrySentence(entry));
    }
    if (filter.id == 0)
        addTable(report);
    if (entries.isEmpty())
        report.line(
            text("There is no record of such a message.", "Записей о таком сообщении нет."));
    if (hasMore)
        report.line(text("There are older ones: --limit %1, or --until",
                         "Есть более старые: --limit %1 или --until")
                        .arg(qint64(filter.limit) * 2),
                    Tone::Faint);
    if (!JournalFile::isEnabled())
        report.line(text("Nothing is added at present: journal:enabled is off.",
                         "Новых записей нет: параметр journal:enabled выключен."),
                    Tone::Careful);
    return report;
}

} // namespace queuectl
