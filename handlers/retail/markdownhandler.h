#pragma once

#include "engine/basichandler.h"

/// Delivers `markdown` messages: the prepared bytes, in one PUT. A message waits behind older ones
/// about one of its goods, and with it the pass. One refusal of the service is tolerated.
class MarkdownHandler : public BasicHandler
{
public:
    MarkdownHandler();
    bool sendMessage(const Message &message) override;
};
