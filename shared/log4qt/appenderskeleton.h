#pragma once

#include "log4qt/appender.h"
#include "log4qt/loggingevent.h"

#include <mutex>

namespace Log4Qt {

/// The base of appenders in this project: calls of append() are serialized.
class AppenderSkeleton : public Appender
{
public:
    void doAppend(const LoggingEvent &event) override
    {
        const std::lock_guard guard(mutex);
        append(event);
    }

protected:
    virtual void append(const LoggingEvent &event) = 0;

private:
    std::mutex mutex;
};

} // namespace Log4Qt
