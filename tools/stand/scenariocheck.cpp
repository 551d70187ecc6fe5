#include "tools/stand/scenariocheck.h"

#include "rig/comparison.h"
#include "rig/textpattern.h"

#include <QMap>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace stand {

const QString stopText = u"Получен сигнал завершения работы"_s;

namespace {

QString folded(const QStringList &lines)
{
    return lines.isEmpty() ? u"(none)"_s : lines.join(u"\n    "_s);
}

QString nameOf(const WrittenMessage &entry)
{
    return u"message %1 of type %2"_s.arg(entry.id).arg(entry.message.type);
}

QString told(const QString &what, const QString &expected, const QString &found)
{
    return u"%1\n  - %2\n  + %3"_s.arg(what, expected, found);
}

QStringList rowFindings(const QString &name, const RecordedOutcome &expected,
                        const rig::JournalRow &found)
{
    QStringList findings;
    const auto compare = [&](const QString &what, const std::optional<QString> &wanted,
                             const QString &value) {
        if (wanted && !rig::TextPattern(*wanted).matches(value))
            findings.append(told(name + what, *wanted, value));
    };
    compare(u"verdict"_s, expected.verdict, found.verdict);
    compare(u"kind"_s, expected.kind, found.kind);
    if (expected.status)
        compare(u"status"_s, QString::number(*expected.status), QString::number(found.status));
    compare(u"reason"_s, expected.reason, found.text);
    compare(u"reference"_s, expected.reference, found.reference);
    return findings;
}

} // namespace

QStringList tableFindings(const QList<WrittenMessage> &written, const QList<rig::TableRow> &left)
{
    QStringList findings;
    QMap<int, rig::TableRow> rows;
    for (const rig::TableRow &row : left)
        rows.insert(row.id, row);
    for (const WrittenMessage &entry : written) {
        const QueuedMessage &message = entry.message;
        const QString name = nameOf(entry);
        const bool isThere = rows.contains(entry.id);
        const rig::TableRow row = rows.take(entry.id);
        if (isThere != (message.outcome.fate == Outcome::Fate::Kept)) {
            findings.append(isThere ? name + u" is still in the table"_s
                                    : name + u" is not in the table any more"_s);
            continue;
        }
        if (!isThere)
            continue;
        if (row.type != message.type || row.body != message.body
            || row.cardNumber != message.cardNumber)
            findings.append(name + u" was changed: "_s + rig::shortened(row.body));
        const QString statusCode = message.outcome.statusCode.value_or(message.statusCode);
        if (row.statusCode != statusCode)
            findings.append(
                u"%1: statuscode\n  - %2\n  + %3"_s.arg(name, statusCode, row.statusCode));
    }
    for (const rig::TableRow &row : std::as_const(rows))
        findings.append(
            u"the table has a row that the scenario did not put there: %1 of type %2, %3"_s.arg(
                QString::number(row.id), row.type, rig::shortened(row.body)));
    return findings;
}

QStringList journalFindings(const QList<WrittenMessage> &written,
                            const QList<rig::JournalRow> &rows)
{
    QStringList findings;
    for (const WrittenMessage &entry : written) {
        // A message whose reference changes between two attempts has a row for each; the last one
        // counts.
        const auto row =
            std::find_if(rows.crbegin(), rows.crend(), [&](const rig::JournalRow &candidate) {
                return candidate.messageId == entry.id && candidate.type == entry.message.type;
            });
        const std::optional<RecordedOutcome> &recorded = entry.message.outcome.recorded;
        const bool isThere = row != rows.crend();
        if (isThere != recorded.has_value())
            findings.append(nameOf(entry)
                            + (isThere ? u" is in the journal"_s : u" is not in the journal"_s));
        else if (isThere)
            findings += rowFindings(nameOf(entry) + u", journal: "_s, *recorded, *row);
    }
    return findings;
}

QStringList cardFindings(const Scenario &scenario, const QList<rig::CardRow> &cards)
{
    if (!scenario.cardsAfter)
        return {};
    const auto lines = [](const QList<rig::CardRow> &rows) {
        QStringList result;
        for (const rig::CardRow &card : rows) {
            QStringList columns;
            for (auto column = card.begin(); column != card.end(); ++column) {
                if (!column->isEmpty())
                    columns.append(column.key() + u'=' + *column);
            }
            result.append(columns.join(u", "_s));
        }
        return result;
    };
    const QStringList expected = lines(*scenario.cardsAfter);
    const QStringList found = lines(cards);
    if (expected == found)
        return {};
    return {u"documentcard\n  - %1\n  + %2"_s.arg(folded(expected), folded(found))};
}

QStringList logFindings(const Scenario &scenario, const QList<rig::LogRecord> &log)
{
    QStringList findings;
    QList<rig::TextPattern> wanted;
    QList<bool> isUsed(log.size(), false);
    for (const QString &line : scenario.log) {
        wanted.append(rig::TextPattern(line));
        qsizetype at = 0;
        while (at < log.size() && (isUsed[at] || !wanted.last().matches(log[at].line())))
            ++at;
        if (at < log.size())
            isUsed[at] = true;
        else
            findings.append(u"the log lacks the line: "_s + line);
    }
    for (const rig::LogRecord &record : log) {
        const bool isTrouble = record.level != u"INFO" && record.level != u"DEBUG"
                               && record.level != u"TRACE" && record.text != stopText;
        if (isTrouble
            && std::none_of(wanted.cbegin(), wanted.cend(),
                            [&](const rig::TextPattern &it) { return it.matches(record.line()); }))
            findings.append(u"the log has a line that the scenario does not expect: "_s
                            + rig::shortened(record.line()));
    }
    for (const QString &text : scenario.logNever) {
        const rig::TextPattern banned(text);
        for (const rig::LogRecord &record : log) {
            if (banned.occursIn(record.line()))
                findings.append(u"the log must not say '%1', but says: %2"_s.arg(
                    text, rig::shortened(record.line())));
        }
    }
    return findings;
}

} // namespace stand
