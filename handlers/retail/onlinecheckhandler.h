#pragma once

#include "engine/basichandler.h"

/// Delivers `onlinecheck` messages: a JSON object, in one PUT. Any answer finishes the message. A
/// message that waits for an older one of its state does not delay the others.
class OnlinecheckHandler : public BasicHandler
{
public:
    OnlinecheckHandler();
    bool sendMessage(const Message &message) override;
};
