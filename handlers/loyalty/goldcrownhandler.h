#pragma once

#include "engine/basichandler.h"

#include <QByteArray>
#include <QList>
#include <QString>

/// Delivers `goldcrown`, `spasiboBatch` and `spasiboReverse` messages: the prepared bytes in one
/// POST, over TLS with the till's certificate. The code in the XML reply decides whether the
/// message is finished with.
class GoldCrownHandler : public BasicHandler
{
public:
    explicit GoldCrownHandler(const QString &type);
    bool sendMessage(const Message &message) override;
    /// True if the operation is done, or has failed for good.
    virtual bool parseReply(const QByteArray &reply);
    /// Called for a code in `allowedErrors`, with the reply's text.
    virtual void onAllowedError(const QString &description);
    /// The PEM file for the client; empty on failure.
    virtual QString prepareCertificate(const QString &path, const QString &password);

protected:
    /// Error codes that finish the message.
    QList<int> allowedErrors;
};
