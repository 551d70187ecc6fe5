#include "handlers/forwarding/smartscaleshandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .timeout = Timeout::unset(),
};

} // namespace

SmartScalesHandler::SmartScalesHandler()
    : BasicHandler(u"smartscales"_s)
{
}

bool SmartScalesHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
