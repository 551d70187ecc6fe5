#pragma once

#include "engine/basichandler.h"

/// Delivers `iturup` messages: a POST of the id and the check in the message's `body` to the `url`
/// in that body. A refusal by the service is logged and also finishes the message.
class IturupHandler : public BasicHandler
{
public:
    IturupHandler();
    bool sendMessage(const Message &message) override;
};
