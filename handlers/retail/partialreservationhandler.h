#pragma once

#include "engine/basichandler.h"

/// Delivers `partialreservation` messages: the prepared bytes, in one POST. A message waits for
/// older ones about its mark, and the pass ends.
class PartialReservationHandler : public BasicHandler
{
public:
    PartialReservationHandler();
    bool sendMessage(const Message &message) override;
};
