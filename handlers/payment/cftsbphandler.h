#pragma once

#include "engine/basichandler.h"

/// Delivers `cftsbp` messages: the prepared object as JSON, in one POST. The partner's `status` is the
/// answer, or the pair `message` and `code`, by which it refuses.
class CftSbpHandler : public BasicHandler
{
public:
    CftSbpHandler();
    bool sendMessage(const Message &message) override;
};
