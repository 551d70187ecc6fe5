#pragma once

#include <QVariantMap>

/// Carries out what a queued message asks of the payments in one currency.
/// Thread: any, since workers share the object.
class PaymentProcessing
{
public:
    virtual ~PaymentProcessing();

    /// Works on the fields of a message. True when it is done, so that the message is finished
    /// with.
    virtual bool process(const QVariantMap &fields) = 0;
};
