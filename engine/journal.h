#pragma once

#include "engine/journalbatch.h"
#include "engine/journalstore.h"
#include "engine/outcome.h"

#include <QHash>
#include <QString>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

namespace Log4Qt {
class Logger;
}

struct JournalTiming
{
    std::chrono::milliseconds interval{1000};
    /// The wait after a failed write.
    std::chrono::milliseconds retryInterval{10'000};
    /// A fact that was told is not written again before.
    std::chrono::milliseconds factInterval{std::chrono::minutes(1)};
    /// A damaged file is not put aside again before: a disk that damages each file would be filled.
    std::chrono::milliseconds puttingAsideInterval{std::chrono::hours(1)};
};

/// Records the outcome of each message in an SQLite file of its own, independent of the till's
/// database. Workers append outcomes in memory; a separate thread writes them at most once a
/// second. A crash loses the last second.
///
/// A file that cannot be written never delays a worker. The fault is logged once as a warning, and
/// the write is retried at intervals. Messages that exceed the memory limit meanwhile are left out;
/// their number is logged when the file can be written again, and the totals include them.
///
/// Thread: any.
class Journal : public OutcomeSink
{
public:
    using Clock = std::chrono::steady_clock;

    /// Starts the thread.
    Journal(const QString &path, const JournalLimits &limits, const JournalTiming &timing = {});
    /// Writes what is in memory, in one attempt.
    ~Journal() override;

    void take(const Outcome &outcome) override;
    /// Each fact is written at most once a minute.
    void note(const Fact &fact) override;

private:
    void run(const std::stop_token &stop);
    /// Returns when the interval is over and there is something to write, or at a stop.
    void await(const std::stop_token &stop);
    /// Moves the pending batch to the one that is written next.
    void collect();
    void write();
    void writeToStore();
    /// False when it failed, or the last time was less than an hour ago.
    bool putAside(const QString &reason);
    void tellFault(const QString &reason);
    void tellSuccess();
    void tellLoss();

    const JournalLimits limits;
    const JournalTiming timing;
    Log4Qt::Logger *const logger;

    std::mutex mutex;
    std::condition_variable_any changed;
    // Guarded by the mutex.
    JournalBatch pending;
    qint64 lost = 0;
    QHash<std::pair<QString, QString>, Clock::time_point> noted;
    /// The thread waits for the first outcome, rather than for the end of the interval.
    bool isIdle = false;

    // Used only by the journal's own thread.
    const QString path;
    JournalStore store;
    JournalBatch batch;
    qint64 lostUntold = 0;
    Clock::time_point nextWrite;
    Clock::time_point nextPuttingAside;
    bool isFaulty = false;
    /// There are rows to remove.
    bool isPruning = false;

    /// Declared last, so that it ends first.
    std::jthread thread;
};
