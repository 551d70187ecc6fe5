#pragma once

#include "engine/basichandler.h"

/// Delivers `markdown` messages: the prepared bytes, in one PUT. A message waits behind older ones about one of
/// its goods, and with it the pass. A price that the service has marked down already is no failure.
class MarkdownHandler : public BasicHandler
{
public:
    MarkdownHandler();
    bool sendMessage(const Message &message) override;
};
