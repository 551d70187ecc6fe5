#include "handlers/mindbox/results.h"

#include "handlers/common/replyword.h"
#include "handlers/mindbox/settings.h"
#include "shared/core/jsonvalue.h"
#include "shared/net/httpresponse.h"

#include <log4qt/logger.h>

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace mindbox {

namespace {

constexpr int httpOk = 200;

RequestStatus requestStatusOf(const QString &text)
{
    // clang-format off
    static constexpr KnownWord<RequestStatus> known[] = {
        {u"Success",         RequestStatus::Success},
        {u"ValidationError", RequestStatus::ValidationError},
        {u"ProtocolError",   RequestStatus::ProtocolError},
    };
    // clang-format on
    return meaningOf(text, known, RequestStatus::Unknown);
}

ProcessingStatus processingStatusOf(const QString &text)
{
    // clang-format off
    static constexpr KnownWord<ProcessingStatus> known[] = {
        {u"NotFound",                      ProcessingStatus::NotFound},
        {u"Found",                         ProcessingStatus::Found},
        {u"Changed",                       ProcessingStatus::Changed},
        {u"Created",                       ProcessingStatus::Created},
        {u"MobilePhoneConfirmed",          ProcessingStatus::MobilePhoneConfirmed},
        {u"AlreadyConfirmed",              ProcessingStatus::AlreadyConfirmed},
        {u"Processed",                     ProcessingStatus::Processed},
        {u"NotProcessed",                  ProcessingStatus::NotProcessed},
        {u"AlreadyBoundToCurrentCustomer", ProcessingStatus::AlreadyBoundToCurrentCustomer},
        {u"Bound",                         ProcessingStatus::Bound},
        {u"PriceHasBeenChanged",           ProcessingStatus::PriceHasBeenChanged},
        {u"Calculated",                    ProcessingStatus::Calculated},
        {u"IncorrectConfirmationCode",     ProcessingStatus::IncorrectConfirmationCode},
    };
    // clang-format on
    return meaningOf(text, known, ProcessingStatus::Unknown);
}

ProcessingStatus statusAt(const QJsonObject &object, const QString &path)
{
    return processingStatusOf(jsonTextByPath(object, path));
}

double numberAt(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path).toDouble();
}

QJsonArray listAt(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path).toArray();
}

QDateTime timeOf(const QJsonValue &text)
{
    return QDateTime::fromString(text.toString(), Qt::ISODateWithMs);
}

template <typename Record>
QList<Record> listOf(const QJsonArray &elements, Record (*read)(const QJsonObject &))
{
    QList<Record> records;
    for (const auto &element : elements)
        records.append(read(element.toObject()));
    return records;
}

/// Only activated cards; the others give the customer nothing.
QList<MindboxDiscountCard> activatedCards(const QJsonArray &elements)
{
    QList<MindboxDiscountCard> cards;
    for (const auto &element : elements) {
        const QJsonObject object = element.toObject();
        if (jsonTextByPath(object, u"status.ids.systemName"_s) != "Activated"_L1)
            continue;
        MindboxDiscountCard card;
        card.number = jsonTextByPath(object, u"ids.number"_s);
        card.date = timeOf(jsonValueByPath(object, u"status.dateTimeUtc"_s));
        cards.append(card);
    }
    return cards;
}

MindboxBalance customerBalance(const QJsonObject &object)
{
    MindboxBalance balance;
    balance.name = jsonTextByPath(object, u"name"_s);
    balance.amount = numberAt(object, u"available"_s);
    return balance;
}

MindboxBalance earnedBalance(const QJsonObject &line)
{
    MindboxBalance balance;
    balance.systemName = jsonTextByPath(line, u"balanceType.ids.systemName"_s);
    balance.name = jsonTextByPath(line, u"balanceType.name"_s);
    balance.amount = numberAt(line, u"earnedAmount"_s);
    return balance;
}

MindboxPlaceholder placeholderOf(const QJsonObject &object)
{
    MindboxPlaceholder placeholder;
    placeholder.id = jsonTextByPath(object, u"ids.externalId"_s);
    const QJsonArray content = listAt(object, u"content"_s);
    for (const auto &part : content)
        placeholder.messages.append(jsonTextByPath(part.toObject(), u"message"_s));
    return placeholder;
}

MindboxAppliedPromotion promotionOf(const QJsonObject &object)
{
    MindboxAppliedPromotion promotion;
    promotion.name = jsonTextByPath(object, u"promotion.name"_s);
    promotion.type = jsonTextByPath(object, u"type"_s);
    promotion.amount = numberAt(object, u"amount"_s);
    promotion.promotionType = jsonTextByPath(object, u"promotion.type"_s);
    promotion.balanceType = jsonTextByPath(object, u"balanceType.ids.systemName"_s);
    promotion.couponCode = jsonTextByPath(object, u"coupon.ids.code"_s);
    return promotion;
}

MindboxLine lineOf(const QJsonObject &object)
{
    MindboxLine line;
    line.discountedPrice = numberAt(object, u"discountedPriceOfLine"_s);
    line.lineNumber = jsonValueByPath(object, u"lineNumber"_s).toInt();
    line.lineId = jsonTextByPath(object, u"lineId"_s).toInt();
    line.appliedPromotions = listOf(listAt(object, u"appliedPromotions"_s), promotionOf);
    line.placeholders = listOf(listAt(object, u"placeholders"_s), placeholderOf);
    return line;
}

QMap<QString, MindboxCoupon> couponsOf(const QJsonArray &elements)
{
    QMap<QString, MindboxCoupon> coupons;
    for (const auto &element : elements) {
        const QJsonObject object = element.toObject();
        MindboxCoupon coupon;
        coupon.code = jsonTextByPath(object, u"coupon.ids.code"_s);
        coupon.status = jsonTextByPath(object, u"coupon.status"_s);
        coupons.insert(coupon.code, coupon);
    }
    return coupons;
}

} // namespace

QString refusalReason(RequestStatus status)
{
    switch (status) {
    case RequestStatus::Error:
        return u"платформа ответила ошибкой"_s;
    case RequestStatus::ValidationError:
        return u"платформа не приняла данные (ValidationError)"_s;
    case RequestStatus::ProtocolError:
        return u"платформа не приняла запрос (ProtocolError)"_s;
    case RequestStatus::Unknown:
    case RequestStatus::Success:
        break;
    }
    return u"платформа не подтвердила операцию"_s;
}

bool RequestResult::isSuccess() const
{
    // Another attempt would be refused again.
    return networkError == http::badRequestError || status == RequestStatus::Success;
}

tr::Tr RequestResult::error() const
{
    return error_;
}

tr::Tr RequestResult::errorOr(const tr::Tr &defaultText) const
{
    return error_.isEmpty() ? defaultText : error_;
}

OperationResult::OperationResult(const http::Response &reply, Log4Qt::Logger &logger)
{
    httpStatus = reply.status;
    networkError = reply.errorCode;
    response = reply.responseObject();
    readStatus(reply, logger);
    if (response.contains(u"customer"_s))
        readCustomer();
}

void OperationResult::readStatus(const http::Response &reply, Log4Qt::Logger &logger)
{
    const QString text = jsonTextByPath(response, u"status"_s);
    status = requestStatusOf(text);
    if (response.contains(u"errorMessage"_s)) {
        logger.error(u"Статус: %1"_s, text);
        logger.error(u"Ошибка: %1"_s, jsonTextByPath(response, u"errorMessage"_s));
        status = RequestStatus::Error;
        return;
    }
    // An order must not be dropped after a partial answer about its customer.
    const bool isUnread = reply.isNetworkError() || reply.isTooLarge();
    if (isUnread || (response.isEmpty() && httpStatus != httpOk)) {
        status = RequestStatus::Error;
        noConnection = true;
        error_ = tr::Tr(u"mindboxNoConnectionError"_s, u"Ошибка связи с сервером"_s);
    }
}

void OperationResult::readCustomer()
{
    customer.isMobilePhoneConfirmed =
        jsonValueByPath(response, u"customer.isMobilePhoneConfirmed"_s).toBool();
    customer.consentToElectronicChecks =
        jsonValueByPath(response, u"customer.customFields.consentToElectronicChecks"_s).toBool();
    customer.email = jsonTextByPath(response, u"customer.email"_s);
    customer.mindboxId = jsonLooseTextByPath(response, u"customer.ids.mindboxId"_s);
    customer.firstName = jsonTextByPath(response, u"customer.firstName"_s);
    customer.lastName = jsonTextByPath(response, u"customer.lastName"_s);
    customer.mobilePhone = jsonLooseTextByPath(response, u"customer.mobilePhone"_s);
    // A missing status means "not found"; an unknown word means an unknown status.
    customer.processingStatus = processingStatusOf(
        jsonValueByPath(response, u"customer.processingStatus"_s).toString(u"NotFound"_s));
    discountCards = activatedCards(listAt(response, u"discountCards"_s));
    customer.discountCards = discountCards;
    customer.balances = listOf(listAt(response, u"balances"_s), customerBalance);
}

PreorderResult::PreorderResult(const OperationResult &result)
    : OperationResult(result)
{
    const QJsonArray orderLines = listAt(response, u"order.lines"_s);
    lines = listOf(orderLines, lineOf);
    coupons = couponsOf(listAt(response, u"order.couponsInfo"_s));
    placeholders = listOf(listAt(response, u"order.placeholders"_s), placeholderOf);
    processingStatus = statusAt(response, u"order.processingStatus"_s);
    availableBonusAmount =
        numberAt(response, u"order.totalBonusPointsInfo.availableAmountForCurrentOrder"_s);
    totalPrice = numberAt(response, u"order.totalPrice"_s);
    earnedBalances = listOf(orderLines, earnedBalance);
}

bool PreorderResult::isSuccess() const
{
    return processingStatus == ProcessingStatus::Calculated;
}

ReturnResult::ReturnResult(const OperationResult &result)
    : OperationResult(result)
    , processingStatus(statusAt(response, u"order.processingStatus"_s))
{
}

bool ReturnResult::isSuccess() const
{
    return processingStatus == ProcessingStatus::Processed;
}

BeginResult::BeginResult(const OperationResult &result)
    : OperationResult(result)
    , processingStatus(statusAt(response, u"order.processingStatus"_s))
{
    const QJsonObject outerOrder = response.value(u"order"_s).toObject();
    const QJsonValue innerOrder = outerOrder.value(u"order"_s);
    order = innerOrder.isUndefined() ? outerOrder : innerOrder.toObject();
    const QString idName = settings::mindbox::responseTransactionIdName.value();
    // The id is beside the inner order, not in it.
    transactionId = jsonTextByPath(outerOrder, u"ids.%1"_s.arg(idName));
}

bool BeginResult::isSuccess() const
{
    return processingStatus == ProcessingStatus::Processed;
}

tr::Tr BeginResult::error() const
{
    return errorOr(
        tr::Tr(u"mindboxBeginError"_s, u"Не удалось сохранить заказ в системе лояльности"_s));
}

RollbackResult::RollbackResult(const OperationResult &result)
    : OperationResult(result)
{
}

tr::Tr RollbackResult::error() const
{
    return errorOr(tr::Tr(u"mindboxRollbackError"_s, u"Невозможно совершить откат транзакции"_s));
}

ActivateCardResult::ActivateCardResult(const OperationResult &result)
    : OperationResult(result)
{
    const QJsonObject object = response.value(u"discountCard"_s).toObject();
    card.number = jsonTextByPath(object, u"ids.number"_s);
    card.processingStatus = statusAt(object, u"processingStatus"_s);
    card.date = timeOf(object.value(u"status"_s).toObject().value(u"dateTimeUtc"_s));
}

ReplaceCardResult::ReplaceCardResult(const OperationResult &result)
    : RequestResult(result)
{
    oldCard.processingStatus = statusAt(response, u"oldDiscountCard.processingStatus"_s);
    newCard.processingStatus = statusAt(response, u"newDiscountCard.processingStatus"_s);
}

} // namespace mindbox
