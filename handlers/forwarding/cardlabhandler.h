#pragma once

#include "engine/basichandler.h"

/// Delivers `cardlab` messages: the prepared bytes, in one PUT. Headers and timeout are the
/// service's own, whatever the message holds.
class CardLabHandler : public BasicHandler
{
public:
    CardLabHandler();
    bool sendMessage(const Message &message) override;
};
