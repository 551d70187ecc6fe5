#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include <sys/types.h>

/// The line in which this process's writers of one SQLite file wait. SQLite lets one connection
/// write at a time, and a second one tries again after sleeps of up to 100 ms until it gives up.
///
/// Removals that wait are carried out together: the writer whose turn it is removes the rows of all
/// in one transaction on its own connection and wakes the others. Any other write has a turn to
/// itself. The till writes into the same file and gets in between two turns only, so a turn that
/// ends while others wait is followed by an opening, in which none of ours writes.
///
/// Thread: any. Nobody waits here while it holds another lock.
class WriteGate
{
public:
    using Clock = std::chrono::steady_clock;
    /// Removes all of these rows, or none of them and answers false. What has been removed is on
    /// disk.
    using RemoveAll = std::function<bool(const std::vector<int> &ids)>;

    /// The right to write, until the object's end. Empty where there is no gate, and for a writer
    /// that has waited in vain: it writes as if there were none.
    class [[nodiscard]] Turn
    {
    public:
        Turn() = default;
        Turn(Turn &&other) noexcept
            : gate(std::exchange(other.gate, nullptr))
        {
        }
        ~Turn() { end(); }
        void end()
        {
            if (gate)
                std::exchange(gate, nullptr)->leave();
        }
        explicit operator bool() const { return gate; }

    private:
        friend class WriteGate;
        explicit Turn(WriteGate *gate)
            : gate(gate)
        {
        }

        WriteGate *gate = nullptr;
    };

    /// `patience`: how long a writer waits for its turn; without more, as long as it waits for
    /// SQLite.
    explicit WriteGate(Clock::duration patience = std::chrono::seconds(5))
        : patience(patience)
    {
    }
    WriteGate(const WriteGate &) = delete;

    /// The gate of a file, the same one for as long as the process lives.
    static WriteGate &of(dev_t device, ino_t inode);

    /// A turn for one write; an empty one without a gate.
    static Turn enter(WriteGate *gate);
    /// Nothing when the row `id` has been removed. Otherwise a turn, in which the caller has to
    /// remove it by a statement of its own: nobody else was waiting, or `removeAll` has failed.
    /// `removeAll` is called on this thread if at all; what it throws is thrown from here.
    std::optional<Turn> remove(int id, const RemoveAll &removeAll);

    /// How many writers wait for a turn.
    int waiting() const;
    /// How long the gate stays open after a turn that took `turn`, when others wait.
    static Clock::duration opening(Clock::duration turn);

private:
    struct Waiter
    {
        int id = 0;
        /// Whether another one's turn may remove the row as well.
        bool isRemoval = false;
        /// Its row is in a transaction that another writer carries out just now.
        bool isLed = false;
        bool isRemoved = false;
        std::condition_variable wake;
    };
    class Group;

    Turn await(Waiter &waiter);
    void leave();
    /// When the first in line may write.
    Clock::time_point nextTurn() const;

    const Clock::duration patience;
    mutable std::mutex mutex;
    /// The oldest first, without those that are led.
    std::list<Waiter *> line;
    bool isTaken = false;
    Clock::time_point turnBegin;
    Clock::time_point openUntil;
    /// A removal waits until then, or until as many as `expected` wait.
    Clock::time_point gatherUntil;
    std::size_t expected = 0;
    /// How many writers the turn at hand serves.
    std::size_t served = 0;
};
