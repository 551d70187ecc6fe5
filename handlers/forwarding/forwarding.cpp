#include "handlers/forwarding/forwarding.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"
#include "shared/net/httpparams.h"

#include <log4qt/logger.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

QHash<QString, QString> requestHeaders(const Message &message, Headers headers)
{
    switch (headers) {
    case Headers::FromMessage:
        return messageHeaders(messageValue<QVariantMap>(message, u"headers"_s));
    case Headers::FromMessageObject:
        return messageHeaders(messageValue<QJsonObject>(message, u"headers"_s).toVariantMap());
    case Headers::JsonContentType:
        return {{u"Content-Type"_s, u"application/json; charset=UTF-8"_s}};
    case Headers::Empty:
        break;
    }
    return {};
}

QJsonDocument requestDocument(const Message &message, Payload payload)
{
    switch (payload) {
    case Payload::Object:
        return QJsonDocument(messageValue<QJsonObject>(message, u"body"_s));
    case Payload::Map:
        return QJsonDocument::fromVariant(messageValue<QVariantMap>(message, u"body"_s));
    case Payload::Array:
        return QJsonDocument(message.body.value(u"body"_s, QJsonArray()).toJsonArray());
    case Payload::Bytes:
    case Payload::EmptyDocument:
        break;
    }
    return {};
}

void sendWhole(const Message &message, RestClient &client, const QUrl &url,
               const Forwarding &forwarding)
{
    http::Params params;
    params.method = forwarding.verb == Verb::WholePut ? "PUT" : "PATCH";
    params.url = url;
    params.body = requestDocument(message, forwarding.payload).toJson(QJsonDocument::Compact);
    const QHash<QString, QString> headers = requestHeaders(message, forwarding.headers);
    for (const auto &[name, value] : headers.asKeyValueRange())
        params.headers.insert(name.toUtf8(), value.toUtf8());
    client.send(params);
}

bool isPut(const Message &message, Verb verb)
{
    return verb == Verb::Put
           || (verb == Verb::PutOrPost && messageValue<QString>(message, u"method"_s) == u"PUT");
}

/// The messages of a type mostly go to one address, and taking it apart costs more than the headers do.
QUrl requestUrl(const Message &message)
{
    static thread_local QString lastText;
    static thread_local QUrl lastUrl;
    const auto text = messageValue<QString>(message, u"url"_s);
    if (text != lastText) {
        lastText = text;
        lastUrl = QUrl(text, QUrl::TolerantMode);
    }
    return lastUrl;
}

void sendRequest(const Message &message, RestClient &client, const Forwarding &forwarding)
{
    const QUrl url = requestUrl(message);
    if (forwarding.verb == Verb::WholePatch || forwarding.verb == Verb::WholePut) {
        sendWhole(message, client, url, forwarding);
        return;
    }
    const QHash<QString, QString> headers = requestHeaders(message, forwarding.headers);
    if (forwarding.payload != Payload::Bytes) {
        client.post(url, requestDocument(message, forwarding.payload), headers);
        return;
    }
    const auto body = messageValue<QByteArray>(message, u"body"_s);
    if (isPut(message, forwarding.verb))
        client.put(url, body, headers);
    else
        client.post(url, body, headers);
}

void logOpening(const Message &message, Log4Qt::Logger &logger, Opening opening)
{
    switch (opening) {
    case Opening::Plain:
        logger.info(u"Отправка сообщения"_s);
        return;
    case Opening::WithId:
        logger.info(u"Отправка сообщения %1"_s, message.id);
        return;
    case Opening::Silent:
        return;
    }
}

void logFailure(Log4Qt::Logger &logger, const tr::Tr &errorText, FailureLine line)
{
    switch (line) {
    case FailureLine::SendError:
        logSendError(logger, errorText);
        return;
    case FailureLine::RequestInfo:
        logger.info(u"Ошибка при отправке запроса: %1"_s, errorText.ru());
        return;
    case FailureLine::Silent:
        return;
    }
}

} // namespace

std::shared_ptr<RestClient> makeRequest(const Message &message, Log4Qt::Logger &logger,
                                        const Forwarding &forwarding)
{
    logOpening(message, logger, forwarding.opening);
    auto client = createClient(logger);
    applyTimeout(message, *client, forwarding.timeout);
    sendRequest(message, *client, forwarding);
    if (client->errorCode() > 0)
        logFailure(logger, client->errorText(), forwarding.failureLine);
    return client;
}

bool forwardMessage(const Message &message, Log4Qt::Logger &logger, const Forwarding &forwarding)
{
    return makeRequest(message, logger, forwarding)->errorCode() < 1;
}

void applyTimeout(const Message &message, RestClient &client, const Timeout &timeout)
{
    switch (timeout.source) {
    case Timeout::Source::Message:
        client.setTimeout(messageValue<int>(message, u"timeout"_s, timeout.seconds));
        return;
    case Timeout::Source::Fixed:
        client.setTimeout(timeout.seconds);
        return;
    case Timeout::Source::Unset:
        return;
    }
}
