#include "shared/core/writegate.h"

#include "shared/core/guarded.h"

#include <algorithm>
#include <map>
#include <utility>

/// The waiting removals of one turn, besides its own. When the turn ends, with success or not, each
/// of them continues: its row is removed, or it gets a turn of its own.
class WriteGate::Group
{
public:
    explicit Group(WriteGate &gate)
        : gate(gate)
    {
        const std::scoped_lock lock(gate.mutex);
        for (auto next = gate.line.begin(); next != gate.line.end();) {
            const auto place = next++;
            if (!(*place)->isRemoval)
                continue;
            (*place)->isLed = true;
            led.splice(led.end(), gate.line, place);
        }
        gate.served += led.size();
    }
    ~Group()
    {
        const std::scoped_lock lock(gate.mutex);
        for (Waiter *waiter : led) {
            waiter->isRemoved = isRemoved;
            waiter->isRemoval = false;
            waiter->isLed = false;
            // Under the mutex: the waiter and its condition are destroyed once it can go on.
            waiter->wake.notify_one();
        }
        if (!isRemoved)
            gate.line.splice(gate.line.begin(), led);
    }
    Group(const Group &) = delete;

    WriteGate &gate;
    std::list<Waiter *> led;
    bool isRemoved = false;
};

WriteGate &WriteGate::of(dev_t device, ino_t inode)
{
    // Never destroyed: a worker may outlive main().
    static auto *const gates = new Guarded<std::map<std::pair<dev_t, ino_t>, WriteGate>>;
    return gates->lock()->try_emplace({device, inode}).first->second;
}

WriteGate::Turn WriteGate::enter(WriteGate *gate)
{
    if (!gate)
        return {};
    Waiter waiter;
    return gate->await(waiter);
}

std::optional<WriteGate::Turn> WriteGate::remove(int id, const RemoveAll &removeAll)
{
    Waiter own;
    own.id = id;
    own.isRemoval = true;
    Turn turn = await(own);
    if (own.isRemoved)
        return std::nullopt;
    if (!turn || !own.isRemoval)
        return turn;

    Group group(*this);
    if (group.led.empty())
        return turn;
    std::vector<int> ids{id};
    for (const Waiter *waiter : group.led)
        ids.push_back(waiter->id);
    group.isRemoved = removeAll(ids);
    return group.isRemoved ? std::nullopt : std::optional<Turn>(std::move(turn));
}

int WriteGate::waiting() const
{
    const std::scoped_lock lock(mutex);
    return static_cast<int>(line.size());
}

WriteGate::Clock::duration WriteGate::opening(Clock::duration turn)
{
    // SQLite's busy handler, which the till uses, sleeps at most this long between two attempts.
    constexpr Clock::duration longest = std::chrono::milliseconds(100);
    return std::min(turn, longest);
}

WriteGate::Turn WriteGate::await(Waiter &waiter)
{
    std::unique_lock lock(mutex);
    line.push_back(&waiter);
    if (line.size() == expected && !isTaken)
        line.front()->wake.notify_one();
    auto deadline = Clock::now() + patience;
    while (!waiter.isRemoved) {
        if (waiter.isLed) {
            waiter.wake.wait(lock, [&waiter] { return !waiter.isLed; });
            deadline = Clock::now() + patience;
            continue;
        }
        const auto now = Clock::now();
        const bool isNext = !isTaken && line.front() == &waiter;
        if (isNext && now >= nextTurn()) {
            line.pop_front();
            isTaken = true;
            turnBegin = now;
            served = 1;
            return Turn(this);
        }
        if (!isNext && now >= deadline) {
            line.remove(&waiter);
            break;
        }
        waiter.wake.wait_until(lock, isNext ? nextTurn() : deadline);
    }
    return {};
}

WriteGate::Clock::time_point WriteGate::nextTurn() const
{
    return line.front()->isRemoval && line.size() < expected ? gatherUntil : openUntil;
}

void WriteGate::leave()
{
    const std::scoped_lock lock(mutex);
    isTaken = false;
    // The writers of this turn return with their next replies.
    expected = served + line.size();
    if (expected < 2)
        return;
    const auto now = Clock::now();
    openUntil = now + opening(now - turnBegin);
    gatherUntil = now + opening(2 * (now - turnBegin));
    if (!line.empty())
        line.front()->wake.notify_one();
}
