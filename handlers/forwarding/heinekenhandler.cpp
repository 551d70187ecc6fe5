#include "handlers/forwarding/heinekenhandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{};

} // namespace

HeinekenHandler::HeinekenHandler()
    : BasicHandler(u"heineken"_s)
{
}

bool HeinekenHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
