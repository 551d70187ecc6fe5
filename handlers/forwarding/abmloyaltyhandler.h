#pragma once

#include "engine/basichandler.h"

/// Delivers `abmloyalty` messages: the prepared bytes, in a POST, or in a PUT if the message asks
/// for it.
class AbmLoyaltyHandler : public BasicHandler
{
public:
    AbmLoyaltyHandler();
    bool sendMessage(const Message &message) override;
};
