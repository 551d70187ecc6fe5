#include "handlers/forwarding/nochangehandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .opening = Opening::Silent,
    .payload = Payload::Map,
    .failureLine = FailureLine::RequestInfo,
};

} // namespace

NoChangeHandler::NoChangeHandler()
    : BasicHandler(u"nochange"_s)
{
}

bool NoChangeHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
