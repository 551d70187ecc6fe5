#pragma once

#include "engine/basichandler.h"

/// Delivers `greenwichparkingticket` messages: the whole body describes the request. Only a network
/// failure keeps a message, because the service would refuse the same ticket again.
class GreenwichParkingTicketHandler : public BasicHandler
{
public:
    GreenwichParkingTicketHandler();
    bool sendMessage(const Message &message) override;
};
