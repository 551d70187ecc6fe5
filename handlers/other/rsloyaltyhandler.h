#pragma once

#include "engine/basichandler.h"

/// Delivers `rsloyalty` messages: the prepared bytes in one POST. The XML reply decides, by a
/// result element that depends on the request or by the text of a fault.
class RSLoyaltyHandler : public BasicHandler
{
public:
    RSLoyaltyHandler();
    bool sendMessage(const Message &message) override;
    /// True if the message is finished with. `request` is the name of the request in the message,
    /// `status` the HTTP status of the reply.
    virtual bool parseReply(const QString &request, int status, const QByteArray &reply);
};
