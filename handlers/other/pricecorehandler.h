#pragma once

#include "engine/basichandler.h"

/// Delivers `pricecore` messages to the service that `subtype` names: a JSON object in one POST,
/// and any answer will do. A message of another subtype is dropped without a word.
class PriceCoreHandler : public BasicHandler
{
public:
    PriceCoreHandler();
    bool sendMessage(const Message &message) override;
    virtual bool sendPrizeApi(const Message &message);
    virtual bool sendMetropolia(const Message &message);
};
