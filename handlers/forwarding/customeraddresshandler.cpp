#include "handlers/forwarding/customeraddresshandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr RequestRules rules{
    .payload = Payload::Object,
    .headers = Headers::FromMessageObject,
};

} // namespace

CustomerAddressHandler::CustomerAddressHandler()
    : BasicHandler(u"customeraddress"_s)
{
}

bool CustomerAddressHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    return deliverRequest(*logger(), readRequest(message, rules));
}
