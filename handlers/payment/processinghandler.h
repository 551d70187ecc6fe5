#pragma once

#include "engine/basichandler.h"

class PaymentProcessing;

/// Passes all fields of `processing` messages to the payment processing of the message's currency,
/// which decides whether the message is finished with. Without a processing the message stays.
class ProcessingHandler : public BasicHandler
{
public:
    /// Makes the processings read their settings again, so that changes apply from the next pass.
    ProcessingHandler();
    /// Throws what the processing throws; the service's own ones do not throw.
    bool sendMessage(const Message &message) override;

private:
    std::shared_ptr<PaymentProcessing> findProcessing(int valutCode);
};
