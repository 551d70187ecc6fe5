#pragma once

#include "engine/basichandler.h"

/// Delivers `markdown` messages: the prepared bytes, in one PUT. A message waits for older ones
/// about one of its goods, and the pass ends. One error code of the service counts as success.
class MarkdownHandler : public BasicHandler
{
public:
    MarkdownHandler();
    bool sendMessage(const Message &message) override;
};
