#pragma once

#include <QSharedPointer>

namespace Log4Qt {

class LoggingEvent;

/// A destination of log lines.
class Appender
{
public:
    Appender() = default;
    virtual ~Appender() = default;
    Appender(const Appender &) = delete;
    Appender &operator=(const Appender &) = delete;

    /// Whether a layout formats the lines.
    virtual bool requiresLayout() const = 0;
    virtual void doAppend(const LoggingEvent &event) = 0;
};

using AppenderSharedPtr = QSharedPointer<Appender>;

} // namespace Log4Qt
