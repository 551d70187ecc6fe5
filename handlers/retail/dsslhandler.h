#pragma once

#include "engine/basichandler.h"

/// Delivers `dssl` messages: the prepared bytes over a TCP connection, without an answer. A message
/// that waits for an older one to the same address does not delay the others.
class DsslHandler : public BasicHandler
{
public:
    DsslHandler();
    bool sendMessage(const Message &message) override;
};
