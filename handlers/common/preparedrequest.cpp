#include "handlers/common/preparedrequest.h"

#include "handlers/common/messagevalue.h"

#include <QJsonArray>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

QHash<QString, QString> readHeaders(const Message &message, Headers headers)
{
    switch (headers) {
    case Headers::FromMessage:
        return messageHeaders(messageValue<QVariantMap>(message, u"headers"_s));
    case Headers::FromMessageObject:
        return messageHeaders(messageValue<QJsonObject>(message, u"headers"_s).toVariantMap());
    case Headers::JsonContentType:
        return jsonContentType();
    case Headers::Empty:
        break;
    }
    return {};
}

std::variant<QByteArray, QJsonDocument> readBody(const Message &message, Payload payload)
{
    switch (payload) {
    case Payload::Bytes:
        return messageValue<QByteArray>(message, u"body"_s);
    case Payload::Object:
        return QJsonDocument(messageValue<QJsonObject>(message, u"body"_s));
    case Payload::Map:
        return QJsonDocument::fromVariant(messageValue<QVariantMap>(message, u"body"_s));
    case Payload::Array:
        return QJsonDocument(message.body.value(u"body"_s, QJsonArray()).toJsonArray());
    case Payload::EmptyDocument:
        break;
    }
    return QJsonDocument();
}

std::optional<int> readTimeout(const Message &message, const Timeout &timeout)
{
    switch (timeout.source) {
    case Timeout::Source::Message:
        return messageValue<int>(message, u"timeout"_s, timeout.seconds);
    case Timeout::Source::Fixed:
        return timeout.seconds;
    case Timeout::Source::Unset:
        break;
    }
    return {};
}

} // namespace

QByteArray PreparedRequest::content() const
{
    if (const auto *document = std::get_if<QJsonDocument>(&body))
        return document->toJson(QJsonDocument::Compact);
    return std::get<QByteArray>(body);
}

PreparedRequest readRequest(const Message &message, const RequestRules &rules)
{
    return {
        .verb = rules.verb,
        .url = messageAddress(message, u"url"_s),
        .headers = readHeaders(message, rules.headers),
        .body = readBody(message, rules.payload),
        .timeoutSeconds = readTimeout(message, rules.timeout),
    };
}

QUrl addressOf(const QString &text)
{
    // Messages of a type mostly have the same address, and parsing it costs more than the headers.
    static thread_local QString lastText;
    static thread_local QUrl lastUrl;
    if (text != lastText) {
        lastText = text;
        lastUrl = QUrl(text, QUrl::TolerantMode);
    }
    return lastUrl;
}

QUrl messageAddress(const Message &message, const QString &key)
{
    return addressOf(messageValue<QString>(message, key));
}

QHash<QString, QString> jsonContentType()
{
    return {{u"Content-Type"_s, u"application/json; charset=UTF-8"_s}};
}

void setCredentials(QUrl &url, const QString &user, const QString &password)
{
    if (!url.isValid())
        return;
    url.setUserName(user, QUrl::DecodedMode);
    url.setPassword(password, QUrl::DecodedMode);
}
