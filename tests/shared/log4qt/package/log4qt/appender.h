#pragma once

#include "log4qtsharedptr.h"

#include <QObject>

namespace Log4Qt {

class LoggingEvent;

class Appender : public QObject
{
    Q_OBJECT

public:
    Appender(QObject *parent = nullptr);
    virtual ~Appender();

    virtual QString name() const = 0;
    virtual bool requiresLayout() const = 0;
    virtual void setName(const QString &name) = 0;
    virtual void close() = 0;
    virtual void doAppend(const LoggingEvent &event) = 0;

private:
    Q_DISABLE_COPY_MOVE(Appender)
};

using AppenderSharedPtr = Log4QtSharedPtr<Appender>;

} // namespace Log4Qt
