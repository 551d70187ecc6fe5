#pragma once

#include "engine/basichandler.h"

namespace apmindbox {
class OperationResult;
}

/// Delivers `apmindbox` messages: an order to create, or a change of an order's status. The message
/// stays until the platform has accepted it; no answer drops it.
class ApMindboxHandler : public BasicHandler
{
public:
    ApMindboxHandler();
    bool sendMessage(const Message &message) override;

private:
    /// Decides from the operation's outcome whether the message is finished with.
    bool judge(const apmindbox::OperationResult &result);
};
