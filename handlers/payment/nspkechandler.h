#pragma once

#include "engine/basichandler.h"

/// Delivers `nspkec` messages: one JSON object in one POST, finished with when the reply's
/// `result.code` is the text "0". Failed attempts are counted for each message, and one that has
/// failed `numberOfTries` times is given up.
///
/// The counts are those of the process: they outlive a worker, and a restart of the service begins
/// them anew.
class NspkEcHandler : public BasicHandler
{
public:
    NspkEcHandler();
    bool sendMessage(const Message &message) override;

private:
    bool keepsTrying(const Message &message);
};
