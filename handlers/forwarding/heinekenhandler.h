#pragma once

#include "engine/basichandler.h"

/// Delivers `heineken` messages: the prepared bytes, in one POST.
class HeinekenHandler : public BasicHandler
{
public:
    HeinekenHandler();
    bool sendMessage(const Message &message) override;
};
