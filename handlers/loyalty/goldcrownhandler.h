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
    /// True when the operation is done, or has failed in a way that needs no further attempt.
    virtual bool parseReply(const QByteArray &reply);
    /// Told of a code in `allowedErrors`, with the reply's text for it.
    virtual void onAllowedError(const QString &description);
    /// The PEM file for the client; empty when there is none.
    virtual QString prepareCertificate(const QString &path, const QString &password);

protected:
    /// Codes that finish the message although they are failures.
    QList<int> allowedErrors;
};
