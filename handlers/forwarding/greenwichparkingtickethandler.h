#pragma once

#include "engine/basichandler.h"

/// Delivers `greenwichparkingticket` messages: the whole body describes the request. Only a network
/// failure keeps a message: a ticket that the service refuses today it refuses tomorrow.
class GreenwichParkingTicketHandler : public BasicHandler
{
public:
    GreenwichParkingTicketHandler();
    bool sendMessage(const Message &message) override;
};
