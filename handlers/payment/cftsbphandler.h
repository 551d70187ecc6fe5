#pragma once

#include "engine/basichandler.h"

class RestClient;

/// Delivers `cftsbp` messages: the prepared object as JSON, in one POST. The partner answers with
/// `status`, or refuses with `message` and `code`.
class CftSbpHandler : public BasicHandler
{
public:
    CftSbpHandler();
    bool sendMessage(const Message &message) override;

private:
    /// Decides after a failed exchange, which includes HTTP errors.
    bool judgeFailure(const RestClient &client, const QVariantMap &reply);
    /// Decides after an answer with a 2xx status.
    bool judgeReply(const QVariantMap &reply);
};
