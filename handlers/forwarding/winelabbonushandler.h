#pragma once

#include "engine/basichandler.h"

/// Delivers `winelabbonus` messages: the prepared object as JSON, in one POST.
class WinelabBonusHandler : public BasicHandler
{
public:
    WinelabBonusHandler();
    bool sendMessage(const Message &message) override;
};
