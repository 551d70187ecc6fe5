#include "handlers/mindbox/mindboxhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/mindbox/interface.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

MindboxHandler::MindboxHandler()
    : BasicHandler(u"mindbox"_s)
{
}

bool MindboxHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);
    mindbox::Interface interface;

    const auto payload =
        QJsonObject::fromVariantMap(messageValue<QVariantMap>(message, u"payload"_s));
    const auto method = messageValue<QString>(message, u"method"_s);
    if (method == u"commit")
        return judge(interface.commitOrderTransaction(payload));
    if (method == u"saveOfflineOrder")
        return saveOfflineOrder(interface, payload,
                                messageValue<QString>(message, u"cardNumber"_s));
    if (method == u"rollback")
        return judge(interface.rollbackOrderTransaction(payload));
    return keep(u"неизвестный метод сообщения"_s, http::FailureKind::Request);
}

bool MindboxHandler::saveOfflineOrder(mindbox::Interface &interface, QJsonObject payload,
                                      const QString &cardNumber)
{
    if (!cardNumber.isEmpty()) {
        const mindbox::OperationResult check = interface.checkCustomer(cardNumber, false);
        if (check.customer.isFound()) {
            payload.insert(u"customer"_s,
                           QJsonObject{{u"mobilePhone"_s, check.customer.mobilePhone}});
        } else if (!check.noConnection) {
            logger()->error(u"Клиент не найден"_s);
            return giveUp(check.networkError == http::noError
                              ? u"клиент с этой картой не найден, заказ не отправлен"_s
                              : u"карта клиента не проверена, заказ не отправлен"_s);
        }
    }
    return judge(interface.saveOfflineOrder(payload));
}

bool MindboxHandler::judge(const mindbox::OperationResult &result)
{
    // Only the reply's own status counts here, not the success of an order result.
    if (result.status == mindbox::RequestStatus::Success)
        return true;
    if (result.networkError == http::badRequestError)
        return giveUp(u"платформа отклонила запрос"_s);
    // For a failed exchange the client has the reason.
    if (result.networkError != http::noError)
        return false;
    return keep(mindbox::refusalReason(result.status));
}
