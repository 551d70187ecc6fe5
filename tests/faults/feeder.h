#pragma once

#include <atomic>
#include <thread>

class QueueDatabase;

namespace faults {

class Traffic;

/// The till: writes the messages of a Traffic into the table, one type after the other, as long as
/// fewer than `backlog` of them wait. Numbers begin at 0.
/// Thread: the one that made it; the writing is done in a thread of its own.
class Feeder
{
public:
    Feeder(QueueDatabase &database, const Traffic &traffic, int backlog);
    ~Feeder();
    Feeder(const Feeder &) = delete;

    /// How many numbers are in the table or have been, without gaps.
    int written() const { return writtenCount; }
    /// Writes on up to `total` numbers, 0: without end.
    void writeUpTo(int total) { limit = total; }
    /// Ends the writing; what was begun is finished.
    void stop();

private:
    void run();

    QueueDatabase &database;
    const Traffic &traffic;
    const int backlog;
    std::atomic<int> limit = 0;
    std::atomic<int> writtenCount = 0;
    std::atomic<bool> stopping = false;
    std::thread thread;
};

} // namespace faults
