#include "handlers/retail/deferredcheckhandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .verb = Verb::WholePut,
    .payload = Payload::Object,
    .timeout = Timeout::fromMessage(10),
    .failureLine = FailureLine::Silent,
};

} // namespace

DeferredCheckHandler::DeferredCheckHandler()
    : BasicHandler(u"deferredcheck"_s)
{
}

bool DeferredCheckHandler::sendMessage(const Message &message)
{
    return !makeRequest(message, *logger(), forwarding)->isNetworkError();
}
