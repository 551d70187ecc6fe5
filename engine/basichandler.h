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

/// The worker of one message type: one pass through the type's messages, oldest first, then its
/// end. A handler says by the result of sendMessage() what becomes of a message; everything that
/// follows from it is decided here.
///
/// Made by HandlerFactory, wired by QueueHandler, run and destroyed by the thread pool.
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
        /// It is passed over as if it had been refused, and the pass goes on behind it.
        Later,
        /// It is passed over, and the pass ends.
        EndOfPass,
    };

    /// Says of each message as it comes up whether it goes out now, and writes the line that
    /// announces it.
    using TurnRule = std::function<Turn(const Message &, queue::DAO &, Log4Qt::Logger &)>;

    /// By itself, every message goes out when it comes up.
    explicit BasicHandler(const QString &type, TurnRule turnRule = everyMessage);

    /// Works through the messages of the type. Throws what DAO::connect() throws, and that ends the
    /// service.
    void run() override;
    ~BasicHandler() override;
    /// One pass through the type's messages, each of which the turn rule is asked about.
    virtual void processMessages();
    virtual bool isStopped();
    /// Delivers one message. True: finished with, whether delivered or given up for good with a
    /// reason in the log, and it is deleted. False: it stays, and this worker ends.
    /// Catches what it can recover from. An exception that leaves it is logged and counts as false.
    virtual bool sendMessage(const Message &message) = 0;
    /// The message stays: the next pass starts behind it.
    virtual void onSendFailed(int id);
    /// The message is finished with: deletes it.
    virtual void onMessageDone(int id);
    /// Nothing is left behind the last refused message: the next pass starts at the oldest one.
    virtual void onQueueEmpty();

    const QString &type() const { return type_; }
    /// Writes under the name of the type.
    Log4Qt::Logger *logger() const { return logger_; }

    /// Calls sendMessage() and says what became of the message. An exception is logged and keeps
    /// it.
    Outcome attempt(const Message &message);

    /// What a handler says of the message at hand beyond the result of sendMessage(), each for
    /// `return`: the reason is kept with the message's outcome, so it is in Russian and for people,
    /// and has no secret in it. The last word counts.
    ///
    /// True: finished with, although the service did not do what was asked.
    bool giveUp(const QString &reason);
    /// True: there was nothing left to do, since it was done before.
    bool doneBefore(const QString &reason);
    /// False: it stays because of what the reply itself says.
    bool keep(const QString &reason, http::FailureKind kind = http::FailureKind::Service);

    /// The card of a forced start. Kept as a note; the worker serves the whole type.
    void setCardNumber(const QString &number) { cardNumber = number; }
    /// The keys of what a person searches a message of this type by, as for referenceOf().
    void setReferences(const QStringList &keys) { references = keys; }
    /// Must be set before the worker runs, and last: the worker's thread sees what was set before.
    void setState(const std::shared_ptr<SharedState> &shared);

protected:
    std::shared_ptr<SharedState> state;
    /// The worker's own store, there while it runs.
    std::shared_ptr<queue::DAO> dao;

private:
    static Turn everyMessage(const Message &message, queue::DAO &dao, Log4Qt::Logger &logger);
    /// sendMessage(); an exception is logged and counts as false.
    bool send(const Message &message);
    /// Delivers the message and tells what became of it. True: finished with.
    bool deliver(const Message &message);
    /// A drop leaves a line even where the handler is silent.
    static void logDrop(const Outcome &outcome);
    bool say(Verdict verdict, const QString &reason, http::FailureKind kind);
    /// The oldest message after the type's fail id; nothing when another service has the type.
    std::optional<Message> nextMessage();
    /// Whether what was read is this worker's to deliver.
    bool isOurs() const;

    QString type_;
    QString cardNumber;
    Log4Qt::Logger *logger_;
    /// There while attempt() runs.
    Attempt *attemptAtHand = nullptr;
    TurnRule turnRule;
    std::atomic<bool> isHandedOver = false;
    QStringList references;
};
