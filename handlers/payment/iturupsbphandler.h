#pragma once

#include "engine/basichandler.h"
#include "shared/net/restclient.h"

/// Delivers `iturupsbp` messages: looks up the operation and, if it was accepted, refunds it in two
/// steps. The message contains every request as a map of `url`, `headers` and `data` (a JSON text);
/// the handler inserts identifiers from the replies.
class IturupSbpHandler : public BasicHandler
{
public:
    IturupSbpHandler();
    bool sendMessage(const Message &message) override;
    /// Logs a failure.
    virtual bool sendDescription(const QVariantMap &description, RestClient &client);
    /// 0 if the reply has no such member, -1 if it is null.
    virtual int responseCodeFromReply(const QVariant &reply);

    /// The description of that name with `value` under `key` in its data.
    QVariantMap fillDescription(const QString &key, const QString &value, const QString &name,
                                const Message &message) const;

private:
    /// Sends a description whose answer must have the code "done".
    bool performStep(const QVariantMap &description, RestClient &client);
    bool refund(const Message &message, RestClient &client);
    bool awaitRefund(const Message &message, const QString &operationId, RestClient &client);
    /// Decides about the message after the service has ended the refund with this code.
    bool endRefund(int code);
};
