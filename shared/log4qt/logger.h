#pragma once

#include <QString>

namespace log4cplus {
class Logger;
}

namespace Log4Qt {

/// Writes the lines of one category. Made and owned by LogManager, never destroyed.
/// Thread: any.
class Logger
{
public:
    Logger(const Logger &) = delete;
    Logger &operator=(const Logger &) = delete;

    QString name() const;

    bool isTraceEnabled() const;
    bool isDebugEnabled() const;
    bool isInfoEnabled() const;
    bool isWarnEnabled() const;
    bool isErrorEnabled() const;

    void trace(const QString &message) const;
    void debug(const QString &message) const;
    void info(const QString &message) const;
    void warn(const QString &message) const;
    void error(const QString &message) const;

    /// The forms with arguments fill %1, %2, ... one after another, so a text that itself may hold
    /// a placeholder must not be followed by another argument.
    template <typename T, typename... Ts>
    void trace(const QString &message, const T &first, const Ts &...rest) const
    {
        if (isTraceEnabled())
            trace(filled(message, first, rest...));
    }
    template <typename T, typename... Ts>
    void debug(const QString &message, const T &first, const Ts &...rest) const
    {
        if (isDebugEnabled())
            debug(filled(message, first, rest...));
    }
    template <typename T, typename... Ts>
    void info(const QString &message, const T &first, const Ts &...rest) const
    {
        if (isInfoEnabled())
            info(filled(message, first, rest...));
    }
    template <typename T, typename... Ts>
    void warn(const QString &message, const T &first, const Ts &...rest) const
    {
        if (isWarnEnabled())
            warn(filled(message, first, rest...));
    }
    template <typename T, typename... Ts>
    void error(const QString &message, const T &first, const Ts &...rest) const
    {
        if (isErrorEnabled())
            error(filled(message, first, rest...));
    }

private:
    friend class LogManager;
    explicit Logger(const QString &name);
    ~Logger() = delete;

    template <typename... Ts>
    static QString filled(QString message, const Ts &...arguments)
    {
        ((message = message.arg(arguments)), ...);
        return message;
    }

    log4cplus::Logger *const logger;
};

} // namespace Log4Qt
