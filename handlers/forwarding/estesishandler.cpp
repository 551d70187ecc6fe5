#include "handlers/forwarding/estesishandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
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
    return forwardMessage(message, *logger(), forwarding);
}
