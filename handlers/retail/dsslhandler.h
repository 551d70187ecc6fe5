#pragma once

#include "engine/basichandler.h"

/// Delivers `dssl` messages: the prepared bytes over a TCP connection, without an answer. One that
/// waits behind an older one for its address does not hold up the others.
class DsslHandler : public BasicHandler
{
public:
    DsslHandler();
    bool sendMessage(const Message &message) override;
};
