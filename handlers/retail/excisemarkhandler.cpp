#include "handlers/retail/excisemarkhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/retail/ordering.h"

#include <log4qt/logger.h>

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

constexpr RequestRules rules{
    .verb = Verb::Put,
    .headers = Headers::JsonContentType,
    .timeout = Timeout::fromMessage(10),
};

} // namespace

ExciseMarkHandler::ExciseMarkHandler()
    : BasicHandler(u"excisemark"_s, inOrder(ordering))
{
}

bool ExciseMarkHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return deliverRequest(*logger(), readRequest(message, rules));
}
