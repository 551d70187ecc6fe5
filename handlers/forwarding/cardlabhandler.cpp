#include "handlers/forwarding/cardlabhandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr RequestRules rules{
    .verb = Verb::Put,
    .headers = Headers::JsonContentType,
    .timeout = Timeout::fixed(10),
};

} // namespace

CardLabHandler::CardLabHandler()
    : BasicHandler(u"cardlab"_s)
{
}

bool CardLabHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    return deliverRequest(*logger(), readRequest(message, rules));
}
