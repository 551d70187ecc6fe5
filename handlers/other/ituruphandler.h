#pragma once

#include "engine/basichandler.h"

/// Delivers `iturup` messages: the id and the check of the message's `body`, posted to the `url` in
/// there. A refusal by the service is logged and finishes the message, too.
class IturupHandler : public BasicHandler
{
public:
    IturupHandler();
    bool sendMessage(const Message &message) override;
};
