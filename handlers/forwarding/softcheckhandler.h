#pragma once

#include "engine/basichandler.h"

/// Delivers `softcheck` messages: the prepared array as JSON, in one POST. Any reply, with any
/// status, finishes the message.
class SoftCheckHandler : public BasicHandler
{
public:
    SoftCheckHandler();
    bool sendMessage(const Message &message) override;
};
