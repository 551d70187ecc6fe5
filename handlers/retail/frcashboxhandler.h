#pragma once

#include "engine/basichandler.h"

/// Delivers `frcashbox` messages: a JSON document, in one POST. If the service requires it, logs in
/// and repeats the request in the new session, which no other message uses.
class FrCashboxHandler : public BasicHandler
{
public:
    FrCashboxHandler();
    bool sendMessage(const Message &message) override;
};
