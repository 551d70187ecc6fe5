#include "handlers/other/plaziushandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

#include <QJsonDocument>

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
    client->get(addressOf(opening.value(u"url"_s).toString()), QJsonDocument(), {});
    if (!succeeded(*client, *logger()))
        return false;
    // The service usually answers with a JSON string.
    const QString session = QString::fromUtf8(client->responseBody()).remove(u'"');

    const auto described = messageValue<QVariantMap>(message, u"request"_s);
    PreparedRequest request{
        .url = addressOf(described.value(u"requestUrl"_s).toString()),
        .headers = messageHeaders(described.value(u"requestHeaders"_s).toMap()),
        .body = described.value(u"requestData"_s).toByteArray(),
    };
    request.headers.insert(u"Session"_s, session);
    sendRequest(*client, request);
    return succeeded(*client, *logger());
}
