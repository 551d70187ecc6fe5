#include "handlers/other/plaziushandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"

#include <log4qt/logger.h>

#include <QJsonDocument>
#include <QUrl>

using namespace Qt::StringLiterals;

PlaziusHandler::PlaziusHandler()
    : BasicHandler(u"plazius"_s)
{
}

bool PlaziusHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    const auto client = createClient(*logger());
    client->setTimeout(10);

    const auto opening = messageValue<QVariantMap>(message, u"sessionId"_s);
    client->get(QUrl(opening.value(u"url"_s).toString()), QJsonDocument(), {});
    if (client->errorCode() > 0) {
        logSendError(*logger(), client->errorText());
        return false;
    }
    // The service answers with a JSON text, as a rule.
    const QString session = QString::fromUtf8(client->responseBody()).remove(u'"');

    const auto request = messageValue<QVariantMap>(message, u"request"_s);
    QHash<QString, QString> headers = messageHeaders(request.value(u"requestHeaders"_s).toMap());
    headers.insert(u"Session"_s, session);
    client->post(QUrl(request.value(u"requestUrl"_s).toString()),
                 request.value(u"requestData"_s).toByteArray(), headers);
    if (client->errorCode() > 0) {
        logSendError(*logger(), client->errorText());
        return false;
    }
    return true;
}
