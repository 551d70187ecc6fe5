#pragma once

#include "engine/basichandler.h"

/// Delivers `loya` messages: a chain of up to three PUTs, each with the answer to the one before.
/// After a failure the whole chain is repeated, so the service may receive its first requests
/// several times.
class LoyaHandler : public BasicHandler
{
public:
    LoyaHandler();
    bool sendMessage(const Message &message) override;
};
