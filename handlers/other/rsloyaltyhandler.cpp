#include "handlers/other/rsloyaltyhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "shared/document/xmlutils.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

RSLoyaltyHandler::RSLoyaltyHandler()
    : BasicHandler(u"rsloyalty"_s)
{
}

bool RSLoyaltyHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    const auto client =
        sendRequest(*logger(), readRequest(message, {.timeout = Timeout::fixed(10)}));
    // A fault has an error status, so the reply is checked before the exchange's result.
    if (parseReply(messageValue<QString>(message, u"request"_s), client->statusCode(),
                   client->responseBody()))
        return true;
    if (!succeeded(*client, *logger()))
        return false;
    return keep(u"сервис не подтвердил операцию"_s);
}

bool RSLoyaltyHandler::parseReply(const QString &request, int status, const QByteArray &reply)
{
    const QDomDocument document =
        xmlutils::parseXml(reply, {request + u"Result"_s, u"faultstring"_s});
    if (status == 200)
        return xmlutils::getValueByTag(document, request + u"Result"_s, 0) == u"true";

    const QString fault = xmlutils::getValueByTag(document, u"faultstring"_s, 0).remove(u'.');
    // The card does not exist or is not active, and a repetition does not change that.
    if (fault != u"Дисконтная карта не активирована" && fault != u"Дисконтная карта не найдена")
        return false;
    logger()->warn(u"Сообщение об ошибке: %1, сообщение будет удалено"_s, fault);
    return giveUp(refusalText(fault));
}
