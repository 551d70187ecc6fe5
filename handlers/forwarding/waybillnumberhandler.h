#pragma once

#include "engine/basichandler.h"

/// Delivers `waybillnumber` messages: the prepared bytes, in one PUT. Headers and timeout are
/// fixed; those in the message are ignored.
class WaybillNumberHandler : public BasicHandler
{
public:
    WaybillNumberHandler();
    bool sendMessage(const Message &message) override;
};
