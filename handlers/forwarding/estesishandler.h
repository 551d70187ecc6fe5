#pragma once

#include "engine/basichandler.h"

/// Delivers `estesis` messages: a POST without content; the address contains the data.
class EstesisHandler : public BasicHandler
{
public:
    EstesisHandler();
    bool sendMessage(const Message &message) override;
};
