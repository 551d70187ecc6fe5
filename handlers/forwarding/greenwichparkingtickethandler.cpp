#include "handlers/forwarding/greenwichparkingtickethandler.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "shared/net/httpparams.h"
#include "shared/net/httpresponse.h"
#include "shared/net/serder.h"

#include <log4qt/logger.h>

#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

/// Whether the service explains its refusal in the member `message`.
bool isExplainedRefusal(const http::Response &response)
{
    switch (response.status) {
    case 400:
    case 401:
    case 404:
    case 422:
        return response.responseObject().contains(u"message"_s);
    default:
        return false;
    }
}

} // namespace

GreenwichParkingTicketHandler::GreenwichParkingTicketHandler()
    : BasicHandler(u"greenwichparkingticket"_s)
{
}

bool GreenwichParkingTicketHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    const auto client = createClient(*logger());
    client->setSecretHeaders({u"x-api-key"_s});
    client->setTimeout(messageValue<int>(message, u"timeout"_s));
    client->send(serder::deserialize<http::Params>(message.body));

    const http::Response response = client->response();
    if (response.status == 200)
        return true;
    if (isExplainedRefusal(response))
        return giveUp(refusalText(response.responseObject().value(u"message"_s).toString()));
    logSendError(*logger(), response.errorText);
    return finishedByAnyAnswer(*this, *client);
}
