#pragma once

#include "engine/basichandler.h"

namespace apmindbox {
class OperationResult;
}

/// Delivers `apmindbox` messages: an order to create, or a change of an order's status. No answer
/// drops a message undelivered; it stays until the platform has taken it.
class ApMindboxHandler : public BasicHandler
{
public:
    ApMindboxHandler();
    bool sendMessage(const Message &message) override;

private:
    /// Says what the outcome of the message's operation means for the message.
    bool judge(const apmindbox::OperationResult &result);
};
