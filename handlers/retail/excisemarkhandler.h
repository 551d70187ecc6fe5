#pragma once

#include "engine/basichandler.h"

/// Delivers `excisemark` messages: the prepared bytes, in one PUT. A message waits for older ones
/// about one of its excise marks, and the pass ends.
class ExciseMarkHandler : public BasicHandler
{
public:
    ExciseMarkHandler();
    bool sendMessage(const Message &message) override;
};
