#pragma once

#include "engine/basichandler.h"

/// Delivers `frcashbox` messages: a JSON document, in one POST. When the service asks for it, a
/// login and the same request once more in its session, which no other message uses.
class FrCashboxHandler : public BasicHandler
{
public:
    FrCashboxHandler();
    bool sendMessage(const Message &message) override;
};
