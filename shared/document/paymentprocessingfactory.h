#pragma once

#include "shared/core/guarded.h"
#include "shared/document/paymentprocessing.h"
#include "shared/document/valut.h"

#include <QHash>

#include <memory>

/// The payment processings by currency: section `processing` of the settings, `<code> = <url>`, an
/// HttpPaymentProcessing for each.
/// Reached through Singleton<PaymentProcessingFactory>. Thread: any.
class PaymentProcessingFactory
{
public:
    /// Forgets the processings handed out so far, so that settings changed since then hold. Between
    /// two calls each currency keeps its processing.
    virtual void prepare();
    virtual ~PaymentProcessingFactory();
    /// The processing for `valut`, or null when none is set up or `valut` is empty. It is shared,
    /// and outlives a prepare() for whoever holds it. Throws BasicException when the setting is no
    /// HTTP address.
    virtual std::shared_ptr<PaymentProcessing> getProcessing(const Valut &valut);

private:
    Guarded<QHash<int, std::shared_ptr<PaymentProcessing>>> processings;
};
