#pragma once

#include <QDateTime>
#include <QHash>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QVariant>

#include <functional>
#include <memory>
#include <optional>

class QSqlQuery;

namespace queuectl {

/// What became of a message, as the service has written it down.
struct JournalEntry
{
    /// The order in which messages were first tried.
    qint64 number = 0;
    int id = 0;
    QString type;
    /// The last four digits; empty for none.
    QString card;
    QString reference;
    /// `delivered`, `dropped` or `kept`.
    QString verdict;
    /// `none`, `network`, `certificate`, `credentials`, `request` or `service`.
    QString kind;
    /// HTTP status of the last answer, 0 for none.
    int status = 0;
    QString text;
    int attempts = 0;
    /// In the till's time zone; invalid when the number in the file is not a time.
    QDateTime first;
    QDateTime last;
    /// How long the last attempt took.
    qint64 milliseconds = 0;

    /// The record of the JSON form; secrets that are recognized in the text are masked.
    QJsonObject toJson() const;
};

/// Which entries are wanted. Empty texts, invalid times and id 0 leave out nothing.
struct JournalFilter
{
    int id = 0;
    QString type = {};
    /// A card's number, or the end of it.
    QString card = {};
    /// A part of the reference.
    QString reference = {};
    QString verdict = {};
    /// Time of the last attempt: `since` or later, before `until`.
    QDateTime since = {};
    QDateTime until = {};
    int limit = 0;
};

struct JournalStatement
{
    QString text;
    QVariantList values;
};

/// The statement for the entries, newest first, one more than the limit. Every one of them walks
/// along an index of the file and needs no sorting but that of one message's entries.
JournalStatement historyStatement(const JournalFilter &filter);
/// Counts the messages of each type that ended since `start`, by verdict.
JournalStatement endedStatement(const QDateTime &start);
/// Counts by type and quarter of an hour the messages that ended since `start`, by verdict, and
/// those whose first attempt failed.
JournalStatement endedByTimeStatement(const QDateTime &start);
JournalStatement failedByTimeStatement(const QDateTime &start);
/// The first and last attempt of messages that were tried in vain because nobody was there.
JournalStatement failedStatement(const QDateTime &start);
/// The types and times of deliveries.
JournalStatement deliveriesStatement(const QDateTime &start);

/// How a type has fared.
struct Streak
{
    /// Invalid: never.
    QDateTime lastDelivered;
    /// Invalid when its last attempt succeeded.
    QDateTime failingSince;
};

/// How often attempts at messages of a type came to this, since the journal was begun.
struct Total
{
    QString type;
    QString verdict;
    QString kind;
    qint64 count = 0;
};

/// Messages of a type that were finished with.
struct Ended
{
    int delivered = 0;
    int dropped = 0;
};

/// Messages of a type within a quarter of an hour.
struct QuarterCount
{
    enum class What
    {
        Delivered,
        Dropped,
        /// The first attempt failed.
        Failed,
    } what = What::Delivered;
    QString type;
    /// The beginning of the quarter.
    QDateTime time;
    int count = 0;
};

/// The times of a message's first and last attempt.
struct Attempted
{
    QDateTime first;
    QDateTime last;
};

/// A certificate that was not in use for longer than this may have been replaced.
constexpr int certificateMemoryDays = 30;

/// Something that the service has met on its way.
struct Fact
{
    QString name;
    QString subject;
    QString value;
    QDateTime time;
};

/// The service's record of what became of messages, opened to be read alone: nothing is written,
/// and the service may write meanwhile. Where it cannot be read, it is empty and why() says so;
/// nothing throws. Thread: the one that made it.
class JournalFile
{
public:
    enum class State
    {
        Read,
        /// There is no file.
        Missing,
        /// This account has no right to read it.
        Denied,
        /// It is not a journal, or its pages cannot be read.
        Damaged,
        /// A newer service has written it.
        Newer,
        /// Another program has it locked.
        Busy,
    };

    /// Opens the service's file.
    JournalFile();
    explicit JournalFile(const QString &path);

    State state() const;
    /// The name in the JSON form.
    QString stateName() const;
    /// Why the journal cannot be read, in the operator's language; empty when it can.
    QString why() const;
    QString path() const;
    /// Whether the settings switch it on.
    static bool isEnabled();

    /// Calls `take` with each entry, newest first, until it returns false.
    void entries(const JournalFilter &filter,
                 const std::function<bool(const JournalEntry &)> &take);
    QList<JournalEntry> entries(const JournalFilter &filter);
    /// The newest entry of each of these messages of the type, by its id.
    QHash<int, JournalEntry> newest(const QString &type, const QList<int> &ids);
    /// The message of the type that was kept last.
    std::optional<JournalEntry> lastKept(const QString &type);
    /// The oldest entry that is still there.
    std::optional<JournalEntry> oldest();
    /// The entry of the last attempt.
    std::optional<JournalEntry> latest();
    /// The last `count` entries in the order in which they were made, newest first.
    QList<JournalEntry> lastMade(int count);
    int count();

    /// By type.
    QHash<QString, Streak> streaks();
    QHash<QString, Ended> ended(const QDateTime &start);
    /// What became of messages since `start`, in no order.
    void countByTime(const QDateTime &start, const std::function<void(const QuarterCount &)> &take);
    /// Messages that were tried since `start`, at first in vain because of network, certificate or
    /// a fault of the service, by type and first attempt. Of one that was delivered in the end the
    /// reason is not known.
    void failed(const QDateTime &start,
                const std::function<void(const QString &, const Attempted &)> &take);
    /// The deliveries since `start`, in the order of their times.
    void deliveries(const QDateTime &start,
                    const std::function<void(const QString &, const QDateTime &)> &take);
    QList<Fact> facts(const QString &name);
    /// Ordered by type, verdict and kind; entries that were pruned stay counted.
    QList<Total> totals();

    /// Whether it is readable, still written, and holds every attempt since its first entry.
    bool isWhole();

private:
    struct Connection;

    void open(const QString &path);
    void fail(const QSqlQuery &query);
    /// Calls `take` with the query at each row, until it returns false.
    void run(const JournalStatement &statement, const std::function<bool(QSqlQuery &)> &take);
    std::optional<JournalEntry> first(const JournalStatement &statement);

    std::shared_ptr<Connection> connection;
};

} // namespace queuectl
