#include "handlers/other/loyahandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

/// The addresses of the chain in order; missing ones are skipped.
QList<QUrl> chainOf(const QVariantMap &urls)
{
    QList<QUrl> chain;
    for (const QString &link : {u"0"_s, u"1"_s, u"2"_s}) {
        if (urls.contains(link))
            chain.append(addressOf(urls.value(link).toString()));
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
    PreparedRequest request{
        .verb = Verb::Put,
        .headers = jsonContentType(),
        .body = messageValue<QByteArray>(message, u"payload"_s),
        .timeoutSeconds = 10,
    };
    const auto client = createClient(*logger(), request);
    const QList<QUrl> chain = chainOf(messageValue<QVariantMap>(message, u"urls"_s));
    for (const QUrl &url : chain) {
        request.url = url;
        sendRequest(*client, request);
        if (!succeeded(*client, *logger()))
            return false;
        request.body = client->responseBody();
    }
    logger()->info(u"Последовательность запросов выполнена успешно"_s);
    if (chain.isEmpty())
        return giveUp(u"в сообщении нет ни одного адреса"_s);
    return true;
}
