#pragma once

#include "shared/core/guarded.h"
#include "shared/document/paymentprocessing.h"
#include "shared/document/valut.h"

#include <QHash>

#include <memory>

/// The payment processings by currency: an HttpPaymentProcessing for each line `<code> = <url>` in
/// section `processing` of the settings.
/// Reached through Singleton<PaymentProcessingFactory>. Thread: any.
class PaymentProcessingFactory
{
public:
    /// Drops the processings created so far, so that changed settings take effect. Between two
    /// calls each currency keeps its processing.
    virtual void prepare();
    virtual ~PaymentProcessingFactory();
    /// The processing for `valut`; null if none is configured or `valut` is empty. The object is
    /// shared and may be used after prepare(). Throws BasicException if the setting is not an HTTP
    /// address.
    virtual std::shared_ptr<PaymentProcessing> getProcessing(const Valut &valut);

private:
    Guarded<QHash<int, std::shared_ptr<PaymentProcessing>>> processings;
};
