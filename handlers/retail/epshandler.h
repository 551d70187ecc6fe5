#pragma once

#include "engine/basichandler.h"

/// Delivers `eps` messages: a prepared frame over its own TCP connection. If an answer with the
/// frame's mark has arrived when the frame is sent, the message is finished with, and a warning is
/// logged.
class EpsHandler : public BasicHandler
{
public:
    EpsHandler();
    bool sendMessage(const Message &message) override;
};
