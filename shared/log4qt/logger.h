#pragma once

#include "log4qt/appender.h"
#include "log4qt/level.h"

#include <QString>

#include <atomic>
#include <type_traits>
#include <utility>

namespace log4cplus {
class Logger;
}

namespace Log4Qt {

/// Writes the lines of one category. Owned by LogManager and never destroyed, so that a worker that
/// outlives main() can still log. Thread: any.
///
/// The overloads with arguments fill %1, %2, ... one after another. So an argument whose text may
/// contain a placeholder must be the last one. A line below the logger's level costs one
/// comparison; its arguments are not formatted.
class Logger
{
public:
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;
    ~Logger() = delete;

    QString name() const;

    /// The logger's own level; NULL_INT means the root logger's level.
    Level level() const;
    void setLevel(Level level);
    /// The effective level: its own, or the root logger's.
    Level effectiveLevel() const;
    bool isEnabledFor(Level level) const
    {
        return level.toInt() >= lowestEnabled.load(std::memory_order_relaxed);
    }
    bool isTraceEnabled() const { return isEnabledFor(Level::TRACE_INT); }
    bool isDebugEnabled() const { return isEnabledFor(Level::DEBUG_INT); }
    bool isInfoEnabled() const { return isEnabledFor(Level::INFO_INT); }
    bool isWarnEnabled() const { return isEnabledFor(Level::WARN_INT); }
    bool isErrorEnabled() const { return isEnabledFor(Level::ERROR_INT); }

    /// Whether lines also go to the root logger's appenders. True by default.
    bool additivity() const;
    void setAdditivity(bool additivity);
    void addAppender(const AppenderSharedPtr &appender);
    /// After this call this logger writes no line to `appender`.
    void removeAppender(const AppenderSharedPtr &appender);

    void log(Level level, const QString &message) const
    {
        if (isEnabledFor(level))
            forcedLog(level, message);
    }
    void trace(const QString &message) const { log(Level::TRACE_INT, message); }
    void debug(const QString &message) const { log(Level::DEBUG_INT, message); }
    void info(const QString &message) const { log(Level::INFO_INT, message); }
    void warn(const QString &message) const { log(Level::WARN_INT, message); }
    void error(const QString &message) const { log(Level::ERROR_INT, message); }

    // Not const, as in Log4Qt, so that code compiles with either.
    template <typename T, typename... Ts>
    void trace(const QString &message, T &&first, Ts &&...rest)
    {
        if (isTraceEnabled())
            trace(filled(message, std::forward<T>(first)), std::forward<Ts>(rest)...);
    }
    template <typename T, typename... Ts>
    void debug(const QString &message, T &&first, Ts &&...rest)
    {
        if (isDebugEnabled())
            debug(filled(message, std::forward<T>(first)), std::forward<Ts>(rest)...);
    }
    template <typename T, typename... Ts>
    void info(const QString &message, T &&first, Ts &&...rest)
    {
        if (isInfoEnabled())
            info(filled(message, std::forward<T>(first)), std::forward<Ts>(rest)...);
    }
    template <typename T, typename... Ts>
    void warn(const QString &message, T &&first, Ts &&...rest)
    {
        if (isWarnEnabled())
            warn(filled(message, std::forward<T>(first)), std::forward<Ts>(rest)...);
    }
    template <typename T, typename... Ts>
    void error(const QString &message, T &&first, Ts &&...rest)
    {
        if (isErrorEnabled())
            error(filled(message, std::forward<T>(first)), std::forward<Ts>(rest)...);
    }

private:
    friend class LogManager;
    friend class Configurator;
    explicit Logger(const log4cplus::Logger &logger);

    /// For a number, QString::arg() also looks for localized placeholders, which takes twice as
    /// long as with a text.
    template <typename T>
    static QString filled(const QString &message, T &&value)
    {
        using Value = std::remove_cvref_t<T>;
        if constexpr (std::is_same_v<Value, int> || std::is_same_v<Value, qint64>)
            return message.arg(QString::number(value));
        else
            return message.arg(std::forward<T>(value));
    }

    void forcedLog(Level level, const QString &message) const;

    log4cplus::Logger *const logger;
    /// The effective level as a number, maintained by LogManager.
    std::atomic<int> lowestEnabled{Level::OFF_INT};
};

} // namespace Log4Qt
