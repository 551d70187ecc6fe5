#pragma once

#include "engine/basichandler.h"

/// Delivers `nspkec` messages: one JSON object in one POST. A reply whose `result.code` is the text
/// "0" finishes the message. Failed attempts are counted for each message; after `numberOfTries`
/// failures it is dropped.
///
/// The counts are kept in the process: a restart of the service resets them.
class NspkEcHandler : public BasicHandler
{
public:
    NspkEcHandler();
    bool sendMessage(const Message &message) override;

private:
    bool keepsTrying(const Message &message);
};
