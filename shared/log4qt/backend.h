#pragma once

#include "log4qt/level.h"

#include <log4cplus/loglevel.h>

#include <shared_mutex>

/// What the slice's own files know of log4cplus; no header that the service includes reads this.
namespace Log4Qt::backend {

log4cplus::LogLevel toLog4cplus(Level level);
Level fromLog4cplus(log4cplus::LogLevel level);

/// log4cplus takes its loggers and appenders down when the process ends, while workers may still
/// log. A line passes with the lock held for reading; the end holds it for writing and sets `closed`,
/// and later lines go to standard output directly.
struct Gate
{
    std::shared_mutex mutex;
    bool closed = false;
};

/// Never destroyed.
Gate &gate();

} // namespace Log4Qt::backend
