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
/// with the operation's name in the query. Its result contains the outcome, also of a failed
/// request. All operations call request(), so that a subclass can replace the transport.
///
/// Settings: section `Mindbox`, read by the constructor, so make a new object for each task. Logs
/// on `mindbox`.
///
/// Throws BasicException if an operation that writes to the queue could not write the row; nothing
/// else throws.
/// Thread: the one that made it, one request at a time.
class Interface
{
public:
    Interface();
    virtual ~Interface();

    /// `identifier` is a phone number or the number of a discount card.
    virtual OperationResult checkCustomer(const QString &identifier, bool byMobilePhone);
    /// Sets the customer's phone number to that in `changes`.
    virtual OperationResult editCustomer(const MindboxCustomer &customer,
                                         const MindboxCustomer &changes);
    /// Sends the first code for a phone number at once. Within 31 seconds another one for the same
    /// number is refused without a request; after that time it is a resending.
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
    /// These operations send nothing: they write a message that MindboxHandler delivers later.
    virtual void queueRollback(const QJsonObject &body);
    /// Adds the current time to `body` as `executionDateTimeUtc`. An empty `cardNumber` is left out
    /// of the message.
    virtual void queueSaveOfflineOrder(QJsonObject &body, const QString &cardNumber);
    virtual void queueCommit(const QJsonObject &body);
    virtual ReturnResult returnOrder(const QJsonObject &body);
    /// After this call the next code counts as the first one for any phone number.
    virtual void resetAuthorizationCodeState();
    /// Sends every request. An empty `transactionId` is left out of the query. The `pointOfContact`
    /// of the settings replaces one in `body`.
    virtual OperationResult request(const QString &operationName, const QJsonObject &body,
                                    const QString &transactionId);
    /// With `Mindbox:useIdempotencyKey` the order's external id is sent as the transaction's id, so
    /// that the platform recognizes a repeated request.
    virtual BeginResult beginOrderTransaction(const QString &operationName,
                                              const QJsonObject &order);

    OperationResult commitOrderTransaction(const QJsonObject &body);
    OperationResult saveOfflineOrder(const QJsonObject &body);

private:
    void readOperationNames();

    /// Contains the query of the latest request.
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
    /// The phone number of the latest first code, and the time of its sending in seconds since the
    /// epoch.
    QString authorizationCodePhone;
    quint32 authorizationCodeTime = 0;
    std::shared_ptr<RestClient> client;
    Log4Qt::Logger *logger;
};

} // namespace mindbox
