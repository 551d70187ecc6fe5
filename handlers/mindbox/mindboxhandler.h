#pragma once

#include "engine/basichandler.h"

class QJsonObject;

namespace mindbox {
class Interface;
class OperationResult;
} // namespace mindbox

/// Delivers `mindbox` messages: commits, rollbacks and deferred orders that the till has left for
/// the loyalty platform. What the platform has done, or refuses as a bad request, is finished with.
/// A deferred order with the card of an unknown customer is given up.
class MindboxHandler : public BasicHandler
{
public:
    MindboxHandler();
    bool sendMessage(const Message &message) override;

private:
    /// With a card the customer is asked for first, and the order goes out with the customer's
    /// phone number.
    bool saveOfflineOrder(mindbox::Interface &interface, QJsonObject payload,
                          const QString &cardNumber);
    /// Says what the outcome of the message's own operation means for the message.
    bool judge(const mindbox::OperationResult &result);
};
