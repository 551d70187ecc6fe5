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

/// Writes the lines of one category. Made and owned by LogManager, never destroyed, so that a
/// worker that outlives main() still writes. Thread: any.
///
/// The forms with arguments fill %1, %2, ... one after another, so a text that itself may hold a
/// placeholder must not be followed by another argument. A line below the logger's level costs one
/// comparison, and its arguments are not looked at.
class Logger
{
public:
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;
    ~Logger() = delete;

    QString name() const;

    /// The logger's own level; NULL_INT takes that of the root logger.
    Level level() const;
    void setLevel(Level level);
    /// The level in force.
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

    /// Whether lines go to the appenders of the root logger too. True by default.
    bool additivity() const;
    void setAdditivity(bool additivity);
    void addAppender(const AppenderSharedPtr &appender);
    /// Afterwards no line reaches `appender` from this logger any more.
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

    // Not const, as in Log4Qt: what compiles here compiles there.
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

    /// For a number Qt looks for places that want it in the user's language, too, which takes twice
    /// as long as filling in a text.
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
    /// The level in force as a number, kept by LogManager.
    std::atomic<int> lowestEnabled{Level::OFF_INT};
};

} // namespace Log4Qt
