#pragma once

#include "engine/basichandler.h"

/// Delivers `deferredcheck` messages: a JSON object, in one PUT. Any answer finishes the message.
class DeferredCheckHandler : public BasicHandler
{
public:
    DeferredCheckHandler();
    bool sendMessage(const Message &message) override;
};
