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

/// Orders this process's writers to one SQLite file. SQLite lets one connection write at a time;
/// without the gate, a second writer would retry after sleeps of up to 100 ms and give up in the
/// end.
///
/// Waiting removals are committed as a group: the writer whose turn it is removes the rows of all
/// in one transaction on its own connection and wakes the others. Any other write has a turn of its
/// own. The till writes to the same file and can do so only between two turns. So after each turn,
/// if others wait, the gate stays open for a while, in which none of our writers writes.
///
/// Thread: any. Do not wait here while holding another lock.
class WriteGate
{
public:
    using Clock = std::chrono::steady_clock;
    /// Removes all of these rows and returns true, or removes none and returns false. Removed rows
    /// are durable on return.
    using RemoveAll = std::function<bool(const std::vector<int> &ids)>;

    /// The right to write, until the object's end. Empty if there is no gate or the writer's wait
    /// timed out: the writer then writes without coordination.
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

    /// `patience`: the longest wait for a turn. The default equals SQLite's busy timeout.
    explicit WriteGate(Clock::duration patience = std::chrono::seconds(5))
        : patience(patience)
    {
    }
    WriteGate(const WriteGate &) = delete;

    /// The gate of a file; one per file for the life of the process.
    static WriteGate &of(dev_t device, ino_t inode);

    /// A turn for one write; empty if `gate` is null.
    static Turn enter(WriteGate *gate);
    /// Nothing when the row `id` has been removed. Otherwise a turn, in which the caller removes
    /// the row by its own statement: no other writer was waiting, or `removeAll` failed.
    /// `removeAll` runs on this thread, if at all, and its exceptions pass through.
    std::optional<Turn> remove(int id, const RemoveAll &removeAll);

    /// The number of writers that wait for a turn.
    int waiting() const;
    /// How long the gate stays open after a turn of length `turn` if others wait.
    static Clock::duration opening(Clock::duration turn);

private:
    struct Waiter
    {
        int id = 0;
        /// Whether another writer's turn may remove the row.
        bool isRemoval = false;
        /// Its row is in another writer's current transaction.
        bool isLed = false;
        bool isRemoved = false;
        std::condition_variable wake;
    };
    class Group;

    Turn await(Waiter &waiter);
    void leave();
    /// When the first writer in the line may write.
    Clock::time_point nextTurn() const;

    const Clock::duration patience;
    mutable std::mutex mutex;
    /// Oldest first, without the writers whose rows are in the current transaction.
    std::list<Waiter *> line;
    bool isTaken = false;
    Clock::time_point turnBegin;
    Clock::time_point openUntil;
    /// A removal waits until this time, or until `expected` writers wait.
    Clock::time_point gatherUntil;
    std::size_t expected = 0;
    /// The number of writers that the current turn serves.
    std::size_t served = 0;
};
