#pragma once

#include "engine/basichandler.h"

#include <QList>

/// Delivers `goldcrown` messages: the prepared bytes in one POST, under a client certificate. The code in
/// the XML reply decides.
class GoldCrownHandler : public BasicHandler
{
public:
    GoldCrownHandler();
    bool sendMessage(const Message &message) override;
    /// True when the message is finished with.
    virtual bool parseReply(const QByteArray &reply);
    /// Told of the `description` behind an allowed error.
    virtual void onAllowedError(const QString &description);
    /// The PEM file of the certificate; empty when it could not be made.
    virtual QString prepareCertificate(const QString &path, const QString &password);

protected:
    /// Codes other than 0 that finish a message. The service itself knows none.
    QList<int> allowedErrors;
};
