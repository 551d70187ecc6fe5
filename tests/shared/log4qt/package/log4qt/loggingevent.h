#pragma once

#include "level.h"

#include <QEvent>

namespace Log4Qt {

class Logger;

class LoggingEvent : public QEvent
{
public:
    LoggingEvent(const Logger *logger, Level level, const QString &message);

    Level level() const;
    const Logger *logger() const;
    QString message() const;
    QString loggerName() const;

private:
    Level eventLevel;
    const Logger *source;
    QString text;
};

} // namespace Log4Qt
