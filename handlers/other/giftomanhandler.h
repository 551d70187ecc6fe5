#pragma once

#include "engine/basichandler.h"

/// Delivers `giftoman` messages: the prepared bytes in a POST, which is repeated while the service
/// answers with the id "0", three times at most.
class GiftomanHandler : public BasicHandler
{
public:
    GiftomanHandler();
    bool sendMessage(const Message &message) override;
};
