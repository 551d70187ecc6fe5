#pragma once

#include "engine/message.h"

#include <QByteArray>
#include <QHash>
#include <QJsonDocument>
#include <QString>
#include <QUrl>

#include <optional>
#include <variant>

/// How a request goes out.
enum class Verb
{
    Post,
    Put,
    /// As a whole request: headers as they are, a document without a content type of its own.
    WholePut,
    WholePatch,
};

/// What a request carries and how it is read from the message's `body`.
enum class Payload
{
    Bytes,
    Object,
    /// An object by way of its variant map.
    Map,
    Array,
    /// No content at all, whatever the message holds.
    EmptyDocument,
};

/// Where the headers of a request come from.
enum class Headers
{
    /// The message's `headers`.
    FromMessage,
    /// The same, read as a JSON object.
    FromMessageObject,
    /// The content type of JSON, and nothing of the message.
    JsonContentType,
    Empty,
};

/// The timeout of a delivery in seconds; what 0 and no timeout mean is RestClient's to say.
struct Timeout
{
    enum class Source
    {
        Message,
        Fixed,
        Unset,
    };

    Source source = Source::Message;
    /// The fixed timeout, or the one for a message that names none.
    int seconds = 0;

    static constexpr Timeout fromMessage(int defaultSeconds)
    {
        return {Source::Message, defaultSeconds};
    }
    static constexpr Timeout fixed(int seconds) { return {Source::Fixed, seconds}; }
    static constexpr Timeout unset() { return {Source::Unset, 0}; }
};

/// How the messages of a type hold their request. Each member's default is what most types have.
struct RequestRules
{
    Verb verb = Verb::Post;
    Payload payload = Payload::Bytes;
    Headers headers = Headers::FromMessage;
    Timeout timeout = Timeout::fromMessage(0);
};

/// One request as a value, which a handler may still change before it goes out.
struct PreparedRequest
{
    Verb verb = Verb::Post;
    QUrl url = {};
    QHash<QString, QString> headers = {};
    /// Bytes go out as they are, a document as compact JSON; a null document is no content. A POST
    /// of a document names its content type when `headers` do not.
    std::variant<QByteArray, QJsonDocument> body = {};
    /// Empty: RestClient's own.
    std::optional<int> timeoutSeconds = {};

    /// The body that goes out.
    QByteArray content() const;
};

/// The request that the message holds under `url`, `headers`, `body` and `timeout`. What is absent
/// or of the wrong type reads as empty; an address that cannot be used is the client's to refuse.
PreparedRequest readRequest(const Message &message, const RequestRules &rules = {});

/// The address in a text, read tolerantly, as the till writes it.
QUrl addressOf(const QString &text);

/// The address under `key` in the message's body; empty when there is none.
QUrl messageAddress(const Message &message, const QString &key);

/// The headers of a request whose content type alone is set, to JSON in UTF-8.
QHash<QString, QString> jsonContentType();

/// Sets user name and password of an address, each as it stands. An address that cannot be read
/// stays so: with a user name it would become readable, and it may be another server's.
void setCredentials(QUrl &url, const QString &user, const QString &password);
