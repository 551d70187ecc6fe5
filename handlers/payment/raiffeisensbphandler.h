#pragma once

#include "engine/basichandler.h"
#include "shared/net/restclient.h"

/// Delivers `raiffeisensbp` messages: undoes a payment by QR code. Addresses, headers and the body
/// of the refund are prepared by the till; the handler decides what the answers mean.
///
/// With three addresses nobody knows yet whether the code was paid: an unpaid code is deleted, a
/// paid one refunded. With any other number the payment is known to be complete and is refunded.
class RaiffeisenSbpHandler : public BasicHandler
{
public:
    enum class ReplyClass
    {
        /// The exchange went through.
        Good = 0,
        /// The service says that there is no such order or QR code.
        NotFound = 1,
        Failed = 2,
    };

    RaiffeisenSbpHandler();
    bool sendMessage(const Message &message) override;
    /// The text of a member of the reply; empty when there is none.
    virtual QString memberFromReply(const RestClient &client, const QString &name);
    /// The text of `status.value` of the reply; empty when there is none.
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
    /// Asks for the refund's state and says what became of it.
    bool judgeRefund(const Delivery &delivery, const QString &url);
    bool isGood(const RestClient &client) const;
    QString codeState(const RestClient &client);
};
