#pragma once

#include "engine/basichandler.h"

class RestClient;

/// Delivers `platiqr3` messages, which request the cancellation of an order at Плати QR: see
/// platiqrflow.h. Members of replies are at the top level, and a declined order drops the message.
class PlatiQR3Handler : public BasicHandler
{
public:
    PlatiQR3Handler();
    bool sendMessage(const Message &message) override;

    /// Converts the PKCS#12 file at `path` to PEM and returns the file's path; empty on failure,
    /// which is logged.
    virtual QString prepareCertificate(const QString &path, const QString &password);
    /// The access token that `request` returns; empty on failure, which is logged.
    virtual QString requestToken(const QVariantMap &request, RestClient &client);
    virtual QString tokenFromReply(const QVariant &reply);
    /// The order's state under `name` in the reply.
    virtual QString stateFromReply(const QString &name, const QVariant &reply);
    /// True if `request` was delivered; the caller checks the reply.
    virtual bool sendRequest(const QString &token, const QVariantMap &request, RestClient &client);
};
