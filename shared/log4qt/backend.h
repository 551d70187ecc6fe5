#pragma once

#include "log4qt/level.h"

#include <atomic>
#include <log4cplus/loglevel.h>
#include <shared_mutex>

/// Internals of log4cplus for the files of this folder; headers that the service includes do not
/// include this one.
namespace Log4Qt::backend {

log4cplus::LogLevel toLog4cplus(Level level);
Level fromLog4cplus(log4cplus::LogLevel level);

/// log4cplus destroys its loggers and appenders at process exit, while workers may still log. Each
/// line holds the lock for reading. At exit `closed` is set first, which sends later lines straight
/// to standard output; then the lock is taken for writing.
struct Gate
{
    std::shared_mutex mutex;
    std::atomic<bool> closed = false;
};

/// Never destroyed.
Gate &gate();

} // namespace Log4Qt::backend
