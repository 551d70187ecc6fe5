#pragma once

#include "engine/basichandler.h"

/// Delivers `cardlab` messages: the prepared bytes, in one PUT. Headers and timeout are fixed;
/// those in the message are ignored.
class CardLabHandler : public BasicHandler
{
public:
    CardLabHandler();
    bool sendMessage(const Message &message) override;
};
