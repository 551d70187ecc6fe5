#include "handlers/payment/atolpayhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/payment/atolpay/interface.h"
#include "shared/core/config.h"
#include "shared/core/paths.h"
#include "shared/core/singleton.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

AtolPayHandler::AtolPayHandler()
    : BasicHandler(u"atolpay"_s)
{
}

bool AtolPayHandler::sendMessage(const Message &message)
{
    logger()->info(u"Отправка сообщения"_s);
    Singleton<Config>::instance()->readFile(
        rootedPath(u"/tallocash/cash/paysystems/atolpay/atolpay.ini"_s), QString());
    atolpay::Interface service;
    service.loadSettings();

    switch (service.status(messageValue<QString>(message, u"rrn"_s)).status) {
    case AtolPayTransactionStatus::Refunded:
    case AtolPayTransactionStatus::RefundInProgress:
    case AtolPayTransactionStatus::PartialRefunded:
        logger()->info(u"Отмена оплаты выполнена"_s);
        return true;
    case AtolPayTransactionStatus::Completed:
        return refund(message, service);
    case AtolPayTransactionStatus::InProgress:
        // The till relies on a payment that is still under way not being waited for.
    case AtolPayTransactionStatus::Error:
    case AtolPayTransactionStatus::Expired:
        logger()->info(u"Отмена не требуется"_s);
        return true;
    case AtolPayTransactionStatus::Unknown:
        break;
    }
    logger()->info(u"Не удалось получить ответ от сервера"_s);
    return false;
}

bool AtolPayHandler::refund(const Message &message, atolpay::Interface &service)
{
    return service
        .refund(messageValue<QString>(message, u"documentId"_s),
                messageValue<QString>(message, u"rrn"_s), messageValue<int>(message, u"amount"_s))
        .success;
}
