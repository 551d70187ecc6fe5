#pragma once

#include "engine/basichandler.h"

/// Delivers `mindbox` messages: commits, rollbacks and deferred orders that the till has left for the
/// loyalty platform. What the platform has done, or refuses as a bad request, is finished with. A
/// deferred order with the card of an unknown customer is given up.
class MindboxHandler : public BasicHandler
{
public:
    MindboxHandler();
    bool sendMessage(const Message &message) override;
};
