#include "handlers/forwarding/winelabbonushandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .payload = Payload::Object,
};

} // namespace

WinelabBonusHandler::WinelabBonusHandler()
    : BasicHandler(u"winelabbonus"_s)
{
}

bool WinelabBonusHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
