#pragma once

#include "handlers/payment/atolpay/results.h"

#include <QUrl>

class QJsonObject;

namespace Log4Qt {
class Logger;
}

namespace atolpay {

/// Client of the AtolPay service: QR payments by the transaction that the service knows them by. A
/// request that fails reads like an empty reply; nothing throws.
/// Thread: the one that made it.
class Interface
{
public:
    Interface();
    virtual ~Interface();

    /// Has the service prepare a payment of `amount` for a customer's QR code. The operation is
    /// called "register", which C++ keeps for itself.
    virtual AtolPayRegisterResult register_(const QString &purpose, qint64 amount);
    /// Gives back `amount` of a completed transaction. Every call is a refund of its own to the
    /// service, so ask for the status first.
    virtual AtolPayRefundResult refund(const QString &documentId, const QString &transactionId,
                                       qint64 amount);
    virtual AtolPayStatusResult status(const QString &transactionId);

    /// Fills the fields from section `atolpay` of the settings.
    void loadSettings();

private:
    enum class Operation
    {
        Register,
        Refund,
        Status,
    };

    QJsonObject exchange(Operation operation, const QJsonObject &request);

    QUrl url;
    QString token;
    QString currency;
    /// The till at the service.
    QString rmkId;
    /// Seconds.
    qint64 timeout;
    Log4Qt::Logger *logger;
};

} // namespace atolpay
