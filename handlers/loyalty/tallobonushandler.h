#pragma once

#include "engine/basichandler.h"
#include "handlers/loyalty/tallobonusmessage.h"
#include "shared/document/tallobonusclient.h"

#include <QMap>

#include <functional>
#include <memory>

/// Delivers `tallobonus`, `tallocertificate` and `tallocoupon` messages: each contains the name of
/// a method, which is called on the bonus server. A final refusal finishes the message; an unknown
/// method keeps it.
class TalloBonusHandler : public BasicHandler
{
public:
    explicit TalloBonusHandler(const QString &type);
    bool sendMessage(const Message &message) override;

    // One operation for each method. They throw what the client throws.
    virtual void add(const TalloBonusMessage &message);
    virtual void sub(const TalloBonusMessage &message);
    virtual void back(const TalloBonusMessage &message);
    /// Sets the state of the card first if the message contains one.
    virtual void commit(const TalloBonusMessage &message);
    virtual void rollback(const TalloBonusMessage &message);
    virtual void setAdditionalCardStatus(const TalloBonusMessage &message);
    /// Reverts what a session has credited, without a check of the remaining balance.
    virtual void revertEarnBySessionId(const TalloBonusMessage &message);
    /// Applies the message's settings to the client. An endpoint stays set for later messages until
    /// one has another.
    virtual void prepareClient(const TalloBonusMessage &message);

protected:
    QMap<QString, std::function<void(const TalloBonusMessage &)>> methods;
    /// Shared by all messages of this handler.
    std::shared_ptr<TalloBonusClient> client;
};
