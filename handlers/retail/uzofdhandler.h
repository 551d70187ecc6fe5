#pragma once

#include "engine/basichandler.h"

/// Delivers `uzofd` messages: the prepared bytes, in one POST, with a client certificate if the
/// message contains one.
class UzOfdHandler : public BasicHandler
{
public:
    UzOfdHandler();
    bool sendMessage(const Message &message) override;
};
