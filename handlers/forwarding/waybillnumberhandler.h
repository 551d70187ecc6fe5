#pragma once

#include "engine/basichandler.h"

/// Delivers `waybillnumber` messages: the prepared bytes, in one PUT. Headers and timeout are the
/// service's own, whatever the message holds.
class WaybillNumberHandler : public BasicHandler
{
public:
    WaybillNumberHandler();
    bool sendMessage(const Message &message) override;
};
