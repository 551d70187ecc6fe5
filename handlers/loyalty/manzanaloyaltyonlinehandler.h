#pragma once

#include "engine/basichandler.h"
#include "shared/document/documentcardrecord.h"

#include <QDomDocument>

#include <memory>

/// Delivers `manzanaloyaltyonline` messages: a prepared XML document in one POST. A sale that went
/// through leaves its transaction and its time on the card of the till's document; a return that
/// does not name the time of its sale takes it from there.
///
/// A document store that fails decides nothing: it is logged, a return goes out as it was written,
/// and a sale that the service has taken is finished with.
class ManzanaLoyaltyOnlineHandler : public BasicHandler
{
public:
    ManzanaLoyaltyOnlineHandler();
    bool sendMessage(const Message &message) override;
    /// True when the message is finished with.
    virtual bool parseReply(const QByteArray &reply);
    /// Whether a return names the time of its sale.
    virtual bool hasChequeDate(const QDomDocument &request);
    /// The card of the sale; null when the till has none. Throws BasicException when the document
    /// store cannot be read.
    virtual std::shared_ptr<DocumentCardRecord> findCardRecord(const QString &chequeNumber,
                                                               const QString &cardNumber);
    /// Remembers what the reply to a sale says. Throws BasicException when it could not be stored.
    virtual void saveTransaction(int recordId, const QByteArray &reply);
    /// The request with the time of the sale that `card` remembers, in UTF-8.
    virtual QByteArray updateReturnRequest(const QDomDocument &request,
                                           const DocumentCardRecord &card);

private:
    QByteArray completedReturn(const QDomDocument &request, const QByteArray &body);
    void rememberSale(const QDomDocument &request, const QByteArray &reply);
};
