#pragma once

#include "shared/document/paymentprocessing.h"

#include <QUrl>

/// A processing behind an HTTP address: one POST of all fields as a JSON object. It is done when
/// the reply's member `success` is true. Anything else is logged and not done, and the same fields
/// come again, so the processing must know an operation that it has carried out already. Never
/// throws.
class HttpPaymentProcessing : public PaymentProcessing
{
public:
    explicit HttpPaymentProcessing(const QUrl &url);

    /// The field `timeout`, in seconds, bounds the exchange; 30 seconds without it.
    bool process(const QVariantMap &fields) override;

private:
    QUrl url;
};
