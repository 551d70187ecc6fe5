#pragma once

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMap>
#include <QSet>
#include <QString>

#include <optional>

namespace queuectl {

/// One event of the service's log.
struct LogLine
{
    QDateTime time;
    QString level;
    /// The message type, or one of the service's own categories.
    QString category;
    QString text;

    bool isFailure() const { return level == u"WARN" || level == u"ERROR" || level == u"FATAL"; }
};

/// What the log tells of one message type.
struct TypeHistory
{
    QDateTime lastDelivery;
    std::optional<LogLine> lastFailure;
    /// The first failure since the last delivery; invalid when the last attempt went well.
    QDateTime failingSince;
    /// Whether its worker was alive at the last poll that is in the log.
    std::optional<bool> isWorkerActive;
};

/// One attempt to deliver a row.
struct Attempt
{
    QDateTime time;
    /// What was logged above level info; a handler may refuse without a word.
    QList<LogLine> failures;
};

/// The end of the service's log file, found by the settings of the log. A till may log to standard
/// output alone; then there is no file, and nothing is known.
class ServiceLog
{
public:
    enum class State
    {
        /// No log file is configured.
        None,
        Missing,
        /// The file, or the settings of the log, may not be read.
        Denied,
        Read
    };

    /// Reads the last megabytes, the file before the current one included when that is short.
    static ServiceLog read();

    State state() const { return state_; }
    /// Whether every attempt at a row that was written at `time` is in it.
    bool isCompleteSince(const QDateTime &time) const;
    bool hasFile() const { return !file_.isEmpty(); }
    /// Empty when no log file is configured.
    QString file() const { return file_; }
    QList<LogLine> lines() const { return lines_; }
    TypeHistory history(const QString &type) const { return histories.value(type); }
    /// Whether it tells of any attempt at rows of the type that were not delivered.
    bool hasAttempts(const QString &type) const { return attemptedTypes.contains(type); }
    /// The last attempt at the row with this id or body (compact JSON, as the log shows it).
    std::optional<Attempt> lastAttempt(const QString &type, const QString &body, int id) const;

    /// Splits text as the conversion pattern says; for tests and for read().
    static QList<LogLine> parse(const QString &content, const QString &pattern);

private:
    void learn();
    void learnAttempts();

    State state_ = State::None;
    QString file_;
    QList<LogLine> lines_;
    QHash<QString, TypeHistory> histories;
    /// By type and body, or type and id.
    QHash<QString, Attempt> attempts;
    QSet<QString> attemptedTypes;
};

/// What stands behind a failure, told from its text in the log.
enum class Cause
{
    /// The address cannot be reached, or the exchange broke off.
    Network,
    Certificate,
    /// The service does not accept the till's account or key.
    Credentials,
    /// The service does not accept the request.
    Request,
    /// The service has trouble of its own.
    Service,
    /// It has not been tried, and its turn comes.
    Turn,
    /// Nothing tells whether it has been tried.
    Unknown,
    /// Nobody delivers messages of this type.
    NoHandler,
    /// The body is no JSON object.
    Body,
    Other,
};

Cause causeOf(const QString &failureText);
/// The name in the JSON form.
QString causeName(Cause cause);
/// For the operator.
QString causeText(Cause cause);

} // namespace queuectl
