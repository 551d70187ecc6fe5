#pragma once

#include "engine/basichandler.h"

/// Delivers `pricecore` messages to the service in `subtype`: a JSON object in one POST. Any answer
/// finishes the message. A message with another subtype is dropped without a log line.
class PriceCoreHandler : public BasicHandler
{
public:
    PriceCoreHandler();
    bool sendMessage(const Message &message) override;
    virtual bool sendPrizeApi(const Message &message);
    virtual bool sendMetropolia(const Message &message);
};
