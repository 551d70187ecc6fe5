#pragma once

#include "log4qt/level.h"

namespace Log4Qt {

/// A line as appenders receive it.
class LoggingEvent
{
public:
    LoggingEvent(const QString &loggerName, Level level, const QString &message)
        : loggerName_(loggerName)
        , level_(level)
        , message_(message)
    {
    }

    QString loggerName() const { return loggerName_; }
    Level level() const { return level_; }
    QString message() const { return message_; }

private:
    QString loggerName_;
    Level level_;
    QString message_;
};

} // namespace Log4Qt
