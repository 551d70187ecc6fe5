#include "handlers/retail/onlinecheckhandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/retail/ordering.h"

#include <log4qt/logger.h>

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

constexpr RequestRules rules{
    .verb = Verb::WholePut,
    .payload = Payload::Object,
    .timeout = Timeout::fromMessage(20),
};

} // namespace

OnlinecheckHandler::OnlinecheckHandler()
    : BasicHandler(u"onlinecheck"_s, inOrder(ordering))
{
}

bool OnlinecheckHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    return finishedByAnyAnswer(*this, *sendRequest(*logger(), readRequest(message, rules)));
}
