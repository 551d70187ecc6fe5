#pragma once

#include "handlers/mindbox/results.h"

#include <QJsonObject>
#include <QString>
#include <QUrl>

#include <memory>

class RestClient;

namespace Log4Qt {
class Logger;
}

namespace mindbox {

/// The client of the Mindbox loyalty platform. Each operation is one POST of JSON to one address,
/// with the operation's name in the query, and tells the outcome by its result; a failed request is
/// a result like any other. All of them go through request(), so a subclass can replace the
/// transport alone.
///
/// Settings: section `Mindbox`, read when the object is made, so make one for each piece of work.
/// Logs on `mindbox`.
///
/// Throws BasicException where an operation writes into the queue and the row could not be written;
/// nothing else throws.
/// Thread: the one that made it, one request at a time.
class Interface
{
public:
    Interface();
    virtual ~Interface();

    /// `identifier` is a phone number, or the number of a discount card.
    virtual OperationResult checkCustomer(const QString &identifier, bool byMobilePhone);
    /// Gives the customer the phone number of `changes`.
    virtual OperationResult editCustomer(const MindboxCustomer &customer,
                                         const MindboxCustomer &changes);
    /// The first code of a phone number goes out at once. Another one for the same number is
    /// refused, without a request, until 31 seconds after the first, and is a resending from then
    /// on.
    virtual OperationResult sendMobilePhoneAuthorizationCode(const QString &mobilePhone);
    virtual OperationResult checkMobilePhoneAuthorizationCode(const MindboxCustomer &customer,
                                                              const QString &code);
    virtual OperationResult resendMobilePhoneAuthorizationCode(const QString &mobilePhone);
    virtual OperationResult confirmMobilePhone(const MindboxCustomer &customer,
                                               const QString &code);
    virtual OperationResult registerCustomer(const QString &mobilePhone);
    virtual ActivateCardResult activateDiscountCard(const QString &mobilePhone,
                                                    const QString &cardNumber);
    virtual ActivateCardResult activateVirtualDiscountCard(const QString &mobilePhone);
    virtual ReplaceCardResult replaceCards(const QString &oldNumber, const QString &newNumber);
    virtual PreorderResult anonymousPreorder(const QJsonObject &order);
    virtual PreorderResult authorizedPreorder(const QJsonObject &order);
    virtual PreorderResult unauthorizedPreorder(const QJsonObject &order);
    virtual BeginResult beginAnonymousOrderTransaction(const QJsonObject &order);
    virtual BeginResult beginAuthorizedOrderTransaction(const QJsonObject &order);
    virtual BeginResult beginUnauthorizedOrderTransaction(const QJsonObject &order);
    virtual RollbackResult rollbackOrderTransaction(const QJsonObject &body);
    /// The queue forms write a message that MindboxHandler delivers, and send nothing.
    virtual void queueRollback(const QJsonObject &body);
    /// Stamps the time of this call into `body`, as `executionDateTimeUtc`. An empty `cardNumber`
    /// is left out of the message.
    virtual void queueSaveOfflineOrder(QJsonObject &body, const QString &cardNumber);
    virtual void queueCommit(const QJsonObject &body);
    virtual ReturnResult returnOrder(const QJsonObject &body);
    /// The next code for any phone number is a first one again.
    virtual void resetAuthorizationCodeState();
    /// The one way to the platform. `transactionId` is left out of the query when empty. A
    /// `pointOfContact` in `body` gives way to the one of the settings.
    virtual OperationResult request(const QString &operationName, const QJsonObject &body,
                                    const QString &transactionId);
    /// With `Mindbox:useIdempotencyKey` the order's external id goes along as the transaction's id,
    /// so that the platform knows a repeated beginning.
    virtual BeginResult beginOrderTransaction(const QString &operationName,
                                              const QJsonObject &order);

    OperationResult commitOrderTransaction(const QJsonObject &body);
    OperationResult saveOfflineOrder(const QJsonObject &body);

private:
    void readOperationNames();

    /// Its query is that of the latest request.
    QUrl url;
    QString endpoint;
    QString pointOfContact;
    QString secretKey;
    QString sendMobilePhoneAuthorizationCodeOperation;
    QString resendMobilePhoneAuthorizationCodeOperation;
    QString registerCustomerOperation;
    QString returnOperation;
    QString activateDiscountCardOperation;
    QString activateVirtualDiscountCardOperation;
    QString anonymousPreorderOperation;
    QString authorizedPreorderOperation;
    QString beginAnonymousOrderTransactionOperation;
    QString beginAuthorizedOrderTransactionOperation;
    QString beginUnauthorizedOrderTransactionOperation;
    QString checkCustomerOperation;
    QString checkMobilePhoneAuthorizationCodeOperation;
    QString commitOrderTransactionOperation;
    QString confirmMobilePhoneOperation;
    QString editCustomerOperation;
    QString replaceCardsOperation;
    QString rollbackOrderTransactionOperation;
    QString saveOfflineOrderOperation;
    QString unauthorizedPreorderOperation;
    bool useIdempotencyKey = false;
    /// The phone number of the latest first code, and when that code went out, in seconds since the
    /// epoch.
    QString authorizationCodePhone;
    quint32 authorizationCodeTime = 0;
    std::shared_ptr<RestClient> client;
    Log4Qt::Logger *logger;
};

} // namespace mindbox
