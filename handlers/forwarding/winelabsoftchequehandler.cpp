#include "handlers/forwarding/winelabsoftchequehandler.h"

#include "handlers/common/delivery.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr RequestRules rules{
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
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return deliverRequest(*logger(), readRequest(message, rules));
}
