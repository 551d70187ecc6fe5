#include "handlers/retail/onlinecheckhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/forwarding/forwarding.h"
#include "handlers/retail/ordering.h"

using namespace Qt::StringLiterals;

namespace {

QStringList markersOf(const Message &message)
{
    return {messageValue<QString>(message, u"state"_s)};
}

constexpr Ordering ordering{
    .markersOf = markersOf,
    .onHit = BasicHandler::Turn::Later,
};

constexpr Forwarding forwarding{
    .verb = Verb::WholePut,
    .payload = Payload::Object,
    .timeout = Timeout::fromMessage(20),
    .failureLine = FailureLine::Silent,
};

} // namespace

OnlinecheckHandler::OnlinecheckHandler()
    : BasicHandler(u"onlinecheck"_s)
{
}

void OnlinecheckHandler::processMessages()
{
    walkQueue(
        [this](const Message &message) { return turnOf(message, *dao, *logger(), ordering); });
}

bool OnlinecheckHandler::sendMessage(const Message &message)
{
    return !makeRequest(message, *logger(), forwarding)->isNetworkError();
}
