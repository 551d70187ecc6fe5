#pragma once

#include "engine/basichandler.h"

/// Delivers `smartscales` messages: the prepared bytes, in one POST with the client's default
/// timeout.
class SmartScalesHandler : public BasicHandler
{
public:
    SmartScalesHandler();
    bool sendMessage(const Message &message) override;
};
