#pragma once

#include "engine/basichandler.h"
#include "shared/document/documentcardrecord.h"

#include <QDomDocument>

#include <memory>

/// Delivers `manzanaloyaltyonline` messages: a prepared XML document in one POST. After a
/// successful sale, its transaction and time are stored on the card of the till's document. A
/// return without the time of its sale takes that time from the card.
///
/// A failure of the document store is logged and changes no result: a return is sent as it was
/// written, and an accepted sale is finished with.
class ManzanaLoyaltyOnlineHandler : public BasicHandler
{
public:
    ManzanaLoyaltyOnlineHandler();
    bool sendMessage(const Message &message) override;
    /// True when the message is finished with.
    virtual bool parseReply(const QByteArray &reply);
    /// Whether a return contains the time of its sale.
    virtual bool hasChequeDate(const QDomDocument &request);
    /// The card of the sale; null without one. Throws BasicException when the document store cannot
    /// be read.
    virtual std::shared_ptr<DocumentCardRecord> findCardRecord(const QString &chequeNumber,
                                                               const QString &cardNumber);
    /// Stores the reply to a sale. Throws BasicException on failure.
    virtual void saveTransaction(int recordId, const QByteArray &reply);
    /// The request with the time of the sale from `card`, in UTF-8.
    virtual QByteArray updateReturnRequest(const QDomDocument &request,
                                           const DocumentCardRecord &card);

private:
    QByteArray completedReturn(const QDomDocument &request, const QByteArray &body);
    void rememberSale(const QDomDocument &request, const QByteArray &reply);
};
