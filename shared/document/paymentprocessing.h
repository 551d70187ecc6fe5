#pragma once

#include <QVariantMap>

/// Carries out the payment operations of queued messages in one currency.
/// Thread: any, since workers share the object.
class PaymentProcessing
{
public:
    virtual ~PaymentProcessing();

    /// Processes the fields of a message. True if the message is finished with.
    virtual bool process(const QVariantMap &fields) = 0;
};
