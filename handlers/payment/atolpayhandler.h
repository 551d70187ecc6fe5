#pragma once

#include "engine/basichandler.h"

namespace atolpay {
class Interface;
}

/// Delivers `atolpay` messages, which ask that a QR payment be given back. The service is asked for
/// the state of the payment first, and only a completed one is refunded.
///
/// Nothing is remembered between two attempts: a refund whose reply was lost shows as refunded in
/// the state that the next attempt asks for, so it is not made twice.
class AtolPayHandler : public BasicHandler
{
public:
    AtolPayHandler();
    bool sendMessage(const Message &message) override;

private:
    bool refund(const Message &message, atolpay::Interface &service);
};
