#pragma once

#include "engine/basichandler.h"

class RestClient;

/// Delivers `cftsbp` messages: the prepared object as JSON, in one POST. The partner's `status` is
/// the answer, or the pair `message` and `code`, by which it refuses.
class CftSbpHandler : public BasicHandler
{
public:
    CftSbpHandler();
    bool sendMessage(const Message &message) override;

private:
    /// Judges an exchange that failed, an HTTP error among others.
    bool judgeFailure(const RestClient &client, const QVariantMap &reply);
    /// Judges an answer with a status of the 200s.
    bool judgeReply(const QVariantMap &reply);
};
