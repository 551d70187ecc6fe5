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
    /// After a fault.
    std::chrono::milliseconds retryInterval{10'000};
};

/// Keeps what became of each message in a file of its own, whatever database the till has. Workers
/// hand their outcomes over in memory; a thread of its own writes what has come together, at most
/// once a second. A crash loses the last second.
///
/// A file that cannot be written holds up nobody. One warning tells of it, and it is tried again at
/// intervals. What does not fit into memory meanwhile is left out and told when the file can be
/// written again; it still counts in the totals.
///
/// Thread: any.
class Journal : public OutcomeSink
{
public:
    using Clock = std::chrono::steady_clock;

    /// Begins at once.
    Journal(const QString &path, const JournalLimits &limits, const JournalTiming &timing = {});
    /// Writes what is in memory, once.
    ~Journal() override;

    void take(const Outcome &outcome) override;
    /// A fact is written at most once a minute.
    void note(const Fact &fact) override;

private:
    void run(const std::stop_token &stop);
    /// Returns when the interval is over and there is something to do, or at a stop.
    void await(const std::stop_token &stop);
    /// Moves what has come together to what is written next.
    void collect();
    void write();
    void writeToStore();
    /// False when it has failed, or was done not long ago.
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
    /// The thread waits for the first outcome. Others come while it waits for the interval to be
    /// over.
    bool isIdle = false;

    // Touched by the journal's own thread alone.
    const QString path;
    JournalStore store;
    JournalBatch batch;
    qint64 lostUntold = 0;
    Clock::time_point nextWrite;
    Clock::time_point nextPuttingAside;
    bool isFaulty = false;
    /// There are rows to remove.
    bool isPruning = false;

    /// Last, so that it ends first.
    std::jthread thread;
};
