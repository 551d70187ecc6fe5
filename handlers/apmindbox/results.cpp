#include "handlers/apmindbox/results.h"

#include "shared/core/jsonvalue.h"

#include <log4qt/logger.h>

#include <QHash>

using namespace Qt::StringLiterals;

namespace apmindbox {

namespace {

constexpr int httpOk = 200;

RequestStatus requestStatus(const QString &text)
{
    // clang-format off
    static const QHash<QString, RequestStatus> known{
        {u"Success"_s,         RequestStatus::Success},
        {u"ValidationError"_s, RequestStatus::ValidationError},
        {u"ProtocolError"_s,   RequestStatus::ProtocolError},
    };
    // clang-format on
    return known.value(text, RequestStatus::Unknown);
}

ProcessingStatus processingStatusAt(const QJsonObject &reply, const QString &path)
{
    // clang-format off
    static const QHash<QString, ProcessingStatus> known{
        {u"NotFound"_s,                  ProcessingStatus::NotFound},
        {u"Found"_s,                     ProcessingStatus::Found},
        {u"Changed"_s,                   ProcessingStatus::Changed},
        {u"Created"_s,                   ProcessingStatus::Created},
        {u"MobilePhoneConfirmed"_s,      ProcessingStatus::MobilePhoneConfirmed},
        {u"AlreadyConfirmed"_s,          ProcessingStatus::AlreadyConfirmed},
        {u"Processed"_s,                 ProcessingStatus::Processed},
        {u"NotProcessed"_s,              ProcessingStatus::NotProcessed},
        {u"Calculated"_s,                ProcessingStatus::Calculated},
        {u"IncorrectConfirmationCode"_s, ProcessingStatus::IncorrectConfirmationCode},
    };
    // clang-format on
    return known.value(jsonValueByPath(reply, path).toString(), ProcessingStatus::Unknown);
}

ApMindboxCustomer customerFrom(const QJsonObject &reply)
{
    const auto value = [&reply](const QString &path) {
        return jsonValueByPath(reply, path);
    };
    ApMindboxCustomer customer;
    customer.isMobilePhoneConfirmed = value(u"customer.isMobilePhoneConfirmed"_s).toBool();
    customer.consentToElectronicChecks =
        value(u"customer.customFields.consentToElectronicChecks"_s).toBool();
    customer.email = value(u"customer.email"_s).toString();
    customer.firstName = value(u"customer.firstName"_s).toString();
    customer.lastName = value(u"customer.lastName"_s).toString();
    customer.mobilePhone = value(u"customer.mobilePhone"_s).toVariant().toString();
    // The platform tells a birth date in another format than the one it is told.
    customer.birthDate =
        QDate::fromString(value(u"customer.birthDate"_s).toString(), u"yyyy-MM-dd"_s);
    customer.sex = value(u"customer.sex"_s).toString();
    customer.processingStatus = processingStatusAt(reply, u"customer.processingStatus"_s);
    return customer;
}

} // namespace

OperationResult::OperationResult(const http::Response &reply, Log4Qt::Logger &logger)
    : httpStatus(reply.status)
    , networkError(reply.errorCode)
    , response(reply.responseObject())
{
    const QString statusText = response.value("status"_L1).toString();
    status = requestStatus(statusText);
    if (response.contains("errorMessage"_L1)) {
        logger.error(u"Статус: %1"_s, statusText);
        logger.error(u"Ошибка: %1"_s, response.value("errorMessage"_L1).toString());
        status = RequestStatus::Error;
    } else if (reply.isNetworkError() || reply.isTooLarge()
               || (response.isEmpty() && httpStatus != httpOk)) {
        status = RequestStatus::Error;
        noConnection = true;
        error = tr::Tr(u"mindboxNoConnectionError"_s, u"Ошибка связи с сервером"_s);
    }
    if (response.contains("customer"_L1))
        customer = customerFrom(response);
}

OperationResult::~OperationResult() = default;

bool OperationResult::isSuccess() const
{
    return status == RequestStatus::Success;
}

tr::Tr OperationResult::errorOr(const tr::Tr &defaultText) const
{
    return error.isEmpty() ? defaultText : error;
}

CreateOrderResult::CreateOrderResult(const OperationResult &result)
    : OperationResult(result)
    , processingStatus(processingStatusAt(response, u"order.processingStatus"_s))
{
}

CreateOrderResult::~CreateOrderResult() = default;

bool CreateOrderResult::isSuccess() const
{
    return processingStatus == ProcessingStatus::Processed
           || processingStatus == ProcessingStatus::Calculated;
}

GetCustomerResult::GetCustomerResult(const OperationResult &result)
    : OperationResult(result)
{
}

GetCustomerResult::~GetCustomerResult() = default;

bool GetCustomerResult::isSuccess() const
{
    // A customer whom the platform does not know is an answer, too.
    return status == RequestStatus::Success
           && (customer.processingStatus == ProcessingStatus::Found
               || customer.processingStatus == ProcessingStatus::NotFound);
}

RegisterCustomerResult::RegisterCustomerResult(const OperationResult &result)
    : OperationResult(result)
{
}

RegisterCustomerResult::~RegisterCustomerResult() = default;

bool RegisterCustomerResult::isSuccess() const
{
    return processingStatusAt(response, u"customer.processingStatus"_s)
           == ProcessingStatus::Created;
}

} // namespace apmindbox
