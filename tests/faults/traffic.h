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

/// Messages of eight types with different handlers, and their peer. A message has a number in all
/// its requests; the peer records what became of each number. Thread: any.
class Traffic
{
public:
    /// The eight types.
    static const QStringList &types();

    /// What the peer knows about one message.
    struct Record
    {
        /// How often it was told that the message is finished.
        int done = 0;
        int refused = 0;
        /// The process of the service that told it last.
        int lastLife = -1;
    };

    struct Counts
    {
        int requests = 0;
        /// Requests without an answer so far.
        int held = 0;
        /// Finished messages.
        int messages = 0;
        int refusals = 0;
        /// Deliveries of messages that were finished before.
        int repeats = 0;
        /// Of these, the ones by the same process of the service.
        int repeatsInOneLife = 0;
        /// Messages of the ordered type that came before an older one about the same mark.
        int outOfOrder = 0;
    };

    Traffic();
    ~Traffic();

    /// The type and the body of the message with this number.
    static QString typeOf(int number) { return types().at(number % types().size()); }
    QString body(int number) const;
    /// The number in a body.
    static int numberIn(std::string_view text);

    /// While true, every seventh message is refused twice before it is accepted.
    void setRefusing(bool on);
    /// Answers this many more requests. Later ones wait for release(), so that deliveries are in
    /// progress and rows are left, however slow the test is.
    void holdAfter(int requests);
    void release();

    /// A new process of the service: rows in the table may be delivered once more.
    void beginLife();

    Counts counts() const;
    QHash<int, Record> records() const;
    QSet<int> done() const;
    /// Deliveries of one type that were repeats.
    QHash<QString, int> repeatsByType() const;

    /// Waits until `condition` is true; it is checked after every request. False when it did not
    /// become true within `limit`.
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
    /// From this request on, answers wait; -1: none.
    int holdFrom = -1;
    std::condition_variable released;
    int life = 0;
    /// Last, so that its thread ends first.
    rig::FastPeer receiver;
};

} // namespace faults
