#pragma once

#include "handlers/payment/atolpay/results.h"

#include <QUrl>

class QJsonObject;

namespace Log4Qt {
class Logger;
}

namespace atolpay {

/// Client of the AtolPay service: QR payments, identified by the service's transaction id. A failed
/// request gives the same result as an empty reply; nothing throws.
/// Thread: the one that made it.
class Interface
{
public:
    Interface();
    virtual ~Interface();

    /// Prepares a payment of `amount` for a customer's QR code. The service calls the operation
    /// "register", a keyword of C++.
    virtual AtolPayRegisterResult register_(const QString &purpose, qint64 amount);
    /// Refunds `amount` of a completed transaction. For the service each call is a separate refund,
    /// so check the status first.
    virtual AtolPayRefundResult refund(const QString &documentId, const QString &transactionId,
                                       qint64 amount);
    virtual AtolPayStatusResult status(const QString &transactionId);

    /// Reads section `atolpay` of the settings.
    void loadSettings();

private:
    /// The object in the reply; empty after a failure. `operation`: the path relative to `url`.
    QJsonObject exchange(const QString &operation, const QJsonObject &request);

    QUrl url;
    QString token;
    QString currency;
    /// The till's id at the service.
    QString rmkId;
    /// Seconds.
    qint64 timeout;
    Log4Qt::Logger *logger;
};

} // namespace atolpay
