#include "handlers/mindbox/results.h"

#include "shared/core/config.h"
#include "shared/core/jsonvalue.h"
#include "shared/core/singleton.h"
#include "shared/net/httpresponse.h"

#include <log4qt/logger.h>

#include <QJsonArray>

using namespace Qt::StringLiterals;

namespace mindbox {

namespace {

RequestStatus requestStatus(const QString &text)
{
    if (text == "Success"_L1)
        return RequestStatus::Success;
    if (text == "ValidationError"_L1)
        return RequestStatus::ValidationError;
    if (text == "ProtocolError"_L1)
        return RequestStatus::ProtocolError;
    return RequestStatus::Unknown;
}

ProcessingStatus processingStatusOf(const QString &text)
{
    struct Row
    {
        QLatin1StringView text;
        ProcessingStatus status;
    };
    // clang-format off
    static constexpr Row rows[] = {
        {"NotFound"_L1,                      ProcessingStatus::NotFound},
        {"Found"_L1,                         ProcessingStatus::Found},
        {"Changed"_L1,                       ProcessingStatus::Changed},
        {"Created"_L1,                       ProcessingStatus::Created},
        {"MobilePhoneConfirmed"_L1,          ProcessingStatus::MobilePhoneConfirmed},
        {"AlreadyConfirmed"_L1,              ProcessingStatus::AlreadyConfirmed},
        {"Processed"_L1,                     ProcessingStatus::Processed},
        {"NotProcessed"_L1,                  ProcessingStatus::NotProcessed},
        {"AlreadyBoundToCurrentCustomer"_L1, ProcessingStatus::AlreadyBoundToCurrentCustomer},
        {"Bound"_L1,                         ProcessingStatus::Bound},
        {"PriceHasBeenChanged"_L1,           ProcessingStatus::PriceHasBeenChanged},
        {"Calculated"_L1,                    ProcessingStatus::Calculated},
        {"IncorrectConfirmationCode"_L1,     ProcessingStatus::IncorrectConfirmationCode},
    };
    // clang-format on
    for (const Row &row : rows) {
        if (text == row.text)
            return row.status;
    }
    return ProcessingStatus::Unknown;
}

QString textAt(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path).toString();
}

/// A number counts as its text, too.
QString looseTextAt(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path).toVariant().toString();
}

double numberAt(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path).toDouble();
}

QJsonArray listAt(const QJsonObject &object, const QString &path)
{
    return jsonValueByPath(object, path).toArray();
}

ProcessingStatus statusAt(const QJsonObject &object, const QString &path)
{
    return processingStatusOf(textAt(object, path));
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

/// Cards that are not activated give the customer nothing, so they are left out.
QList<MindboxDiscountCard> activatedCards(const QJsonArray &elements)
{
    QList<MindboxDiscountCard> cards;
    for (const auto &element : elements) {
        const QJsonObject object = element.toObject();
        if (textAt(object, u"status.ids.systemName"_s) != "Activated"_L1)
            continue;
        MindboxDiscountCard card;
        card.number = textAt(object, u"ids.number"_s);
        card.date = timeOf(jsonValueByPath(object, u"status.dateTimeUtc"_s));
        cards.append(card);
    }
    return cards;
}

MindboxBalance customerBalance(const QJsonObject &object)
{
    MindboxBalance balance;
    balance.name = textAt(object, u"name"_s);
    balance.amount = numberAt(object, u"available"_s);
    return balance;
}

MindboxBalance earnedBalance(const QJsonObject &line)
{
    MindboxBalance balance;
    balance.systemName = textAt(line, u"balanceType.ids.systemName"_s);
    balance.name = textAt(line, u"balanceType.name"_s);
    balance.amount = numberAt(line, u"earnedAmount"_s);
    return balance;
}

MindboxPlaceholder placeholderOf(const QJsonObject &object)
{
    MindboxPlaceholder placeholder;
    placeholder.id = textAt(object, u"ids.externalId"_s);
    const QJsonArray content = listAt(object, u"content"_s);
    for (const auto &part : content)
        placeholder.messages.append(textAt(part.toObject(), u"message"_s));
    return placeholder;
}

MindboxAppliedPromotion promotionOf(const QJsonObject &object)
{
    MindboxAppliedPromotion promotion;
    promotion.name = textAt(object, u"promotion.name"_s);
    promotion.type = textAt(object, u"type"_s);
    promotion.amount = numberAt(object, u"amount"_s);
    promotion.promotionType = textAt(object, u"promotion.type"_s);
    promotion.balanceType = textAt(object, u"balanceType.ids.systemName"_s);
    promotion.couponCode = textAt(object, u"coupon.ids.code"_s);
    return promotion;
}

MindboxLine lineOf(const QJsonObject &object)
{
    MindboxLine line;
    line.discountedPrice = numberAt(object, u"discountedPriceOfLine"_s);
    line.lineNumber = jsonValueByPath(object, u"lineNumber"_s).toInt();
    line.lineId = textAt(object, u"lineId"_s).toInt();
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
        coupon.code = textAt(object, u"coupon.ids.code"_s);
        coupon.status = textAt(object, u"coupon.status"_s);
        coupons.insert(coupon.code, coupon);
    }
    return coupons;
}

} // namespace

bool RequestResult::isSuccess() const
{
    return networkError == badRequestError || status == RequestStatus::Success;
}

tr::Tr RequestResult::error() const
{
    return error_;
}

tr::Tr RequestResult::errorOr(const tr::Tr &defaultText) const
{
    return error_.isEmpty() ? defaultText : error_;
}

OperationResult::OperationResult(const http::Response &httpResponse, Log4Qt::Logger *logger)
{
    response = httpResponse.responseObject();
    httpStatus = httpResponse.status;
    networkError = httpResponse.errorCode;
    readStatus(httpResponse.isNetworkError() || httpResponse.isTooLarge(), logger);
    if (response.contains(u"customer"_s))
        readCustomer();
}

void OperationResult::readStatus(bool isUnread, Log4Qt::Logger *logger)
{
    const QString statusText = textAt(response, u"status"_s);
    status = requestStatus(statusText);
    if (response.contains(u"errorMessage"_s)) {
        logger->error(u"Статус: %1"_s, statusText);
        logger->error(u"Ошибка: %1"_s, textAt(response, u"errorMessage"_s));
        status = RequestStatus::Error;
        return;
    }
    // An order must not be dropped for half an answer about its customer.
    if (isUnread || (response.isEmpty() && httpStatus != 200)) {
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
    customer.email = textAt(response, u"customer.email"_s);
    customer.mindboxId = looseTextAt(response, u"customer.ids.mindboxId"_s);
    customer.firstName = textAt(response, u"customer.firstName"_s);
    customer.lastName = textAt(response, u"customer.lastName"_s);
    customer.mobilePhone = looseTextAt(response, u"customer.mobilePhone"_s);
    // A customer of whom nothing is told is not found, while an unknown word is an unknown status.
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
    const QString idName = Singleton<Config>::instance()->getString(
        u"Mindbox:responseTransactionIdName"_s, u"offlineTransactionIdTallo"_s);
    // The id stands beside an inner order, not in it.
    transactionId = textAt(outerOrder, u"ids.%1"_s.arg(idName));
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
    card.number = textAt(object, u"ids.number"_s);
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
