#include "handlers/apmindbox/results.h"

#include "handlers/common/replyword.h"
#include "shared/core/jsonvalue.h"
#include "shared/net/httpresponse.h"

#include <log4qt/logger.h>

using namespace Qt::StringLiterals;

namespace apmindbox {

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
        {u"NotFound",                  ProcessingStatus::NotFound},
        {u"Found",                     ProcessingStatus::Found},
        {u"Changed",                   ProcessingStatus::Changed},
        {u"Created",                   ProcessingStatus::Created},
        {u"MobilePhoneConfirmed",      ProcessingStatus::MobilePhoneConfirmed},
        {u"AlreadyConfirmed",          ProcessingStatus::AlreadyConfirmed},
        {u"Processed",                 ProcessingStatus::Processed},
        {u"NotProcessed",              ProcessingStatus::NotProcessed},
        {u"Calculated",                ProcessingStatus::Calculated},
        {u"IncorrectConfirmationCode", ProcessingStatus::IncorrectConfirmationCode},
    };
    // clang-format on
    return meaningOf(text, known, ProcessingStatus::Unknown);
}

ProcessingStatus statusAt(const QJsonObject &object, const QString &path)
{
    return processingStatusOf(jsonTextByPath(object, path));
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

bool OperationResult::isSuccess() const
{
    return status == RequestStatus::Success;
}

tr::Tr OperationResult::errorOr(const tr::Tr &defaultText) const
{
    return error.isEmpty() ? defaultText : error;
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
    // An order must not be lost after a partial answer: it is written to the queue.
    const bool isUnread = reply.isNetworkError() || reply.isTooLarge();
    if (isUnread || (response.isEmpty() && httpStatus != httpOk)) {
        status = RequestStatus::Error;
        noConnection = true;
        error = tr::Tr(u"mindboxNoConnectionError"_s, u"Ошибка связи с сервером"_s);
    }
}

void OperationResult::readCustomer()
{
    customer.isMobilePhoneConfirmed =
        jsonValueByPath(response, u"customer.isMobilePhoneConfirmed"_s).toBool();
    customer.consentToElectronicChecks =
        jsonValueByPath(response, u"customer.customFields.consentToElectronicChecks"_s).toBool();
    customer.email = jsonTextByPath(response, u"customer.email"_s);
    customer.firstName = jsonTextByPath(response, u"customer.firstName"_s);
    customer.lastName = jsonTextByPath(response, u"customer.lastName"_s);
    customer.mobilePhone = jsonLooseTextByPath(response, u"customer.mobilePhone"_s);
    // The platform's format for a birth date differs between requests and replies.
    customer.birthDate =
        QDate::fromString(jsonTextByPath(response, u"customer.birthDate"_s), u"yyyy-MM-dd"_s);
    customer.sex = jsonTextByPath(response, u"customer.sex"_s);
    customer.processingStatus = statusAt(response, u"customer.processingStatus"_s);
}

CreateOrderResult::CreateOrderResult(const OperationResult &result)
    : OperationResult(result)
    , processingStatus(statusAt(response, u"order.processingStatus"_s))
{
}

bool CreateOrderResult::isSuccess() const
{
    return processingStatus == ProcessingStatus::Processed
           || processingStatus == ProcessingStatus::Calculated;
}

GetCustomerResult::GetCustomerResult(const OperationResult &result)
    : OperationResult(result)
{
}

bool GetCustomerResult::isSuccess() const
{
    // "Customer not found" is a valid answer.
    return status == RequestStatus::Success
           && (customer.processingStatus == ProcessingStatus::Found
               || customer.processingStatus == ProcessingStatus::NotFound);
}

RegisterCustomerResult::RegisterCustomerResult(const OperationResult &result)
    : OperationResult(result)
{
}

bool RegisterCustomerResult::isSuccess() const
{
    return statusAt(response, u"customer.processingStatus"_s) == ProcessingStatus::Created;
}

} // namespace apmindbox
