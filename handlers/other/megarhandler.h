#pragma once

#include "engine/basichandler.h"

/// Delivers `megar` and `rrsocial` messages: the prepared bytes in one POST. The XML reply must say
/// that the transaction is approved or was handled earlier.
class MegarHandler : public BasicHandler
{
public:
    explicit MegarHandler(const QString &type);
    bool sendMessage(const Message &message) override;
    /// True if the transaction needs no further attempt.
    virtual bool parseReply(const QByteArray &reply);
};
