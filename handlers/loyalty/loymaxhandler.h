#pragma once

#include "engine/basichandler.h"
#include "shared/net/httpresponse.h"

/// A reply of Loymax.
struct LoymaxReply
{
    /// The message is finished with.
    bool done = false;
    /// The transaction in which a discount was calculated; empty in other replies.
    QString transactionId;
    /// 0 also if the reply has no number.
    int errorCode = 0;
};

/// Delivers `loymax` messages: a prepared XML document in one POST. The `ErrorCode` of the reply
/// decides. If the service refuses the request's price corrections, the request is repeated once
/// without them. The transaction in a reply is written to the card of the till's document.
///
/// Settings: `Loymax:timeout` in seconds, read by the constructor, and `Loymax:uncriticalErrors`,
/// the error codes that finish a message, read for each reply.
class LoymaxHandler : public BasicHandler
{
public:
    LoymaxHandler();
    bool sendMessage(const Message &message) override;
    virtual LoymaxReply parseReply(const http::Response &response);
    /// Throws BasicException when the document store cannot be reached.
    virtual void updateTransactionId(const QString &cardId, const QString &transactionId);

private:
    /// A failure is only logged; the result of the delivery does not change.
    void saveTransactionId(const Message &message, const QString &transactionId);

    int timeout;
};
