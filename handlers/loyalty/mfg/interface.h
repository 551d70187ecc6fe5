#pragma once

#include "handlers/loyalty/mfg/request.h"
#include "shared/document/document.h"
#include "shared/document/documentcardrecord.h"
#include "shared/net/httpresponse.h"

#include <QJsonObject>
#include <QUrlQuery>

#include <filesystem>
#include <optional>

namespace Log4Qt {
class Logger;
}

namespace mfg {

/// How to search for a customer.
enum class SearchKind : int
{
    Card = 0,
    Phone = 1,
};

/// The service's reply to an order.
struct OrderResult
{
    /// The member `result` of the reply.
    QJsonObject result;
    /// The order's id at the service; empty if another program made the request.
    QString basket;
};

/// The client of the Mfg loyalty service. The queue uses only sendFromQueue(); the other operations
/// are for programs that calculate orders or prepare messages.
///
/// Settings, read by the constructor: `Mfg:host`, `Mfg:path`, `Mfg:verificationPath`, `Mfg:user`,
/// `Mfg:password`, `Mfg:timeout` (milliseconds), `Mfg:brand`, `Mfg:verificationBrand`,
/// `Mfg:onlineStore`, `Mfg:terminal`.
///
/// Operations that send throw BasicException when the service cannot be reached or refuses. In
/// strict mode, for a caller who waits, every refusal throws. In tolerant mode, for the queue, a
/// final refusal is logged and accepted as an answer.
///
/// The members of a JSON object are sent sorted by name.
/// Thread: the one that made it.
class Interface
{
public:
    Interface();
    virtual ~Interface();

    virtual QJsonObject searchCustomer(const QString &key, SearchKind kind);
    virtual QJsonObject cardInfo(const QString &cardNumber, const QString &custAccountNum);
    /// The bonuses that can be spent; 0 if the reply does not contain them.
    virtual double loyaltyBalanceInfo(const QString &cardNumber, const QString &custAccountNum);
    /// Calculates the bonuses and discounts of an order. After a good reply the basket that was
    /// sent is stored as the card's operation info; a failed call does not change the card.
    virtual OrderResult calculateOrder(const Document &document, DocumentCardRecord &card);
    /// The same for an order to be placed. With `noDiscount` no bonuses may be spent on any line.
    virtual OrderResult createOrder(const Document &document, DocumentCardRecord &card,
                                    bool noDiscount);

    // Requests for the queue.
    virtual Request createOrderRequest(const Document &document, const DocumentCardRecord &card,
                                       bool noDiscount);
    virtual Request updateOrderRequest(const Document &document, const DocumentCardRecord &card);
    /// The order that was last calculated or created, even if the document has changed since.
    virtual Request postOrderRequest(const DocumentCardRecord &card);
    virtual Request bindOrderIdRequest(const Document &document, const DocumentCardRecord &card);
    virtual Request cancelOrderRequest(const Document &document, const DocumentCardRecord &card);

    virtual void verifyBySms(const QString &text, const QString &phone);
    /// Sends the request in a message, in tolerant mode, with the message's address and headers. Of
    /// the settings only the timeout is used.
    virtual void sendFromQueue(const QJsonObject &object);
    /// Sends a prepared request in strict mode. The basket of the result is empty.
    virtual OrderResult sendForResult(const Request &request);
    virtual QString generateBasketId();
    /// The order in the service's format. A card without an operation gets a new basket id on each
    /// call, which is not stored in the card.
    virtual QJsonObject buildBasket(const Document &document, const DocumentCardRecord &card,
                                    bool noDiscount);
    virtual http::Response execute(const Request &request, bool tolerant);
    /// Throws BasicException for a refusal, with the service's text or, without one, the exchange's
    /// error.
    virtual void checkResponse(const http::Response &response, bool tolerant);
    virtual QUrl operationUrl(const QString &operation, const QUrlQuery &query);
    virtual QUrl verificationUrl(const QString &operation);

    /// Why the service refused the latest request, in Russian for people, without the service's own
    /// text, which may contain a card number. Empty without a refusal, or if another attempt may
    /// succeed.
    const std::optional<QString> &refusal() const { return refusal_; }

protected:
    QString host;
    std::filesystem::path path;
    std::filesystem::path verificationPath;
    int timeout = 0;
    QHash<QString, QString> headers;
    QString brand;
    /// Not used in any request: a verification sends `brand`.
    QString verificationBrand;
    QString onlineStore;
    QString terminal;
    Log4Qt::Logger *logger;

private:
    /// Throws BasicException if the code in a reply's member `error` requires it.
    void checkError(const QJsonObject &error);
    QJsonObject requestData(const QString &operation, const QUrlQuery &query);
    QUrlQuery customerQuery(const QString &cardNumber, const QString &custAccountNum) const;
    OrderResult sendOrder(const QString &operation, const Document &document,
                          DocumentCardRecord &card, bool noDiscount);
    Request postRequest(const QUrl &url, const QJsonObject &payload) const;
    Request orderRequest(const QString &operation, const QJsonObject &payload);
    QJsonObject orderReference(const DocumentCardRecord &card) const;

    std::optional<QString> refusal_;
};

} // namespace mfg
