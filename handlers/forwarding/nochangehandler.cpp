#include "handlers/forwarding/nochangehandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

NoChangeHandler::NoChangeHandler()
    : BasicHandler(u"nochange"_s)
{
}

bool NoChangeHandler::sendMessage(const Message &message)
{
    const auto client = sendRequest(*logger(), readRequest(message, {.payload = Payload::Map}));
    if (succeeded(*client))
        return true;
    logger()->info(u"Ошибка при отправке запроса: %1"_s, client->errorText().ru());
    return false;
}
