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

bool saveOfflineOrder(mindbox::Interface &mindbox, QJsonObject payload, const QString &cardNumber,
                      Log4Qt::Logger &logger)
{
    if (!cardNumber.isEmpty()) {
        const mindbox::OperationResult check = mindbox.checkCustomer(cardNumber, false);
        if (check.customer.isFound()) {
            payload.insert(u"customer"_s,
                           QJsonObject{{u"mobilePhone"_s, check.customer.mobilePhone}});
        } else if (!check.noConnection) {
            logger.error(u"Клиент не найден"_s);
            return true;
        }
    }
    return isFinished(mindbox.saveOfflineOrder(payload));
}

} // namespace

MindboxHandler::MindboxHandler()
    : BasicHandler(u"mindbox"_s)
{
}

bool MindboxHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения %1"_s, message.id);

    mindbox::Interface mindbox;
    const auto payload =
        QJsonObject::fromVariantMap(messageValue<QVariantMap>(message, u"payload"_s));
    const QString method = messageValue<QString>(message, u"method"_s);
    if (method == "commit"_L1)
        return isFinished(mindbox.commitOrderTransaction(payload));
    if (method == "saveOfflineOrder"_L1)
        return saveOfflineOrder(mindbox, payload, messageValue<QString>(message, u"cardNumber"_s),
                                *logger());
    if (method == "rollback"_L1)
        return isFinished(mindbox.rollbackOrderTransaction(payload));
    return false;
}
