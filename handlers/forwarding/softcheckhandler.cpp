#include "handlers/forwarding/softcheckhandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .payload = Payload::Array,
    .timeout = Timeout::fromMessage(10),
    .failureLine = FailureLine::Silent,
};

} // namespace

SoftCheckHandler::SoftCheckHandler()
    : BasicHandler(u"softcheck"_s)
{
}

bool SoftCheckHandler::sendMessage(const Message &message)
{
    return !makeRequest(message, *logger(), forwarding)->isNetworkError();
}
