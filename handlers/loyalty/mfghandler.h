#pragma once

#include "engine/basichandler.h"

/// Delivers `mfg` messages: a request to the Mfg service, sent as prepared. A final refusal is
/// logged and drops the message.
class MfgHandler : public BasicHandler
{
public:
    MfgHandler();
    bool sendMessage(const Message &message) override;
};
