#include "handlers/forwarding/waybillnumberhandler.h"

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

WaybillNumberHandler::WaybillNumberHandler()
    : BasicHandler(u"waybillnumber"_s)
{
}

bool WaybillNumberHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return deliverRequest(*logger(), readRequest(message, rules));
}
