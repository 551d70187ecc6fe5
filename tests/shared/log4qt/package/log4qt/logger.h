#pragma once

#include "appender.h"
#include "helpers/logerror.h"
#include "level.h"
#include "logstream.h"

#include <QList>
#include <QObject>
#include <QReadWriteLock>

namespace Log4Qt {

class AppenderAttachable
{
public:
    virtual ~AppenderAttachable() = default;
    virtual void addAppender(const AppenderSharedPtr &appender);
    virtual void removeAllAppenders();
    virtual void removeAppender(const AppenderSharedPtr &appender);
    virtual void removeAppender(const QString &name);

protected:
    QList<AppenderSharedPtr> appenders;
    mutable QReadWriteLock guard;
};

class Logger : public QObject, public AppenderAttachable
{
    Q_OBJECT

protected:
    Logger(Level level, const QString &name, Logger *parent);
    virtual ~Logger();

private:
    Q_DISABLE_COPY(Logger)

public:
    bool additivity() const;
    Level level() const;
    QString name() const;
    Logger *parentLogger() const;
    void setAdditivity(bool additivity);
    virtual void setLevel(Level level);
    void callAppenders(const LoggingEvent &event) const;
    Level effectiveLevel() const;
    bool isEnabledFor(Level level) const;
    bool isDebugEnabled() const;
    bool isErrorEnabled() const;
    bool isFatalEnabled() const;
    bool isInfoEnabled() const;
    bool isTraceEnabled() const;
    bool isWarnEnabled() const;

    void log(Level level, const QString &message) const;

    LogStream trace() const;
    void trace(const LogError &error) const;
    void trace(const QString &message) const;
    template <typename T, typename... Ts>
    void trace(const QString &message, T &&t, Ts &&...ts)
    {
        trace(message.arg(std::forward<T>(t)), std::forward<Ts>(ts)...);
    }

    LogStream debug() const;
    void debug(const LogError &error) const;
    void debug(const QString &message) const;
    template <typename T, typename... Ts>
    void debug(const QString &message, T &&t, Ts &&...ts)
    {
        debug(message.arg(std::forward<T>(t)), std::forward<Ts>(ts)...);
    }

    LogStream info() const;
    void info(const LogError &error) const;
    void info(const QString &message) const;
    template <typename T, typename... Ts>
    void info(const QString &message, T &&t, Ts &&...ts)
    {
        info(message.arg(std::forward<T>(t)), std::forward<Ts>(ts)...);
    }

    LogStream warn() const;
    void warn(const LogError &error) const;
    void warn(const QString &message) const;
    template <typename T, typename... Ts>
    void warn(const QString &message, T &&t, Ts &&...ts)
    {
        warn(message.arg(std::forward<T>(t)), std::forward<Ts>(ts)...);
    }

    LogStream error() const;
    void error(const LogError &error) const;
    void error(const QString &message) const;
    template <typename T, typename... Ts>
    void error(const QString &message, T &&t, Ts &&...ts)
    {
        error(message.arg(std::forward<T>(t)), std::forward<Ts>(ts)...);
    }

    LogStream fatal() const;
    void fatal(const LogError &error) const;
    void fatal(const QString &message) const;
    template <typename T, typename... Ts>
    void fatal(const QString &message, T &&t, Ts &&...ts)
    {
        fatal(message.arg(std::forward<T>(t)), std::forward<Ts>(ts)...);
    }

private:
    friend class LogManager;

    const QString category;
    Logger *const above;
    volatile bool additive = true;
    Level ownLevel;
};

} // namespace Log4Qt
