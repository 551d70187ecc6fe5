#include "handlers/other/ituruphandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

IturupHandler::IturupHandler()
    : BasicHandler(u"iturup"_s)
{
}

bool IturupHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    const auto body = QJsonObject::fromVariantMap(messageValue<QVariantMap>(message, u"body"_s));
    const QJsonObject check{{u"id"_s, body.value(u"id"_s).toString()},
                            {u"check"_s, body.value(u"check"_s).toString()}};
    const PreparedRequest request{
        .url = addressOf(body.value(u"url"_s).toString()),
        .headers = {{u"Content-Type"_s, u"application/json"_s}},
        .body = QJsonDocument(check),
        .timeoutSeconds = 10,
    };
    const http::Response response = sendRequest(*logger(), request)->response();
    if (response.isNetworkError()) {
        logger()->error(u"Нет связи с сервером"_s);
        return false;
    }
    const QJsonObject reply = response.responseObject();
    if (reply.value(u"success"_s).toBool())
        return true;
    const QString explanation = reply.value(u"message"_s).toString();
    logger()->error(explanation);
    return giveUp(refusalText(explanation));
}
