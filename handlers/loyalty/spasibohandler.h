#pragma once

#include "engine/basichandler.h"

#include <QList>
#include <QString>

namespace http {
struct Response;
}

/// An answer of the service that is worth another attempt.
struct RetryRule
{
    int httpStatus = 0;
    /// The error code in the reply, in any case. Empty: any, or none.
    QString errorCodeText;

    bool operator==(const RetryRule &) const = default;
};

/// Delivers `spasibo` messages: the whole request that the till has prepared. An answer that a
/// retry rule names keeps the message, until the service has answered `Spasibo:sendLimit` attempts;
/// any other finishes it. Answered attempts are counted in the row's status code. Without an answer
/// the message stays, and nothing is counted.
class SpasiboHandler : public BasicHandler
{
public:
    /// Reads the rules and the limit from the settings.
    SpasiboHandler();
    bool sendMessage(const Message &message) override;

protected:
    QList<RetryRule> retryRules;
    int sendLimit = 0;

private:
    bool classifyReply(const Message &message, const http::Response &response);
    bool isRetried(int httpStatus, const QString &errorCode) const;
};
