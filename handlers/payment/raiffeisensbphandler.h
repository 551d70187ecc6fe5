#pragma once

#include "engine/basichandler.h"
#include "shared/net/restclient.h"

/// Delivers `raiffeisensbp` messages: cancels a payment by QR code. The till prepares the
/// addresses, the headers and the body of the refund; the handler interprets the answers.
///
/// With three addresses it is unknown whether the code was paid: an unpaid code is deleted, a paid
/// one refunded. With any other number the payment is known to be complete and is refunded.
class RaiffeisenSbpHandler : public BasicHandler
{
public:
    enum class ReplyClass
    {
        /// The exchange succeeded.
        Good = 0,
        /// The service does not know the order or QR code.
        NotFound = 1,
        Failed = 2,
    };

    RaiffeisenSbpHandler();
    bool sendMessage(const Message &message) override;
    /// The text of a member of the reply; empty without one.
    virtual QString memberFromReply(const RestClient &client, const QString &name);
    /// The text of `status.value` of the reply; empty without one.
    virtual QString statusValueFromReply(const RestClient &client);

    /// Logs a failure.
    ReplyClass classifyReply(const RestClient &client) const;

private:
    struct Delivery;

    Delivery prepare(const Message &message) const;
    bool undoByState(const Message &message, const QStringList &urls);
    bool refundPaidOrder(const Message &message, const QStringList &urls);
    bool deleteCode(const Delivery &delivery, const QString &url);
    bool requestRefund(const Delivery &delivery, const QString &url);
    /// Requests the refund's state and decides about the message.
    bool judgeRefund(const Delivery &delivery, const QString &url);
    bool isGood(const RestClient &client) const;
    QString codeState(const RestClient &client);
};
