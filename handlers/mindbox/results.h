#pragma once

#include "shared/core/tr.h"

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>

namespace http {
struct Response;
}

namespace Log4Qt {
class Logger;
}

/// Replies of Mindbox as values. Parsing never throws: a value that is missing or has another type
/// is empty, zero or the default given here.
namespace mindbox {

/// The top-level status of a reply.
enum class RequestStatus : qint32
{
    /// Any other text, or none.
    Unknown = 0,
    /// The reply contains an error, or there was no connection.
    Error = 1,
    Success = 2,
    ValidationError = 3,
    ProtocolError = 4,
};

/// The reason of a refusal, in Russian for people: the platform answered with this status.
QString refusalReason(RequestStatus status);

/// What Mindbox did with a customer, an order or a card. The numbers are Mindbox's, including the
/// gaps.
enum class ProcessingStatus : qint32
{
    Unknown = 0,
    NotFound = 1,
    Found = 2,
    Changed = 3,
    Created = 5,
    MobilePhoneConfirmed = 6,
    AlreadyConfirmed = 7,
    Processed = 8,
    NotProcessed = 9,
    AlreadyBoundToCurrentCustomer = 11,
    Bound = 12,
    PriceHasBeenChanged = 13,
    Calculated = 14,
    IncorrectConfirmationCode = 15,
};

} // namespace mindbox

struct MindboxDiscountCard
{
    QString number;
    /// Invalid if the reply has no ISO 8601 time.
    QDateTime date;
    mindbox::ProcessingStatus processingStatus = mindbox::ProcessingStatus::Unknown;
};

struct MindboxBalance
{
    QString systemName;
    QString name;
    double amount = 0;
};

struct MindboxCustomer
{
    bool isMobilePhoneConfirmed = false;
    bool consentToElectronicChecks = false;
    QString email;
    QString mindboxId;
    QString firstName;
    QString lastName;
    QString mobilePhone;
    mindbox::ProcessingStatus processingStatus = mindbox::ProcessingStatus::NotFound;
    QList<MindboxDiscountCard> discountCards;
    QList<MindboxBalance> balances;

    bool isFound() const { return processingStatus == mindbox::ProcessingStatus::Found; }
};

struct MindboxCoupon
{
    QString code;
    /// As the service writes it.
    QString status;
};

struct MindboxAppliedPromotion
{
    QString name;
    QString type;
    double amount = 0;
    QString promotionType;
    QString balanceType;
    QString couponCode;
};

/// Texts for a place on the receipt or on the screen.
struct MindboxPlaceholder
{
    QStringList messages;
    QString id;
};

struct MindboxLine
{
    double discountedPrice = 0;
    int lineNumber = 0;
    int lineId = 0;
    QList<MindboxAppliedPromotion> appliedPromotions;
    QList<MindboxPlaceholder> placeholders;
};

namespace mindbox {

/// The common part of all results. A value, never deleted through a pointer to this class, so it
/// has no virtual destructor.
class RequestResult
{
public:
    /// The request is finished with: done, or refused for good.
    virtual bool isSuccess() const;
    /// The text for the cashier; the service's own text is only logged.
    virtual tr::Tr error() const;
    /// The reply's error, or `defaultText` without one.
    virtual tr::Tr errorOr(const tr::Tr &defaultText) const;

    int httpStatus = 0;
    /// The client's error code; 0 for none.
    int networkError = 0;
    /// No complete answer, even if a status was received; or an answer that is too large to parse;
    /// or one without any JSON member and with a status other than 200. Only this distinguishes an
    /// unreachable service from one that answered with an error.
    bool noConnection = false;
    RequestStatus status = RequestStatus::Unknown;
    tr::Tr error_;
    /// The whole reply; empty if it is not a JSON object.
    QJsonObject response;
};

/// The reply to any operation, with the customer if it contains one.
class OperationResult : public RequestResult
{
public:
    OperationResult() = default;
    /// Logs the error in the reply.
    OperationResult(const http::Response &reply, Log4Qt::Logger &logger);
    virtual ~OperationResult() = default;

    MindboxCustomer customer;
    /// The activated cards of `customer`.
    QList<MindboxDiscountCard> discountCards;

private:
    void readStatus(const http::Response &reply, Log4Qt::Logger &logger);
    void readCustomer();
};

/// A calculated receipt. Only the order decides its success.
class PreorderResult : public OperationResult
{
public:
    explicit PreorderResult(const OperationResult &result);

    bool isSuccess() const override;

    ProcessingStatus processingStatus = ProcessingStatus::Unknown;
    double availableBonusAmount = 0;
    double totalPrice = 0;
    /// By code.
    QMap<QString, MindboxCoupon> coupons;
    QList<MindboxLine> lines;
    /// One for each line, even if the line earns nothing.
    QList<MindboxBalance> earnedBalances;
    QList<MindboxPlaceholder> placeholders;
};

/// A return. Only the order decides its success.
class ReturnResult : public OperationResult
{
public:
    explicit ReturnResult(const OperationResult &result);

    bool isSuccess() const override;

    ProcessingStatus processingStatus = ProcessingStatus::Unknown;
};

/// A transaction that has begun. Only the order decides its success.
class BeginResult : public OperationResult
{
public:
    /// Reads the setting `Mindbox:responseTransactionIdName`.
    explicit BeginResult(const OperationResult &result);

    bool isSuccess() const override;
    tr::Tr error() const override;

    ProcessingStatus processingStatus = ProcessingStatus::Unknown;
    QString transactionId;
    /// The reply's order, or the order inside it.
    QJsonObject order;
};

class RollbackResult : public OperationResult
{
public:
    explicit RollbackResult(const OperationResult &result);

    tr::Tr error() const override;
};

class ActivateCardResult : public OperationResult
{
public:
    explicit ActivateCardResult(const OperationResult &result);

    MindboxDiscountCard card;
};

/// The reply contains only the processing status of both cards.
class ReplaceCardResult : public RequestResult
{
public:
    explicit ReplaceCardResult(const OperationResult &result);

    MindboxDiscountCard newCard;
    MindboxDiscountCard oldCard;
};

} // namespace mindbox
