#include "handlers/forwarding/smartscaleshandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

SmartScalesHandler::SmartScalesHandler()
    : BasicHandler(u"smartscales"_s)
{
}

bool SmartScalesHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return deliverRequest(*logger(), readRequest(message, {.timeout = Timeout::unset()}));
}
