#pragma once

#include "engine/basichandler.h"

/// Delivers `setomni` messages: an XML document, normalised, in one POST. Any well-formed reply
/// finishes the message. A message whose document is not well-formed stays.
class SetOmniHandler : public BasicHandler
{
public:
    SetOmniHandler();
    bool sendMessage(const Message &message) override;

private:
    bool isWellFormed(const QByteArray &reply) const;
};
