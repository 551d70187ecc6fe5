#pragma once

#include "engine/message.h"

#include <QByteArray>
#include <QHash>
#include <QJsonDocument>
#include <QString>
#include <QUrl>

#include <optional>
#include <variant>

/// The HTTP method, and how the client sends it.
enum class Verb
{
    Post,
    Put,
    /// With the message's headers only: no content type is added for a document.
    WholePut,
    WholePatch,
};

/// The type of a request's body, and how it is read from the message's `body`.
enum class Payload
{
    Bytes,
    Object,
    /// An object that is converted to a variant map and back.
    Map,
    Array,
    /// No content; the message's `body` is ignored.
    EmptyDocument,
};

/// The source of a request's headers.
enum class Headers
{
    /// The message's `headers`.
    FromMessage,
    /// The same, converted from a JSON object.
    FromMessageObject,
    /// Only the content type of JSON; the message's headers are ignored.
    JsonContentType,
    Empty,
};

/// The timeout of a delivery in seconds. For 0 and no timeout see RestClient.
struct Timeout
{
    enum class Source
    {
        Message,
        Fixed,
        Unset,
    };

    Source source = Source::Message;
    /// The fixed timeout, or the default for a message without one.
    int seconds = 0;

    static constexpr Timeout fromMessage(int defaultSeconds)
    {
        return {Source::Message, defaultSeconds};
    }
    static constexpr Timeout fixed(int seconds) { return {Source::Fixed, seconds}; }
    static constexpr Timeout unset() { return {Source::Unset, 0}; }
};

/// How the messages of a type contain their request. The defaults suit most types.
struct RequestRules
{
    Verb verb = Verb::Post;
    Payload payload = Payload::Bytes;
    Headers headers = Headers::FromMessage;
    Timeout timeout = Timeout::fromMessage(0);
};

/// One request as a value, which a handler may change before it sends it.
struct PreparedRequest
{
    Verb verb = Verb::Post;
    QUrl url = {};
    QHash<QString, QString> headers = {};
    /// Bytes are sent unchanged, a document as compact JSON; a null document means no content. A
    /// POST of a document has a JSON content type unless `headers` contain one.
    std::variant<QByteArray, QJsonDocument> body = {};
    /// Empty: RestClient's default timeout.
    std::optional<int> timeoutSeconds = {};

    /// The body as it is sent.
    QByteArray content() const;
};

/// Reads the request from the message's keys `url`, `headers`, `body` and `timeout`. A missing
/// value or one of the wrong type counts as empty. The client rejects an unusable address.
PreparedRequest readRequest(const Message &message, const RequestRules &rules = {});

/// Parses an address in QUrl's tolerant mode.
QUrl addressOf(const QString &text);

/// The address under `key` in the message's body; empty without one.
QUrl messageAddress(const Message &message, const QString &key);

/// Headers with only a content type: JSON in UTF-8.
QHash<QString, QString> jsonContentType();

/// Sets user name and password of an address, unescaped. An invalid address is left unchanged:
/// setting a user would make the rest of it valid, possibly as another server's address.
void setCredentials(QUrl &url, const QString &user, const QString &password);
