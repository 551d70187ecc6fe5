#include "handlers/mindbox/mindboxhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/mindbox/interface.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

/// Goes by the reply's own status. What an order result calls its success plays no part here.
bool isFinished(const mindbox::OperationResult &result)
{
    return result.status == mindbox::RequestStatus::Success
           || result.networkError == mindbox::badRequestError;
}

bool saveOfflineOrder(mindbox::Interface &interface, QJsonObject payload, const QString &cardNumber,
                      Log4Qt::Logger &logger)
{
    if (!cardNumber.isEmpty()) {
        const mindbox::OperationResult check = interface.checkCustomer(cardNumber, false);
        if (check.customer.isFound()) {
            payload.insert(u"customer"_s,
                           QJsonObject{{u"mobilePhone"_s, check.customer.mobilePhone}});
        } else if (!check.noConnection) {
            logger.error(u"Клиент не найден"_s);
            return true;
        }
    }
    return isFinished(interface.saveOfflineOrder(payload));
}

} // namespace

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
        return isFinished(interface.commitOrderTransaction(payload));
    if (method == u"saveOfflineOrder")
        return saveOfflineOrder(interface, payload, messageValue<QString>(message, u"cardNumber"_s),
                                *logger());
    if (method == u"rollback")
        return isFinished(interface.rollbackOrderTransaction(payload));
    return false;
}
