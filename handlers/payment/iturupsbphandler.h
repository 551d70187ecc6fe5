#pragma once

#include "engine/basichandler.h"
#include "shared/net/restclient.h"

/// Delivers `iturupsbp` messages: looks up the operation and, when it was accepted, refunds it in
/// two halves. Every request is described in the message, a map with `url`, `headers` and `data`, a
/// JSON text; the handler fills in the identifiers that the replies give.
class IturupSbpHandler : public BasicHandler
{
public:
    IturupSbpHandler();
    bool sendMessage(const Message &message) override;
    /// Logs a failure.
    virtual bool sendDescription(const QVariantMap &description, RestClient &client);
    /// 0 when the reply has no such member, -1 when it is null.
    virtual int responseCodeFromReply(const QVariant &reply);

    /// The description of that name with `value` under `key` in its data.
    QVariantMap fillDescription(const QString &key, const QString &value, const QString &name,
                                const Message &message) const;

private:
    /// Sends a description that has to be answered with the code for done.
    bool performStep(const QVariantMap &description, RestClient &client);
    bool refund(const Message &message, RestClient &client);
    bool awaitRefund(const Message &message, const QString &operationId, RestClient &client);
    /// Says what became of a refund that the service has ended with this code.
    bool endRefund(int code);
};
