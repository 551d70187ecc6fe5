#pragma once

#include "engine/basichandler.h"
#include "shared/net/httpresponse.h"

#include <QList>

class RestClient;

/// Which error replies another attempt may change.
struct RetryRule
{
    int httpStatus = 0;
    /// The reply's `errorCode`, whatever its case; empty: any.
    QString errorCodeText;
};

/// Delivers `spasibo`, `spasiboBatch` and `spasiboReverse` messages: each holds a whole request to the
/// Purchase API. An error reply is tried again where a rule says so, up to a limit of attempts that are
/// counted in the row's `statuscode`, so a restart does not begin anew. An outage of the network costs
/// no attempt.
///
/// Settings, read at the construction: `Spasibo:restRetryErrors` are the rules, each a status or a status
/// and an error code; `Spasibo:sendLimit` the number of attempts. `Spasibo:timeout`, in seconds, serves
/// messages that name none.
class SpasiboHandler : public BasicHandler
{
public:
    explicit SpasiboHandler(const QString &type);
    bool sendMessage(const Message &message) override;

private:
    void useCertificate(const Message &message, RestClient &client);
    /// True when the message is finished with.
    bool classifyReply(const Message &message, const http::Response &response);
    bool judgeError(const http::Response &response, qint64 attempt);
    bool isRetried(int httpStatus, const QString &errorCode) const;

    QList<RetryRule> retryRules;
    int sendLimit = 0;
};
