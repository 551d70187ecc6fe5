#pragma once

#include "engine/basichandler.h"

/// Delivers `customeraddress` messages: the prepared object as JSON, in one POST.
class CustomerAddressHandler : public BasicHandler
{
public:
    CustomerAddressHandler();
    bool sendMessage(const Message &message) override;
};
