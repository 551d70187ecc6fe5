#include "handlers/forwarding/setomnihandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/common/restcalls.h"
#include "handlers/forwarding/forwarding.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

#include <QUrl>

using namespace Qt::StringLiterals;

SetOmniHandler::SetOmniHandler()
    : BasicHandler(u"setomni"_s)
{
}

bool SetOmniHandler::sendMessage(const Message &message)
{
    const QByteArray request = xmlutils::rewritten(messageValue<QString>(message, u"body"_s));
    if (request.isEmpty()) {
        logger()->error(u"Некорректный xml-запрос"_s);
        return false;
    }
    const auto client = createClient(*logger());
    applyTimeout(message, *client, Timeout::fromMessage(0));
    client->post(messageValue<QUrl>(message, u"url"_s), request,
                 messageHeaders(messageValue<QVariantMap>(message, u"headers"_s)));
    if (client->errorCode() != 0) {
        logger()->info(u"Ошибка при отправке запроса: %1"_s, client->errorText().ru());
        return false;
    }
    return isWellFormed(client->responseBody());
}

bool SetOmniHandler::isWellFormed(const QByteArray &reply) const
{
    xmlutils::ParseError error;
    if (!xmlutils::parseXml(reply, {}, &error).isNull())
        return true;
    logger()->error(u"Не удалось интерпретировать ответ от сервера([%1, %2] %3)"_s.arg(
        QString::number(error.line), QString::number(error.column), error.message));
    return false;
}
