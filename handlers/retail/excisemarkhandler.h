#pragma once

#include "engine/basichandler.h"

/// Delivers `excisemark` messages: the prepared bytes, in one PUT. A message waits behind older
/// ones about one of its excise marks, and with it the pass.
class ExciseMarkHandler : public BasicHandler
{
public:
    ExciseMarkHandler();
    bool sendMessage(const Message &message) override;
};
