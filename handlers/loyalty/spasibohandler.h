#pragma once

#include "engine/basichandler.h"

#include <QList>
#include <QString>

namespace http {
struct Response;
}

/// An answer of the service after which the request is tried again.
struct RetryRule
{
    int httpStatus = 0;
    /// The error code in the reply, case-insensitive. Empty: any code, or none.
    QString errorCodeText;

    bool operator==(const RetryRule &) const = default;
};

/// Delivers `spasibo` messages: a request that the till has prepared completely. An answer that
/// matches a retry rule keeps the message, until the service has answered `Spasibo:sendLimit`
/// attempts; any other answer finishes it. The row's status code counts the answered attempts.
/// Without an answer the message stays and the count does not change.
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
