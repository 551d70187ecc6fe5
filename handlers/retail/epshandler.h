#pragma once

#include "engine/basichandler.h"

/// Delivers `eps` messages: a prepared frame over a TCP connection of its own. An answer that has
/// come by then and carries the mark of the frame finishes the message, with a warning.
class EpsHandler : public BasicHandler
{
public:
    EpsHandler();
    bool sendMessage(const Message &message) override;
};
