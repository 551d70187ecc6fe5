#pragma once

#include "engine/basichandler.h"

/// Delivers `apmindbox` messages: an order to create, or a change of an order's status. No answer drops
/// a message undelivered; it stays until the platform has taken it.
class ApMindboxHandler : public BasicHandler
{
public:
    ApMindboxHandler();
    bool sendMessage(const Message &message) override;
};
