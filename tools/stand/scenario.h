#pragma once

#include "rig/messagetable.h"
#include "rig/peerscript.h"
#include "rig/till.h"

#include <QJsonValue>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace stand {

/// What the service's journal must say of a message.
struct RecordedOutcome
{
    /// `delivered`, `dropped` or `kept`.
    QString verdict;
    // Absent members are not compared.
    std::optional<QString> kind = {};
    std::optional<int> status = {};
    /// Both may hold patterns.
    std::optional<QString> reason = {};
    std::optional<QString> reference = {};
};

/// What becomes of a message.
struct Outcome
{
    enum class Fate
    {
        Removed,
        Kept
    };

    Fate fate = Fate::Removed;
    /// The column `statuscode` of a kept message where it differs from the written one.
    std::optional<QString> statusCode = {};
    /// Nothing: the message was never tried, and the journal does not have it.
    std::optional<RecordedOutcome> recorded = {};
};

/// A row for the table `message`.
struct QueuedMessage
{
    QString type;
    QString body;
    QString cardNumber;
    QString statusCode;
    Outcome outcome;

    rig::TableRow row() const { return {0, type, body, cardNumber, statusCode}; }
};

/// Something that happens after the service has walked its queue for the first time.
struct Step
{
    enum class Kind
    {
        Pass,
        Put,
        Restart,
        Crash,
        Up,
        Down,
        Release,
        Ask,
        AwaitLog,
        Write,
        Terminate
    };

    Kind kind = Kind::Pass;
    /// The message type, the peer, the path of the request, or the log record to wait for.
    QString subject;
    /// How many such log records to wait for.
    int count = 1;
    QueuedMessage message;
    QJsonValue answer;
    /// The files that a step `write` writes, and those that are there when the service starts
    /// again.
    QMap<QString, QString> files;
};

/// One test of the service: what it finds, what must happen, what must be left.
struct Scenario
{
    /// File and name, for reports.
    QString title;
    QString name;
    rig::Settings settings;
    /// Files of the till by path, as the service names them.
    QMap<QString, QString> files;
    /// Client certificates of the stand's authority: passwords by path.
    QMap<QString, QString> certificates;
    QMap<QString, QString> environment;
    QList<rig::CardRow> cards;
    std::optional<QList<rig::CardRow>> cardsAfter;
    QList<rig::PeerScript> peers;
    QList<QueuedMessage> messages;
    QList<Step> steps;
    /// Records that must appear in the log, `ERROR [cardlab] text`. Warnings and errors that are
    /// not among them must not.
    QStringList log;
    /// Texts that must appear nowhere in the log.
    QStringList logNever;

    bool hasTls() const;
};

} // namespace stand
