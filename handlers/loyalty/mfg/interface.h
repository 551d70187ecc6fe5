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

/// How a customer is looked for.
enum class SearchKind : int
{
    Card = 0,
    Phone = 1,
};

/// What the service says to an order.
struct OrderResult
{
    /// The member `result` of the reply.
    QJsonObject result;
    /// The order's name at the service; empty where the request was made elsewhere.
    QString basket;
};

/// The client of the Mfg loyalty service. The queue itself needs sendFromQueue() alone; the rest is
/// for programs that calculate orders or prepare messages.
///
/// Settings, read once at the construction: `Mfg:host`, `Mfg:path`, `Mfg:verificationPath`,
/// `Mfg:user`, `Mfg:password`, `Mfg:timeout` (milliseconds), `Mfg:brand`, `Mfg:verificationBrand`,
/// `Mfg:onlineStore`, `Mfg:terminal`.
///
/// Operations that send throw BasicException when the service cannot be reached or refuses. In
/// strict mode, that of a caller who waits, every refusal counts; in tolerant mode, that of the
/// queue, one that another attempt would not change is logged and taken for an answer.
///
/// A JSON object has no order of its own here: its members go out sorted by name.
/// Thread: the one that made it.
class Interface
{
public:
    Interface();
    virtual ~Interface();

    virtual QJsonObject searchCustomer(const QString &key, SearchKind kind);
    virtual QJsonObject cardInfo(const QString &cardNumber, const QString &custAccountNum);
    /// The bonuses that can be spent; 0 when the reply does not say.
    virtual double loyaltyBalanceInfo(const QString &cardNumber, const QString &custAccountNum);
    /// What the order would bring. After a good reply the basket that was sent is the card's
    /// operation info; a failed call leaves the card as it is.
    virtual OrderResult calculateOrder(const Document &document, DocumentCardRecord &card);
    /// The same for an order that is to be. With `noDiscount` no bonuses may be spent on any line.
    virtual OrderResult createOrder(const Document &document, DocumentCardRecord &card,
                                    bool noDiscount);

    // Requests for the queue.
    virtual Request createOrderRequest(const Document &document, const DocumentCardRecord &card,
                                       bool noDiscount);
    virtual Request updateOrderRequest(const Document &document, const DocumentCardRecord &card);
    /// The order that was calculated or created last, whatever the document has become since.
    virtual Request postOrderRequest(const DocumentCardRecord &card);
    virtual Request bindOrderIdRequest(const Document &document, const DocumentCardRecord &card);
    virtual Request cancelOrderRequest(const Document &document, const DocumentCardRecord &card);

    virtual void verifyBySms(const QString &text, const QString &phone);
    /// Sends the request that a message holds, in tolerant mode. Its own address and headers count;
    /// of the settings only the timeout does.
    virtual void sendFromQueue(const QJsonObject &object);
    /// Sends a prepared request in strict mode. The basket of the result is empty.
    virtual OrderResult sendForResult(const Request &request);
    virtual QString generateBasketId();
    /// The order as the service takes it. A card without an operation gets a new basket at every
    /// call, which the card is not told.
    virtual QJsonObject buildBasket(const Document &document, const DocumentCardRecord &card,
                                    bool noDiscount);
    virtual http::Response execute(const Request &request, bool tolerant);
    /// Judges a reply. Throws BasicException with the text of the service or, without one, of the
    /// exchange.
    virtual void checkResponse(const http::Response &response, bool tolerant);
    virtual QUrl operationUrl(const QString &operation, const QUrlQuery &query);
    virtual QUrl verificationUrl(const QString &operation);

    /// Why the service refused the latest request, in Russian, for people, and without its own
    /// words, which may name a card; empty when it did not, or when the exchange failed in a way
    /// that another attempt may change.
    const std::optional<QString> &refusal() const { return refusal_; }

protected:
    QString host;
    std::filesystem::path path;
    std::filesystem::path verificationPath;
    int timeout = 0;
    QHash<QString, QString> headers;
    QString brand;
    /// Goes out in no request: a verification names `brand`.
    QString verificationBrand;
    QString onlineStore;
    QString terminal;
    Log4Qt::Logger *logger;

private:
    /// Throws BasicException for the member `error` of a reply if its code says so.
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
