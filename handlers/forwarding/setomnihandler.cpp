#include "handlers/forwarding/setomnihandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

SetOmniHandler::SetOmniHandler()
    : BasicHandler(u"setomni"_s)
{
}

bool SetOmniHandler::sendMessage(const Message &message)
{
    const QByteArray document = xmlutils::rewritten(messageValue<QString>(message, u"body"_s));
    if (document.isEmpty()) {
        logger()->error(u"Некорректный xml-запрос"_s);
        return keep(u"в сообщении нет правильного документа XML"_s, http::FailureKind::Request);
    }
    PreparedRequest request = readRequest(message);
    request.body = document;
    const auto client = sendRequest(*logger(), request);
    if (!succeeded(*client)) {
        logger()->info(u"Ошибка при отправке запроса: %1"_s, client->errorText().ru());
        return false;
    }
    if (isWellFormed(client->responseBody()))
        return true;
    return keep(u"ответ не прочитан"_s);
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
