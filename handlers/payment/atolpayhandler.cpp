#include "handlers/payment/atolpayhandler.h"

#include "handlers/common/messagevalue.h"
#include "handlers/payment/atolpay/interface.h"
#include "shared/core/config.h"
#include "shared/core/paths.h"
#include "shared/core/singleton.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace {

bool finishRefunded(BasicHandler &handler, const QString &reason)
{
    handler.logger()->info(u"Отмена оплаты выполнена"_s);
    return handler.doneBefore(reason);
}

bool finishUnpaid(BasicHandler &handler, const QString &reason)
{
    handler.logger()->info(u"Отмена не требуется"_s);
    return handler.giveUp(reason);
}

} // namespace

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

    const AtolPayStatusResult payment = service.status(messageValue<QString>(message, u"rrn"_s));
    switch (payment.status) {
    case AtolPayTransactionStatus::Refunded:
        return finishRefunded(*this, u"оплата уже возвращена"_s);
    case AtolPayTransactionStatus::RefundInProgress:
        return finishRefunded(*this, u"возврат уже выполняется"_s);
    case AtolPayTransactionStatus::PartialRefunded:
        return finishRefunded(*this, u"оплата уже возвращена частично"_s);
    case AtolPayTransactionStatus::Completed:
        return refund(message, service);
    case AtolPayTransactionStatus::InProgress:
        // By agreement with the till, a payment in progress is not waited for.
        return finishUnpaid(*this, u"оплата ещё не завершена, возврата не было"_s);
    case AtolPayTransactionStatus::Error:
        return finishUnpaid(*this, u"оплата завершилась ошибкой, возврата не было"_s);
    case AtolPayTransactionStatus::Expired:
        return finishUnpaid(*this, u"срок оплаты истёк, возврата не было"_s);
    case AtolPayTransactionStatus::Unknown:
        break;
    }
    logger()->info(u"Не удалось получить ответ от сервера"_s);
    return payment.noReply ? false : keep(u"неизвестное состояние оплаты"_s);
}

bool AtolPayHandler::refund(const Message &message, atolpay::Interface &service)
{
    const AtolPayRefundResult result = service.refund(
        messageValue<QString>(message, u"documentId"_s), messageValue<QString>(message, u"rrn"_s),
        messageValue<int>(message, u"amount"_s));
    if (result.success || result.noReply)
        return result.success;
    return keep(u"в возврате отказано"_s);
}
