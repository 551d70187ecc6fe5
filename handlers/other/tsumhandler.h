#pragma once

#include "engine/basichandler.h"

/// Delivers `tsum` messages: the whole message is the request. Any answer that is not an error
/// finishes it.
class TsumHandler : public BasicHandler
{
public:
    TsumHandler();
    bool sendMessage(const Message &message) override;
};
