#pragma once

#include "engine/basichandler.h"

class PaymentProcessing;

/// Hands `processing` messages, all fields of them, to the payment processing of the message's
/// currency, which says whether the message is finished with. Without a processing the message
/// stays.
class ProcessingHandler : public BasicHandler
{
public:
    /// Has the processings read their settings anew, so a change of these holds from the next pass.
    ProcessingHandler();
    /// Throws what the processing throws; those of the service throw nothing.
    bool sendMessage(const Message &message) override;

private:
    std::shared_ptr<PaymentProcessing> findProcessing(int valutCode);
};
