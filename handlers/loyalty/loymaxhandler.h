#pragma once

#include "engine/basichandler.h"
#include "shared/net/httpresponse.h"

/// What Loymax says to a request.
struct LoymaxReply
{
    /// The message is finished with.
    bool done = false;
    /// The transaction that a discount was reckoned in; empty in any other reply.
    QString transactionId;
    /// 0 also where the reply has no number.
    int errorCode = 0;
};

/// Delivers `loymax` messages: a prepared XML document in one POST. The `ErrorCode` of the reply
/// decides. A request whose price corrections are refused is repeated once without them, and the
/// transaction that a reply names is written to the card of the till's document.
///
/// Settings: `Loymax:timeout` in seconds, read at the construction, and `Loymax:uncriticalErrors`,
/// the codes that finish a message although they are errors, read for every reply.
class LoymaxHandler : public BasicHandler
{
public:
    LoymaxHandler();
    bool sendMessage(const Message &message) override;
    virtual LoymaxReply parseReply(const http::Response &response);
    /// Throws BasicException when the document store cannot be reached.
    virtual void updateTransactionId(const QString &cardId, const QString &transactionId);

private:
    /// A failure is logged and changes nothing about the message.
    void saveTransactionId(const Message &message, const QString &transactionId);

    int timeout;
};
