#include "handlers/forwarding/winelabsoftchequehandler.h"

#include "handlers/forwarding/forwarding.h"

using namespace Qt::StringLiterals;

namespace {

constexpr Forwarding forwarding{
    .verb = Verb::WholePatch,
    .payload = Payload::Object,
};

} // namespace

WinelabSoftChequeHandler::WinelabSoftChequeHandler()
    : BasicHandler(u"winelabsoftcheque"_s)
{
}

bool WinelabSoftChequeHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
