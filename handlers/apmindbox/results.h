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
    /// Any text that is none of the others, or no text at all.
    Unknown = 0,
    /// The reply names an error, or there was no connection.
    Error = 1,
    Success = 2,
    ValidationError = 3,
    ProtocolError = 4,
};

/// Why the platform has not done what it was asked, in Russian and for people: its answer had this
/// status.
QString refusalReason(RequestStatus status);

/// What the platform has done with a customer or an order. The numbers are those of this client
/// alone.
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

/// A customer as the platform tells it. A member that the reply does not hold, or holds as
/// something else, keeps its default.
struct ApMindboxCustomer
{
    bool isMobilePhoneConfirmed = false;
    bool consentToElectronicChecks = false;
    QString email;
    QString firstName;
    QString lastName;
    /// The platform may give it as a number.
    QString mobilePhone;
    QDate birthDate;
    /// As the platform gives it.
    QString sex;
    apmindbox::ProcessingStatus processingStatus = apmindbox::ProcessingStatus::Unknown;
};

/// A customer as the till tells it.
struct ApMindboxCustomerData
{
    QString firstName;
    QString mobilePhone;
    /// Not sent when empty.
    QString email;
    /// Not sent when invalid.
    QDate birthDate;
    /// 0 is male, anything else female.
    qint32 sex = 0;
};

namespace apmindbox {

/// The outcome of an operation. Any reply makes one: what it does not hold stays at its default.
class OperationResult
{
public:
    OperationResult() = default;
    /// Logs the error that the reply names.
    OperationResult(const http::Response &reply, Log4Qt::Logger &logger);
    virtual ~OperationResult() = default;

    virtual bool isSuccess() const;
    virtual tr::Tr errorOr(const tr::Tr &defaultText) const;

    int httpStatus = 0;
    /// The client's error code, 0 for none.
    int networkError = 0;
    /// No whole answer came, whatever status was read before it broke off, or one that is too large
    /// to be read, or one that holds no JSON member and whose status is not 200.
    bool noConnection = false;
    RequestStatus status = RequestStatus::Unknown;
    /// Empty also when the platform names an error: its text is for the log.
    tr::Tr error;
    /// The whole reply; empty when it is no JSON object.
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

    /// The order was processed or calculated, whatever `status` says.
    bool isSuccess() const override;

    ProcessingStatus processingStatus = ProcessingStatus::Unknown;
};

class GetCustomerResult : public OperationResult
{
public:
    explicit GetCustomerResult(const OperationResult &result);

    /// The platform knows whether there is such a customer.
    bool isSuccess() const override;
};

class RegisterCustomerResult : public OperationResult
{
public:
    explicit RegisterCustomerResult(const OperationResult &result);

    /// `response` says that the customer was created, whatever `status` says.
    bool isSuccess() const override;
};

} // namespace apmindbox
