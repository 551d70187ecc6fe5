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
/// address, with the operation's name in the query. Its result contains the outcome, also of a
/// failed request. All operations call execute(), so that a subclass can replace the transport.
///
/// Settings: section `ApMindbox`, read by the constructor, so make a new object for each task. Logs
/// on `apmindbox`.
///
/// Throws BasicException if an operation that writes to the queue could not write the row; nothing
/// else throws.
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
    /// The code is logged.
    virtual OperationResult confirmMobilePhone(const QString &mobilePhone, const QString &code);
    virtual OperationResult checkMobilePhoneAuthorizationCode(const QString &mobilePhone,
                                                              const QString &code);
    virtual OperationResult confirmEmail(const QString &email);
    /// If there is no connection, the order is written to the queue with the current time, unless
    /// it comes from the queue (`fromQueue`). The result's `noConnection` then means that it has
    /// been queued.
    virtual CreateOrderResult createAuthorizedOrder(const QJsonObject &order, bool fromQueue);
    /// Without `sendNow` the change is written to the queue instead; the result then has its
    /// defaults and is not a success.
    virtual OperationResult changeOrderStatus(const QJsonObject &body, bool sendNow);
    /// Sends every request. An empty `transactionId` is left out of the query. The `pointOfContact`
    /// of the settings replaces one in `body`.
    virtual OperationResult execute(const QString &operationName, const QJsonObject &body,
                                    const QString &transactionId);

private:
    /// Contains the query of the latest request.
    QUrl url;
    /// The brand of the customers. Not sent by any operation.
    QString brand;
    QString endpoint;
    QString pointOfContact;
    QString secretKey;
    std::shared_ptr<RestClient> client;
    Log4Qt::Logger *logger;
};

} // namespace apmindbox
