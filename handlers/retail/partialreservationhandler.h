#pragma once

#include "engine/basichandler.h"

/// Delivers `partialreservation` messages: the prepared bytes, in one POST. A message waits behind
/// older ones about its mark, and with it the pass.
class PartialReservationHandler : public BasicHandler
{
public:
    PartialReservationHandler();
    bool sendMessage(const Message &message) override;
};
