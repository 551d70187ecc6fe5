#include "handlers/other/ituruphandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"

#include <log4qt/logger.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QUrl>

using namespace Qt::StringLiterals;

IturupHandler::IturupHandler()
    : BasicHandler(u"iturup"_s)
{
}

bool IturupHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    const auto body = QJsonObject::fromVariantMap(messageValue<QVariantMap>(message, u"body"_s));
    const QJsonObject request{{u"id"_s, body.value(u"id"_s).toString()},
                              {u"check"_s, body.value(u"check"_s).toString()}};
    const auto client = createClient(*logger());
    client->setTimeout(10);
    client->post(QUrl(body.value(u"url"_s).toString(), QUrl::TolerantMode), QJsonDocument(request),
                 {{u"Content-Type"_s, u"application/json"_s}});

    const http::Response response = client->response();
    if (response.isNetworkError()) {
        logger()->error(u"Нет связи с сервером"_s);
        return false;
    }
    const QJsonObject reply = response.responseObject();
    if (!reply.value(u"success"_s).toBool())
        logger()->error(reply.value(u"message"_s).toString());
    return true;
}
