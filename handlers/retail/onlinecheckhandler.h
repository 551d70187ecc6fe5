#pragma once

#include "engine/basichandler.h"

/// Delivers `onlinecheck` messages: a JSON object, in one PUT. Any answer finishes a message. One
/// that waits behind an older one of its state does not hold up the others.
class OnlinecheckHandler : public BasicHandler
{
public:
    OnlinecheckHandler();
    bool sendMessage(const Message &message) override;
};
