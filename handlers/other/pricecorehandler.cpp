#include "handlers/other/pricecorehandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

constexpr RequestRules rules{
    .payload = Payload::Object,
    .timeout = Timeout::unset(),
};

bool sendObject(BasicHandler &handler, const Message &message)
{
    const auto client = sendRequest(*handler.logger(), readRequest(message, rules));
    // Set after the request, as in the till's other programs: it applies to later log lines of the
    // client. The log line of the request masks this header by its name.
    client->setSecretHeaders({u"X-Api-Auth-Token"_s});
    return finishedByAnyAnswer(handler, *client);
}

} // namespace

PriceCoreHandler::PriceCoreHandler()
    : BasicHandler(u"pricecore"_s)
{
}

bool PriceCoreHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    const auto subtype = messageValue<QString>(message, u"subtype"_s);
    if (subtype == u"prizeapi")
        return sendPrizeApi(message);
    if (subtype == u"metropolia")
        return sendMetropolia(message);
    return giveUp(u"неизвестный вид сообщения"_s);
}

bool PriceCoreHandler::sendPrizeApi(const Message &message)
{
    return sendObject(*this, message);
}

bool PriceCoreHandler::sendMetropolia(const Message &message)
{
    return sendObject(*this, message);
}
