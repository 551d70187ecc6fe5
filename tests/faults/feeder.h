#pragma once

#include <atomic>
#include <thread>

class QueueDatabase;

namespace faults {

class Traffic;

/// The till: writes the messages of a Traffic into the table, one type after the other, as long as
/// fewer than `backlog` of them wait. Numbers begin at 0. Thread: the creating one; it writes in a
/// thread of its own.
class Feeder
{
public:
    Feeder(QueueDatabase &database, const Traffic &traffic, int backlog);
    ~Feeder();
    Feeder(const Feeder &) = delete;

    /// How many numbers have been written so far, without gaps.
    int written() const { return writtenCount; }
    /// Continues up to `total` numbers, 0: without end.
    void writeUpTo(int total) { limit = total; }
    /// Stops writing after the current row.
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
