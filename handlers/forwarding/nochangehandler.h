#pragma once

#include "engine/basichandler.h"

/// Delivers `nochange` messages: the prepared object as JSON, in one POST.
class NoChangeHandler : public BasicHandler
{
public:
    NoChangeHandler();
    bool sendMessage(const Message &message) override;
};
