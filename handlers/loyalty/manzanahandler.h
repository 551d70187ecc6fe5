#pragma once

#include "engine/basichandler.h"

/// Delivers messages to the Manzana service: a prepared XML document in one POST. The `ReturnCode`
/// of the reply decides.
class ManzanaHandler : public BasicHandler
{
public:
    explicit ManzanaHandler(const QString &type);
    bool sendMessage(const Message &message) override;
    /// True when the message is finished with.
    virtual bool parseReply(const QByteArray &reply);
};
