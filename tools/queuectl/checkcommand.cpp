#include "tools/queuectl/checkcommand.h"

#include "shared/text/escaping.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/journalfile.h"
#include "tools/queuectl/messagerows.h"
#include "tools/queuectl/terminal.h"
#include "tools/queuectl/text.h"
#include "tools/queuectl/timewords.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const QString usualAge = u"1h"_s;
const QString usualFailing = u"15m"_s;
constexpr qint64 secondsOfDay = 86'400;

QString stateWord(CheckState state)
{
    switch (state) {
    case CheckState::Ok:
        return u"OK"_s;
    case CheckState::Warning:
        return u"WARNING"_s;
    case CheckState::Critical:
        return u"CRITICAL"_s;
    case CheckState::Unknown:
        break;
    }
    return u"UNKNOWN"_s;
}

/// What a monitoring server is told, gathered question by question.
class Verdict
{
public:
    void add(CheckState state, const QString &sentence)
    {
        // CRITICAL says more than UNKNOWN, whose code is higher.
        static const QList<CheckState> ranks{CheckState::Ok, CheckState::Warning,
                                             CheckState::Unknown, CheckState::Critical};
        if (ranks.indexOf(state) > ranks.indexOf(worst))
            worst = state;
        sentences.append(sentence);
    }
    void measure(const QString &name, qint64 value, const QString &unit = {},
                 const QString &warning = {})
    {
        performance.append(u"%1=%2%3;%4;;0"_s.arg(name, QString::number(value), unit, warning));
        values.insert(name, value);
    }

    CheckState worst = CheckState::Ok;
    QStringList sentences;
    QStringList performance;
    QJsonObject values;
};

/// What the table of messages says.
struct Rows
{
    /// What waits, by type; nothing when the database cannot be read.
    QHash<QString, qint64> counts;
    /// No row was ever written.
    bool isUnused = false;
};

Rows askRows(Verdict &verdict, qint64 limit)
{
    Rows result;
    QHash<QString, qint64> &counts = result.counts;
    QHash<QString, QDateTime> oldest;
    qint64 waiting = 0;
    qint64 undeliverable = 0;
    try {
        MessageRows rows;
        QList<int> lowestIds;
        rows.countTypes([&](const QString &type, qint64 count, int lowestId) {
            waiting += count;
            if (!isDelivered(type)) {
                undeliverable += count;
                return;
            }
            counts.insert(type, count);
            lowestIds.append(lowestId);
        });
        oldest = rows.oldest(lowestIds);
        result.isUnused = rows.isUnused();
    } catch (const BasicException &exception) {
        verdict.add(CheckState::Critical, exception.tr().ru());
        return {};
    }
    const QDateTime now = QDateTime::currentDateTime();
    qint64 age = 0;
    QString oldestType;
    for (const auto &[type, time] : oldest.asKeyValueRange()) {
        if (isDelivered(type) && time.secsTo(now) > age) {
            age = time.secsTo(now);
            oldestType = type;
        }
    }
    verdict.measure(u"waiting"_s, waiting);
    verdict.measure(u"oldest"_s, age, u"s"_s, QString::number(limit));
    if (age > limit)
        verdict.add(
            CheckState::Warning,
            text("type %1 waits for %2", "тип %1 ждёт %2").arg(oldestType, durationText(age)));
    if (undeliverable > 0)
        verdict.add(CheckState::Warning,
                    text("nobody delivers rows: %1", "строк, которые никто не доставляет: %1")
                        .arg(undeliverable));
    return result;
}

void askJournal(Verdict &verdict, const Rows &rows, qint64 limit, bool withDropped)
{
    const QDateTime now = QDateTime::currentDateTime();
    JournalFile journal;
    const QHash<QString, Streak> streaks = journal.streaks();
    const QHash<QString, Ended> ended = journal.ended(now.addSecs(-secondsOfDay));
    if (journal.state() != JournalFile::State::Read) {
        // Before the first attempt the service has no reason to make it.
        const bool isMissing = journal.state() == JournalFile::State::Missing;
        if (!isMissing || (withDropped && !rows.isUnused))
            verdict.add(CheckState::Unknown, journal.why());
        return;
    }
    qint64 longest = 0;
    for (const auto &[type, streak] : streaks.asKeyValueRange()) {
        const qint64 seconds = streak.failingSince.isValid() ? streak.failingSince.secsTo(now) : 0;
        // A type whose last row was taken away fails no longer.
        if (rows.counts.value(type) == 0)
            continue;
        longest = std::max(longest, seconds);
        if (seconds > limit)
            verdict.add(CheckState::Warning, text("type %1 fails for %2", "отказы типа %1: %2")
                                                 .arg(type, durationText(seconds)));
    }
    qint64 dropped = 0;
    for (const Ended &each : ended)
        dropped += each.dropped;
    verdict.measure(u"failing"_s, longest, u"s"_s, QString::number(limit));
    verdict.measure(u"dropped"_s, dropped, {}, withDropped ? u"0"_s : QString());
    if (withDropped && dropped > 0)
        verdict.add(
            CheckState::Warning,
            text("dropped in 24 hours: %1", "снято с доставки за 24 часа: %1").arg(dropped));
}

} // namespace

QString checkLine(CheckState state, const QString &sentence, const QString &performance)
{
    const QString line = u"QUEUE %1 - %2"_s.arg(
        stateWord(state), escaping::escaped(sentence.simplified()).replace(u'|', u'/'));
    return performance.isEmpty() ? line : line + u" | "_s + performance;
}

Report checkQueue(const Call &call)
{
    const qint64 age = readSpan(u"older"_s, call.value(u"older"_s, usualAge));
    const qint64 failing = readSpan(u"failing"_s, call.value(u"failing"_s, usualFailing));
    Verdict verdict;
    const Rows rows = askRows(verdict, age);
    askJournal(verdict, rows, failing, call.has(u"dropped"_s));
    if (controlPortState() != PortState::Service)
        verdict.add(CheckState::Critical, noService().tr().ru());
    if (verdict.sentences.isEmpty())
        verdict.add(CheckState::Ok, text("rows that wait: %1", "строк в очереди: %1")
                                        .arg(verdict.values.value(u"waiting"_s).toInteger()));

    Report report;
    report.exitCode = static_cast<ExitCode>(verdict.worst);
    report.data = {{u"state"_s, stateWord(verdict.worst)},
                   {u"sentences"_s, QJsonArray::fromStringList(verdict.sentences)},
                   {u"values"_s, verdict.values}};
    if (call.isJson)
        return report;
    print(checkLine(verdict.worst, verdict.sentences.join(u"; "_s), verdict.performance.join(u' '))
          + u'\n');
    report.isPrinted = true;
    return report;
}

} // namespace queuectl
