#include "handlers/other/loyahandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"

#include <log4qt/logger.h>

#include <QUrl>

using namespace Qt::StringLiterals;

namespace {

/// The links of the chain, in their order; one that is left out shortens it.
QList<QUrl> chainOf(const QVariantMap &urls)
{
    QList<QUrl> chain;
    for (const QString &link : {u"0"_s, u"1"_s, u"2"_s}) {
        if (urls.contains(link))
            chain.append(QUrl(urls.value(link).toString(), QUrl::TolerantMode));
    }
    return chain;
}

} // namespace

LoyaHandler::LoyaHandler()
    : BasicHandler(u"loya"_s)
{
}

bool LoyaHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const QHash<QString, QString> headers{
        {u"Content-Type"_s, u"application/json; charset=UTF-8"_s}};
    const auto client = createClient(*logger());
    client->setTimeout(10);

    auto payload = messageValue<QByteArray>(message, u"payload"_s);
    for (const QUrl &url : chainOf(messageValue<QVariantMap>(message, u"urls"_s))) {
        client->put(url, payload, headers);
        if (client->errorCode() > 0) {
            logSendError(*logger(), client->errorText());
            return false;
        }
        payload = client->responseBody();
    }
    logger()->info(u"Последовательность запросов выполнена успешно"_s);
    return true;
}
