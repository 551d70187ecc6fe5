#include "tools/queuectl/metrics.h"

#include "shared/core/basicexception.h"
#include "shared/text/escaping.h"
#include "tools/queuectl/command.h"
#include "tools/queuectl/controlport.h"
#include "tools/queuectl/journalfile.h"
#include "tools/queuectl/messagerows.h"

#include <QFileInfo>
#include <QJsonObject>
#include <QMap>
#include <QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

const QString totalEnd = u"_total"_s;

QString labelValue(const QString &value)
{
    QString result = escaping::escaped(shortened(value, answerWidth));
    return result.replace(u'\\', u"\\\\"_s).replace(u'"', u"\\\""_s).replace(u'\n', u"\\n"_s);
}

QString labelsText(const Sample &sample)
{
    QStringList parts;
    for (const auto &[name, value] : sample.labels)
        parts.append(name + u"=\""_s + labelValue(value) + u'"');
    return parts.isEmpty() ? QString() : u'{' + parts.join(u',') + u'}';
}

/// The metrics by the names they are filled under.
class Sheet
{
public:
    void add(const QString &name, Metric::Kind kind, const QString &help)
    {
        metrics.append({name, kind, help, {}});
    }
    void put(const QString &name, qint64 value,
             const QList<std::pair<QString, QString>> &labels = {})
    {
        const auto metric = std::find_if(metrics.begin(), metrics.end(),
                                         [&name](const Metric &each) { return each.name == name; });
        Q_ASSERT(metric != metrics.end());
        metric->samples.append({labels, value});
    }

    QList<Metric> metrics;
};

Sheet emptySheet()
{
    constexpr auto gauge = Metric::Kind::Gauge;
    constexpr auto counter = Metric::Kind::Counter;
    Sheet sheet;
    sheet.add(u"queue_up"_s, gauge, u"Whether the service answers on its control port."_s);
    sheet.add(u"queue_database_up"_s, gauge, u"Whether the table of messages can be read."_s);
    sheet.add(u"queue_journal_up"_s, gauge, u"Whether the delivery journal can be read."_s);
    sheet.add(u"queue_build_info"_s, gauge, u"The installed version."_s);
    sheet.add(u"queue_messages_waiting"_s, gauge, u"Messages that wait, by type."_s);
    sheet.add(u"queue_messages_undeliverable"_s, gauge,
              u"Messages of types that the service does not deliver."_s);
    sheet.add(u"queue_oldest_message_age_seconds"_s, gauge,
              u"Age of the oldest message that waits, by type."_s);
    sheet.add(u"queue_messages_delivered_total"_s, counter,
              u"Messages that were delivered, by type."_s);
    sheet.add(u"queue_messages_dropped_total"_s, counter,
              u"Messages that were finished with undelivered, by type and kind of failure."_s);
    sheet.add(u"queue_attempts_kept_total"_s, counter,
              u"Attempts after which the message stayed, by type and kind of failure."_s);
    sheet.add(u"queue_last_delivery_age_seconds"_s, gauge,
              u"Time since the last delivery, by type."_s);
    sheet.add(
        u"queue_failing_seconds"_s, gauge,
        u"Time since the first failure in a row, by type; 0 when the last attempt went well."_s);
    sheet.add(
        u"queue_certificate_remaining_seconds"_s, gauge,
        u"Time to the end of a client certificate in use, by file name; negative when expired."_s);
    sheet.add(u"queue_database_errors_total"_s, counter,
              u"Database errors that the service has met since its start or the last reset."_s);
    return sheet;
}

/// A clock that was set back gives no negative age.
qint64 secondsSince(const QDateTime &time, const QDateTime &now)
{
    return std::max<qint64>(0, time.secsTo(now));
}

bool measureRows(Sheet &sheet, const QStringList &knownTypes, const QDateTime &now)
{
    QMap<QString, qint64> counts;
    // Where nothing waits, 0 says so; a graph would end otherwise.
    for (const QString &type : knownTypes) {
        if (isDelivered(type))
            counts.insert(type, 0);
    }
    QList<int> lowestIds;
    qint64 undeliverable = 0;
    QHash<QString, QDateTime> oldest;
    try {
        MessageRows rows;
        // The table may hold types of any name and number, which must not become labels.
        rows.countTypes([&](const QString &type, qint64 count, int lowestId) {
            if (!isDelivered(type)) {
                undeliverable += count;
                return;
            }
            counts.insert(type, count);
            lowestIds.append(lowestId);
        });
        oldest = rows.oldest(lowestIds);
    } catch (const BasicException &) {
        return false;
    }
    sheet.put(u"queue_messages_undeliverable"_s, undeliverable);
    for (const auto &[type, count] : counts.asKeyValueRange()) {
        sheet.put(u"queue_messages_waiting"_s, count, {{u"type"_s, type}});
        const QDateTime time = oldest.value(type);
        if (count > 0 && time.isValid())
            sheet.put(u"queue_oldest_message_age_seconds"_s, secondsSince(time, now),
                      {{u"type"_s, type}});
    }
    return true;
}

void putTotals(Sheet &sheet, const QList<Total> &totals)
{
    QMap<QString, qint64> delivered;
    for (const Total &total : totals) {
        if (total.verdict == u"delivered")
            delivered[total.type] += total.count;
        else if (total.verdict == u"dropped")
            sheet.put(u"queue_messages_dropped_total"_s, total.count,
                      {{u"type"_s, total.type}, {u"kind"_s, total.kind}});
        else if (total.verdict == u"kept")
            sheet.put(u"queue_attempts_kept_total"_s, total.count,
                      {{u"type"_s, total.type}, {u"kind"_s, total.kind}});
    }
    for (const auto &[type, count] : delivered.asKeyValueRange())
        sheet.put(u"queue_messages_delivered_total"_s, count, {{u"type"_s, type}});
}

void putStreaks(Sheet &sheet, const QHash<QString, Streak> &streaks, const QDateTime &now)
{
    QStringList types = streaks.keys();
    types.sort();
    for (const QString &type : std::as_const(types)) {
        const Streak streak = streaks.value(type);
        if (streak.lastDelivered.isValid())
            sheet.put(u"queue_last_delivery_age_seconds"_s, secondsSince(streak.lastDelivered, now),
                      {{u"type"_s, type}});
        sheet.put(u"queue_failing_seconds"_s,
                  streak.failingSince.isValid() ? secondsSince(streak.failingSince, now) : 0,
                  {{u"type"_s, type}});
    }
}

void putCertificates(Sheet &sheet, const QList<Fact> &facts, const QDateTime &now)
{
    // Two folders may hold files of one name; the one that ends first counts.
    QMap<QString, qint64> remaining;
    for (const Fact &fact : facts) {
        bool isNumber = false;
        const qint64 end = fact.value.toLongLong(&isNumber);
        if (!isNumber || !fact.time.isValid() || fact.time.daysTo(now) > certificateMemoryDays)
            continue;
        const QString name = QFileInfo(fact.subject).fileName();
        const qint64 seconds = end / 1000 - now.toSecsSinceEpoch();
        remaining.insert(name, std::min(seconds, remaining.value(name, seconds)));
    }
    for (const auto &[name, seconds] : remaining.asKeyValueRange())
        sheet.put(u"queue_certificate_remaining_seconds"_s, seconds, {{u"file"_s, name}});
}

/// Label values that become equal when they are cut would be one series twice, which spoils the
/// whole text for its readers; the first one stays.
QList<Sample> distinct(const QList<Sample> &samples)
{
    QList<Sample> result;
    QSet<QString> seen;
    for (const Sample &sample : samples) {
        const QString labels = labelsText(sample);
        if (seen.contains(labels))
            continue;
        seen.insert(labels);
        result.append(sample);
    }
    return result;
}

} // namespace

QString metricsText(const QList<Metric> &metrics, Exposition exposition)
{
    const bool isStrict = exposition == Exposition::OpenMetrics;
    QString text;
    for (const Metric &metric : metrics) {
        if (metric.samples.isEmpty())
            continue;
        const bool isCounter = metric.kind == Metric::Kind::Counter;
        QString family = metric.name;
        if (isStrict && isCounter)
            family.chop(totalEnd.size());
        text += u"# HELP "_s + family + u' ' + metric.help + u'\n';
        text += u"# TYPE "_s + family + (isCounter ? u" counter\n"_s : u" gauge\n"_s);
        const QList<Sample> samples = distinct(metric.samples);
        for (const Sample &sample : samples)
            text += metric.name + labelsText(sample) + u' ' + QString::number(sample.value) + u'\n';
    }
    return isStrict ? text + u"# EOF\n"_s : text;
}

QJsonArray metricsJson(const QList<Metric> &metrics)
{
    QJsonArray result;
    for (const Metric &metric : metrics) {
        QJsonArray samples;
        for (const Sample &sample : metric.samples) {
            QJsonObject labels;
            for (const auto &[name, value] : sample.labels)
                labels.insert(name, value);
            samples.append(QJsonObject{{u"labels"_s, labels}, {u"value"_s, sample.value}});
        }
        result.append(QJsonObject{
            {u"name"_s, metric.name},
            {u"type"_s, metric.kind == Metric::Kind::Counter ? u"counter"_s : u"gauge"_s},
            {u"help"_s, metric.help},
            {u"samples"_s, samples}});
    }
    return result;
}

Measurement measure()
{
    const QDateTime now = QDateTime::currentDateTime();
    Measurement result;
    Sheet sheet = emptySheet();

    JournalFile journal;
    const QList<Total> totals = journal.totals();
    const QHash<QString, Streak> streaks = journal.streaks();
    const QList<Fact> certificates = journal.facts(u"certificate"_s);
    result.hasJournal = journal.state() == JournalFile::State::Read;
    // A part of the counters would pass for a restart at 0.
    if (result.hasJournal) {
        putTotals(sheet, totals);
        putStreaks(sheet, streaks, now);
        putCertificates(sheet, certificates, now);
    }
    result.hasDatabase = measureRows(sheet, streaks.keys(), now);

    const auto answer = askService({u"db_errors_count"_s});
    result.hasService = answer && answer->contains(u"errorsCount"_s);
    if (result.hasService)
        sheet.put(u"queue_database_errors_total"_s, answer->value(u"errorsCount"_s).toInteger());

    sheet.put(u"queue_up"_s, result.hasService ? 1 : 0);
    sheet.put(u"queue_database_up"_s, result.hasDatabase ? 1 : 0);
    sheet.put(u"queue_journal_up"_s, result.hasJournal ? 1 : 0);
    sheet.put(u"queue_build_info"_s, 1, {{u"version"_s, QStringLiteral(QUEUE_VERSION)}});
    result.metrics = sheet.metrics;
    return result;
}

} // namespace queuectl
