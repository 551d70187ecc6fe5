#pragma once

#include "engine/basichandler.h"
#include "handlers/loyalty/tallobonusmessage.h"
#include "shared/document/tallobonusclient.h"

#include <QMap>

#include <functional>
#include <memory>

/// Delivers `tallobonus`, `tallocertificate` and `tallocoupon` messages: each names a method, and
/// the operation of that name is carried out at the bonus server. A refusal that another attempt
/// would not change finishes the message; a method that nobody knows keeps it.
class TalloBonusHandler : public BasicHandler
{
public:
    explicit TalloBonusHandler(const QString &type);
    bool sendMessage(const Message &message) override;

    // One operation for each method. They throw what the client throws.
    virtual void add(const TalloBonusMessage &message);
    virtual void sub(const TalloBonusMessage &message);
    virtual void back(const TalloBonusMessage &message);
    /// Sets the state of the card first, if the message names one.
    virtual void commit(const TalloBonusMessage &message);
    virtual void rollback(const TalloBonusMessage &message);
    virtual void setAdditionalCardStatus(const TalloBonusMessage &message);
    /// Takes back what a session has credited, without a look at what is left of it.
    virtual void revertEarnBySessionId(const TalloBonusMessage &message);
    /// Gives the client the message's settings. An endpoint holds for the messages behind, too,
    /// until one names another.
    virtual void prepareClient(const TalloBonusMessage &message);

protected:
    QMap<QString, std::function<void(const TalloBonusMessage &)>> methods;
    /// One for all messages of this handler.
    std::shared_ptr<TalloBonusClient> client;
};
