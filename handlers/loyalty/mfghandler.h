#pragma once

#include "engine/basichandler.h"

/// Delivers `mfg` messages: a request to the Mfg service as it was prepared, replayed. What the
/// service refuses for good is logged and given up.
class MfgHandler : public BasicHandler
{
public:
    MfgHandler();
    bool sendMessage(const Message &message) override;
};
