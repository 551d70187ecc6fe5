#include "handlers/forwarding/abmloyaltyhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

AbmLoyaltyHandler::AbmLoyaltyHandler()
    : BasicHandler(u"abmloyalty"_s)
{
}

bool AbmLoyaltyHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    PreparedRequest request = readRequest(message);
    if (messageValue<QString>(message, u"method"_s) == u"PUT")
        request.verb = Verb::Put;
    return deliverRequest(*logger(), request);
}
