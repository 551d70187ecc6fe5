#pragma once

#include "rig/fastpeer.h"

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace faults {

/// Messages of eight types whose handlers differ, and the peer that they go to. A message bears a
/// number in all its requests; the peer writes down what became of each number.
/// Thread: any.
class Traffic
{
public:
    /// The eight types.
    static const QStringList &types();

    /// What the peer knows of one message.
    struct Record
    {
        /// How often it was told that the message is finished with.
        int done = 0;
        int refused = 0;
        /// The life of the service in which it was last told so.
        int lastLife = -1;
    };

    struct Counts
    {
        int requests = 0;
        /// Requests that have been held back.
        int held = 0;
        /// Messages that are done.
        int messages = 0;
        int refusals = 0;
        /// Deliveries of messages that were done before.
        int repeats = 0;
        /// Of these, the ones within one life of the service.
        int repeatsInOneLife = 0;
        /// Of the type that keeps an order, messages that came before an older one about the same.
        int outOfOrder = 0;
    };

    Traffic();
    ~Traffic();

    /// The type and the body of the message with this number.
    static QString typeOf(int number) { return types().at(number % types().size()); }
    QString body(int number) const;
    /// The number in a body.
    static int numberIn(std::string_view text);

    /// While it does, every seventh message is refused twice before it is taken.
    void setRefusing(bool on);
    /// Answers that many more requests. All after them wait for release(), so that messages are
    /// under way, and left, however slow the test is.
    void holdAfter(int requests);
    void release();

    /// A new life of the service: what is in the table may now be delivered once more.
    void beginLife();

    Counts counts() const;
    QHash<int, Record> records() const;
    QSet<int> done() const;
    /// Deliveries of one type that were repeats.
    QHash<QString, int> repeatsByType() const;

    /// Waits until `condition` holds, which is asked after every request. False when it did not
    /// within `limit`.
    bool waitFor(const std::function<bool(const Counts &)> &condition,
                 std::chrono::microseconds limit) const;

private:
    std::string answer(const rig::FastPeer::Request &request);
    std::string judge(const QString &type, int number, std::string_view target);
    bool refuse(int number);
    void finish(const QString &type, int number);

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    Counts counts_;
    QHash<int, Record> records_;
    QHash<QString, int> repeatsByType_;
    bool refusing = true;
    /// The request from which on answers are held back; -1: none.
    int holdFrom = -1;
    std::condition_variable released;
    int life = 0;
    /// Last, so that its thread ends first.
    rig::FastPeer receiver;
};

} // namespace faults
