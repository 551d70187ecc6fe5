#pragma once

#include "engine/basichandler.h"

/// Delivers `winelabsoftcheque` messages: the prepared object as JSON, in one PATCH.
class WinelabSoftChequeHandler : public BasicHandler
{
public:
    WinelabSoftChequeHandler();
    bool sendMessage(const Message &message) override;
};
