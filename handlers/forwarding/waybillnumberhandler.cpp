#include "handlers/forwarding/waybillnumberhandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .verb = Verb::Put,
    .headers = Headers::JsonContentType,
    .timeout = Timeout::fixed(10),
};

} // namespace

WaybillNumberHandler::WaybillNumberHandler()
    : BasicHandler(u"waybillnumber"_s)
{
}

bool WaybillNumberHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
