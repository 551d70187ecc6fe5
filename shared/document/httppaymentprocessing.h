#pragma once

#include "shared/document/paymentprocessing.h"

#include <QUrl>

/// A processing with an HTTP address: one POST of all fields as a JSON object. It succeeds if the
/// reply's member `success` is true. Any other result is logged, and the same fields are sent again
/// later, so the processing must recognize an operation that it has already carried out. Never
/// throws.
class HttpPaymentProcessing : public PaymentProcessing
{
public:
    explicit HttpPaymentProcessing(const QUrl &url);

    /// The field `timeout` limits the exchange, in seconds; default 30.
    bool process(const QVariantMap &fields) override;

private:
    QUrl url;
};
