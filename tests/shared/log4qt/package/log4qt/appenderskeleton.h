#pragma once

#include "appender.h"

#include <QMutex>

namespace Log4Qt {

class AppenderSkeleton : public Appender
{
public:
    explicit AppenderSkeleton(QObject *parent = nullptr);

    QString name() const override;
    void setName(const QString &name) override;
    void close() override;
    void doAppend(const LoggingEvent &event) override;

protected:
    virtual void append(const LoggingEvent &event) = 0;

    mutable QRecursiveMutex mutex;
};

} // namespace Log4Qt
