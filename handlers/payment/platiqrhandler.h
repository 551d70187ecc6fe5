#pragma once

#include "engine/basichandler.h"

class RestClient;

/// Delivers `platiqr` messages, which ask that an order at Плати QR be undone: see platiqrflow.h.
/// Members of replies but the token stand in the member `status`, and a declined order is unknown
/// here.
class PlatiQRHandler : public BasicHandler
{
public:
    PlatiQRHandler();
    bool sendMessage(const Message &message) override;

    /// The PEM file made of the PKCS#12 file at `path`; empty, with a line in the log, when it
    /// cannot be made.
    virtual QString prepareCertificate(const QString &path, const QString &password);
    /// The access token that `request` obtains; empty, with a line in the log, without one.
    virtual QString requestToken(const QVariantMap &request, RestClient &client);
    virtual QString tokenFromReply(const QVariant &reply);
    /// The text of the order's state that the reply holds under `name`.
    virtual QString stateFromReply(const QString &name, const QVariant &reply);
    /// True when `request` was delivered; what the reply says is the caller's to judge.
    virtual bool sendRequest(const QString &token, const QVariantMap &request, RestClient &client);
};
