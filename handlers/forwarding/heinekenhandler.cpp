#include "handlers/forwarding/heinekenhandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

HeinekenHandler::HeinekenHandler()
    : BasicHandler(u"heineken"_s)
{
}

bool HeinekenHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return deliverRequest(*logger(), readRequest(message));
}
