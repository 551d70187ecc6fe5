#pragma once

#include "engine/basichandler.h"

class QUrl;

/// Delivers `counterchange` messages: an operation on a counter, in one POST. A refused operation
/// that the service already has counts as delivered.
class CountersHandler : public BasicHandler
{
public:
    CountersHandler();
    bool sendMessage(const Message &message) override;
    /// Asks the server of `url`, with its credentials, whether it has the operation. False also
    /// without an answer.
    virtual bool operationExists(const QUrl &url, const QString &operationId);
};
