#include "handlers/retail/deferredcheckhandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr RequestRules rules{
    .verb = Verb::WholePut,
    .payload = Payload::Object,
    .timeout = Timeout::fromMessage(10),
};

} // namespace

DeferredCheckHandler::DeferredCheckHandler()
    : BasicHandler(u"deferredcheck"_s)
{
}

bool DeferredCheckHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return finishedByAnyAnswer(*this, *sendRequest(*logger(), readRequest(message, rules)));
}
