#pragma once

#include "shared/core/tr.h"

#include <QDate>
#include <QJsonObject>
#include <QString>

namespace http {
struct Response;
}

namespace Log4Qt {
class Logger;
}

namespace apmindbox {

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

/// What the platform has done with a customer or an order. The numbers are used only in this
/// client.
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
    Calculated = 10,
    IncorrectConfirmationCode = 11,
};

} // namespace apmindbox

/// A customer in the platform's replies. A member that is missing or has another type keeps its
/// default.
struct ApMindboxCustomer
{
    bool isMobilePhoneConfirmed = false;
    bool consentToElectronicChecks = false;
    QString email;
    QString firstName;
    QString lastName;
    /// The platform may send it as a number.
    QString mobilePhone;
    QDate birthDate;
    /// In the platform's form.
    QString sex;
    apmindbox::ProcessingStatus processingStatus = apmindbox::ProcessingStatus::Unknown;
};

/// A customer in the till's requests.
struct ApMindboxCustomerData
{
    QString firstName;
    QString mobilePhone;
    /// Not sent if empty.
    QString email;
    /// Not sent if invalid.
    QDate birthDate;
    /// 0: male; any other number: female.
    qint32 sex = 0;
};

namespace apmindbox {

/// The outcome of an operation. Can be made from any reply: missing values keep their defaults.
class OperationResult
{
public:
    OperationResult() = default;
    /// Logs the error in the reply.
    OperationResult(const http::Response &reply, Log4Qt::Logger &logger);
    virtual ~OperationResult() = default;

    virtual bool isSuccess() const;
    virtual tr::Tr errorOr(const tr::Tr &defaultText) const;

    int httpStatus = 0;
    /// The client's error code; 0 for none.
    int networkError = 0;
    /// No complete answer, even if a status was received; or an answer that is too large to parse;
    /// or one without any JSON member and with a status other than 200.
    bool noConnection = false;
    RequestStatus status = RequestStatus::Unknown;
    /// Empty if the platform itself reports an error: that text is only logged.
    tr::Tr error;
    /// The whole reply; empty if it is not a JSON object.
    QJsonObject response;
    ApMindboxCustomer customer;

private:
    void readStatus(const http::Response &reply, Log4Qt::Logger &logger);
    void readCustomer();
};

class CreateOrderResult : public OperationResult
{
public:
    explicit CreateOrderResult(const OperationResult &result);

    /// The order was processed or calculated; `status` does not matter.
    bool isSuccess() const override;

    ProcessingStatus processingStatus = ProcessingStatus::Unknown;
};

class GetCustomerResult : public OperationResult
{
public:
    explicit GetCustomerResult(const OperationResult &result);

    /// The platform knows whether the customer exists.
    bool isSuccess() const override;
};

class RegisterCustomerResult : public OperationResult
{
public:
    explicit RegisterCustomerResult(const OperationResult &result);

    /// `response` says that the customer was created; `status` does not matter.
    bool isSuccess() const override;
};

} // namespace apmindbox
