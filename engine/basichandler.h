#pragma once

#include "engine/dao.h"
#include "engine/message.h"
#include "engine/outcome.h"
#include "engine/sharedstate.h"

#include <QRunnable>
#include <QString>
#include <QStringList>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

namespace Log4Qt {
class Logger;
}

class Attempt;

/// The worker of one message type. It makes one pass through the type's messages, oldest first, and
/// ends. The result of a handler's sendMessage() decides whether a message is deleted or kept; this
/// class does the rest.
///
/// Made by HandlerFactory, set up by QueueHandler, run and destroyed by the thread pool.
///
/// The order of virtual operations and of fields is part of the interface: compiled code finds them
/// by their place. The destructor's place is after run(), and new ones come last.
class BasicHandler : public QRunnable
{
public:
    /// Whether a message goes out now.
    enum class Turn
    {
        Now,
        /// It is skipped like a refused message; the pass continues with the next one.
        Later,
        /// It is skipped, and the pass ends.
        EndOfPass,
    };

    /// Decides for each message of the pass whether it goes out now, and logs its announcement.
    using TurnRule = std::function<Turn(const Message &, queue::DAO &, Log4Qt::Logger &)>;

    /// By default every message goes out when its turn comes.
    explicit BasicHandler(const QString &type, TurnRule turnRule = everyMessage);

    /// Makes one pass. Throws what DAO::connect() throws, which ends the service.
    void run() override;
    ~BasicHandler() override;
    /// One pass through the type's messages; calls the turn rule for each.
    virtual void processMessages();
    virtual bool isStopped();
    /// Delivers one message. True: finished with, whether delivered or dropped with a reason in the
    /// log; the message is deleted. False: it is kept, and this worker ends. Catches what it can
    /// recover from. An exception that leaves it is logged and counts as false.
    virtual bool sendMessage(const Message &message) = 0;
    /// The message is kept: the next pass starts after it.
    virtual void onSendFailed(int id);
    /// The message is finished with: deletes its row.
    virtual void onMessageDone(int id);
    /// No messages after the last refused one: the next pass starts at the oldest.
    virtual void onQueueEmpty();

    const QString &type() const { return type_; }
    /// The logger of the type's category.
    Log4Qt::Logger *logger() const { return logger_; }

    /// Calls sendMessage() and returns the outcome. An exception is logged and keeps the message.
    Outcome attempt(const Message &message);

    /// A handler's verdict on its current message, each for use in `return`. The reason is stored
    /// with the outcome: a Russian sentence for people, without secrets. The last verdict counts.
    ///
    /// True: finished with, although the service did not do what was asked.
    bool giveUp(const QString &reason);
    /// True: nothing to do, because an earlier attempt or another program has done it.
    bool doneBefore(const QString &reason);
    /// False: the message is kept because of the contents of the reply.
    bool keep(const QString &reason, http::FailureKind kind = http::FailureKind::Service);

    /// The card of a manual start. It is only stored; the worker serves the whole type.
    void setCardNumber(const QString &number) { cardNumber = number; }
    /// The keys by which people search for messages of this type, as for referenceOf().
    void setReferences(const QStringList &keys) { references = keys; }
    /// Call before the worker runs, after all other setters: it publishes their values to the
    /// worker's thread.
    void setState(const std::shared_ptr<SharedState> &shared);

protected:
    std::shared_ptr<SharedState> state;
    /// The worker's own store; set while it runs.
    std::shared_ptr<queue::DAO> dao;

private:
    static Turn everyMessage(const Message &message, queue::DAO &dao, Log4Qt::Logger &logger);
    /// sendMessage(), with an exception logged and counted as false.
    bool send(const Message &message);
    /// Delivers the message and reports its outcome. True: finished with.
    bool deliver(const Message &message);
    /// Logs a dropped message even if its handler logs nothing.
    static void logDrop(const Outcome &outcome);
    bool say(Verdict verdict, const QString &reason, http::FailureKind kind);
    /// The oldest message after the type's fail id; none when another service has the type.
    std::optional<Message> nextMessage();
    /// Whether this worker still has the right to deliver what it has read.
    bool mayDeliver() const;

    QString type_;
    QString cardNumber;
    Log4Qt::Logger *logger_;
    /// Set while attempt() runs.
    Attempt *currentAttempt = nullptr;
    TurnRule turnRule;
    std::atomic<bool> isHandedOver = false;
    QStringList references;
};
