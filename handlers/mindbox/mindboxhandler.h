#pragma once

#include "engine/basichandler.h"

class QJsonObject;

namespace mindbox {
class Interface;
class OperationResult;
} // namespace mindbox

/// Delivers `mindbox` messages: commits, rollbacks and deferred orders for the loyalty platform. A
/// message that the platform has carried out, or has refused as a bad request, is finished with. A
/// deferred order with the card of an unknown customer is dropped.
class MindboxHandler : public BasicHandler
{
public:
    MindboxHandler();
    bool sendMessage(const Message &message) override;

private:
    /// With a card, requests the customer first and sends the order with the customer's phone
    /// number.
    bool saveOfflineOrder(mindbox::Interface &interface, QJsonObject payload,
                          const QString &cardNumber);
    /// Decides from the outcome of the message's operation whether the message is finished with.
    bool judge(const mindbox::OperationResult &result);
};
