#pragma once

#include "log4qt/level.h"

#include <atomic>
#include <log4cplus/loglevel.h>
#include <shared_mutex>

/// What the slice's own files know of log4cplus; no header that the service includes reads this.
namespace Log4Qt::backend {

log4cplus::LogLevel toLog4cplus(Level level);
Level fromLog4cplus(log4cplus::LogLevel level);

/// log4cplus takes its loggers and appenders down when the process ends, while workers may still
/// log. A line passes with the lock held for reading. The end sets `closed`, which sends every
/// later line straight to standard output, and then waits for the lock.
struct Gate
{
    std::shared_mutex mutex;
    std::atomic<bool> closed = false;
};

/// Never destroyed.
Gate &gate();

} // namespace Log4Qt::backend
