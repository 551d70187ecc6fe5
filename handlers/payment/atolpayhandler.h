#pragma once

#include "engine/basichandler.h"

namespace atolpay {
class Interface;
}

/// Delivers `atolpay` messages, which request the refund of a QR payment. The state of the payment
/// is requested first, and only a completed one is refunded.
///
/// No state is kept between attempts. After a lost reply to a refund, the next attempt finds the
/// payment refunded and does not repeat the refund.
class AtolPayHandler : public BasicHandler
{
public:
    AtolPayHandler();
    bool sendMessage(const Message &message) override;

private:
    bool refund(const Message &message, atolpay::Interface &service);
};
