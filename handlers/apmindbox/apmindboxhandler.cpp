#include "handlers/apmindbox/apmindboxhandler.h"

#include "handlers/apmindbox/interface.h"
#include "handlers/common/messagevalue.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

ApMindboxHandler::ApMindboxHandler()
    : BasicHandler(u"apmindbox"_s)
{
}

bool ApMindboxHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    apmindbox::Interface interface;

    const auto payload =
        QJsonObject::fromVariantMap(messageValue<QVariantMap>(message, u"payload"_s));
    const auto method = messageValue<QString>(message, u"method"_s);
    // A delivery must not add another row: the message is already in the queue.
    if (method == u"create") {
        constexpr bool fromQueue = true;
        return judge(interface.createAuthorizedOrder(payload, fromQueue));
    }
    if (method == u"change") {
        constexpr bool sendNow = true;
        return judge(interface.changeOrderStatus(payload, sendNow));
    }
    return keep(u"неизвестный метод сообщения"_s, http::FailureKind::Request);
}

bool ApMindboxHandler::judge(const apmindbox::OperationResult &result)
{
    if (result.isSuccess())
        return true;
    // For a failed exchange the client has the reason.
    if (result.networkError != http::noError)
        return false;
    return keep(apmindbox::refusalReason(result.status));
}
