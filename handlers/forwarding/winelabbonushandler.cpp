#include "handlers/forwarding/winelabbonushandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

WinelabBonusHandler::WinelabBonusHandler()
    : BasicHandler(u"winelabbonus"_s)
{
}

bool WinelabBonusHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return deliverRequest(*logger(), readRequest(message, {.payload = Payload::Object}));
}
