#include "handlers/forwarding/customeraddresshandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .opening = Opening::Plain,
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
    return forwardMessage(message, *logger(), forwarding);
}
