#pragma once

#include "engine/basichandler.h"

/// Delivers `plazius` messages in two requests: the first opens a session, the second uses it. Each
/// delivery opens its own session.
class PlaziusHandler : public BasicHandler
{
public:
    PlaziusHandler();
    bool sendMessage(const Message &message) override;
};
