#pragma once

#include "tools/stand/placeholders.h"

#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

#include <optional>

namespace stand {

/// What becomes of a message.
struct Outcome
{
    enum class Fate
    {
        Removed,
        Kept
    };

    Fate fate = Fate::Removed;
    /// The column of a kept message where it differs from what was put.
    std::optional<QString> statusCode;
};

/// A row for the table `message`.
struct QueuedMessage
{
    QString type;
    QString body;
    QString cardNumber;
    QString statusCode;
    Outcome outcome;
};

/// What a peer does once a request is there.
struct Reply
{
    /// Close and Reset end the connection without an answer, Silence leaves it open, Raw sends `body`
    /// as it stands, status line included, and closes.
    enum class Manner
    {
        Answer,
        Close,
        Reset,
        Silence,
        Raw
    };

    Manner manner = Manner::Answer;
    int status = 200;
    QMap<QString, QString> headers;
    QByteArray body;
    /// The connection ends behind that many bytes of the body; -1: it does not.
    int cutAfter = -1;
    double delaySeconds = 0;
    /// The reply waits for the step `release`.
    bool held = false;
};

/// A request that must arrive, and the answer to it. What is absent is not compared.
struct Exchange
{
    /// Verb and target, `PUT /cards?till=7`; for TCP empty.
    QString request;
    /// All headers but those that the transport itself adds.
    std::optional<QMap<QString, QString>> headers;
    /// A text is compared byte by byte, anything else as JSON.
    QJsonValue body = QJsonValue(QJsonValue::Undefined);
    Reply reply;
};

/// An outside service, played from a script.
struct PeerScript
{
    enum class Kind
    {
        Http,
        Https,
        Tcp
    };

    QString name;
    Kind kind = Kind::Http;
    bool listening = true;
    /// Requests may come in any order; each takes the first exchange that it fits.
    bool anyOrder = false;
    /// For Https: a caller must show a certificate of the scenario's authority.
    bool wantsClientCertificate = false;
    /// For Tcp: what the peer says first.
    QByteArray greeting;
    QList<Exchange> exchanges;
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
    /// The message type, the peer, the path of the question, or the log record to wait for.
    QString subject;
    /// How many such log records to wait for.
    int count = 1;
    QueuedMessage message;
    QJsonValue answer;
    /// What a step `write` writes, and what a restart or a crash finds when the service starts again.
    QMap<QString, QString> files;
};

/// A row of the table `documentcard`.
using CardRow = QMap<QString, QString>;

/// One story of the service: what it finds, what must happen, what must be left.
struct Scenario
{
    /// File and name, for reports.
    QString title;
    QString name;
    QMap<QString, QMap<QString, QString>> settings;
    /// Files of the till by path, as the service names them.
    QMap<QString, QString> files;
    /// Client certificates of the stand's authority: passwords by path.
    QMap<QString, QString> certificates;
    QMap<QString, QString> environment;
    QList<CardRow> cards;
    std::optional<QList<CardRow>> cardsAfter;
    QList<PeerScript> peers;
    QList<QueuedMessage> messages;
    QList<Step> steps;
    /// Records that must appear in the log, `ERROR [cardlab] text`. Warnings and errors that are not
    /// among them must not.
    QStringList log;
    /// Texts that must appear nowhere in the log.
    QStringList logNever;

    bool hasTls() const;
};

/// A scenario as it stands in its file, the defaults put in, before a run gives it its places.
class ScenarioSource
{
public:
    ScenarioSource(const QJsonObject &content, const QString &where, const QString &title);

    QString title() const;
    /// Whether the scenario is told for `sqlite` or `mariadb`.
    bool isFor(const QString &database) const;
    bool isSample() const;
    /// The type of its first message.
    QString type() const;
    /// Names and kinds of the peers that a run must set up.
    QList<PeerScript> peers() const;
    /// The scenario with its places filled in. Throws ScenarioError.
    Scenario scenario(const Places &places) const;

private:
    Scenario parse(const QJsonObject &expandedContent) const;

    QJsonObject content;
    QString where;
    QString title_;
};

/// The names that a run must give places for: for each peer `name`, `name.host` and `name.port`, and
/// `root`, `nobody`, `nobody.port`.
QStringList placeNames(const QList<PeerScript> &peers);

/// Reads a scenario file, or all files of a folder and the folders below it, in the order of their
/// names. Every scenario is checked in full. Throws ScenarioError.
QList<ScenarioSource> loadScenarios(const QString &path);

/// `patch` put over `base`: objects are merged member by member, null takes a member away, anything
/// else replaces.
QJsonValue merged(const QJsonValue &base, const QJsonValue &patch);

} // namespace stand
