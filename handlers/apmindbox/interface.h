#pragma once

#include "handlers/apmindbox/results.h"

#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <memory>

class RestClient;

namespace Log4Qt {
class Logger;
}

namespace apmindbox {

/// One brand's client of the Mindbox loyalty platform. Each operation is one POST of JSON to one
/// address, with the operation's name in the query, and tells the outcome by its result; a failed
/// request is a result like any other. All of them go through execute(), so a subclass can replace
/// the transport alone.
///
/// Settings: section `ApMindbox`, read when the object is made, so make one for each piece of work.
/// Logs on `apmindbox`.
///
/// Throws BasicException where an operation writes into the queue and the row could not be written;
/// nothing else throws.
/// Thread: the one that made it, one request at a time.
class Interface
{
public:
    Interface();
    virtual ~Interface();

    virtual GetCustomerResult getCustomer(const QString &mobilePhone);
    virtual RegisterCustomerResult registerCustomer(const ApMindboxCustomerData &customer);
    virtual OperationResult editCustomer(const ApMindboxCustomerData &customer);
    virtual OperationResult resendMobilePhoneConfirmationCode(const QString &mobilePhone);
    /// The code appears in the log.
    virtual OperationResult confirmMobilePhone(const QString &mobilePhone, const QString &code);
    virtual OperationResult checkMobilePhoneAuthorizationCode(const QString &mobilePhone,
                                                              const QString &code);
    virtual OperationResult confirmEmail(const QString &email);
    /// An order that found no connection goes into the queue, with the time of this attempt, unless
    /// it comes from there (`fromQueue`). `noConnection` of the result then says that it lies
    /// there.
    virtual CreateOrderResult createAuthorizedOrder(const QJsonObject &order, bool fromQueue);
    /// Without `sendNow` the change goes into the queue instead; the result is at its defaults and
    /// no success.
    virtual OperationResult changeOrderStatus(const QJsonObject &body, bool sendNow);
    /// The one way to the platform. `transactionId` is left out of the query when empty. A
    /// `pointOfContact` in `body` gives way to the one of the settings.
    virtual OperationResult execute(const QString &operationName, const QJsonObject &body,
                                    const QString &transactionId);

private:
    /// Its query is that of the latest request.
    QUrl url;
    /// Whose customers these are. No operation sends it.
    QString brand;
    QString endpoint;
    QString pointOfContact;
    QString secretKey;
    std::shared_ptr<RestClient> client;
    Log4Qt::Logger *logger;
};

} // namespace apmindbox
