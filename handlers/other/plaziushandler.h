#pragma once

#include "engine/basichandler.h"

/// Delivers `plazius` messages in two requests: one opens a session, the other does the work in it.
/// A session serves one delivery.
class PlaziusHandler : public BasicHandler
{
public:
    PlaziusHandler();
    bool sendMessage(const Message &message) override;
};
