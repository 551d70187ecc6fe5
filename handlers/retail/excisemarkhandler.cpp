#include "handlers/retail/excisemarkhandler.h"

#include "handlers/forwarding/forwarding.h"
#include "handlers/retail/ordering.h"

using namespace Qt::StringLiterals;

namespace {

QStringList markersOf(const Message &message)
{
    return markersInList(message, u"exciseMarkId"_s);
}

constexpr Ordering ordering{
    .markersOf = markersOf,
    .onHit = BasicHandler::Turn::EndOfPass,
};

constexpr Forwarding forwarding{
    .verb = Verb::Put,
    .headers = Headers::JsonContentType,
    .timeout = Timeout::fromMessage(10),
};

} // namespace

ExciseMarkHandler::ExciseMarkHandler()
    : BasicHandler(u"excisemark"_s)
{
}

void ExciseMarkHandler::processMessages()
{
    walkQueue(
        [this](const Message &message) { return turnOf(message, *dao, *logger(), ordering); });
}

bool ExciseMarkHandler::sendMessage(const Message &message)
{
    return forwardMessage(message, *logger(), forwarding);
}
