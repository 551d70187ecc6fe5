#include "handlers/forwarding/softcheckhandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr RequestRules rules{
    .payload = Payload::Array,
    .timeout = Timeout::fromMessage(10),
};

} // namespace

SoftCheckHandler::SoftCheckHandler()
    : BasicHandler(u"softcheck"_s)
{
}

bool SoftCheckHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return finishedByAnyAnswer(*this, *sendRequest(*logger(), readRequest(message, rules)));
}
