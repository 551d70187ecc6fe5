#include "handlers/forwarding/estesishandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr RequestRules rules{
    .payload = Payload::EmptyDocument,
    .timeout = Timeout::unset(),
};

} // namespace

EstesisHandler::EstesisHandler()
    : BasicHandler(u"estesis"_s)
{
}

bool EstesisHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return deliverRequest(*logger(), readRequest(message, rules));
}
