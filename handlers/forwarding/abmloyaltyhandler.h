#pragma once

#include "engine/basichandler.h"

/// Delivers `abmloyalty` messages: the prepared bytes, in a POST, or in a PUT where the message
/// asks for one.
class AbmLoyaltyHandler : public BasicHandler
{
public:
    AbmLoyaltyHandler();
    bool sendMessage(const Message &message) override;
};
