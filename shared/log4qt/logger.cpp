#include "log4qt/logger.h"

#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

namespace Log4Qt {

namespace {

void write(const log4cplus::Logger &logger, log4cplus::LogLevel level, const QString &message)
{
    if (logger.isEnabledFor(level))
        logger.forcedLog(level, message.toStdString(), nullptr, -1, nullptr);
}

} // namespace

Logger::Logger(const QString &name)
    : logger(new log4cplus::Logger(log4cplus::Logger::getInstance(name.toStdString())))
{
}

QString Logger::name() const
{
    return QString::fromStdString(logger->getName());
}

bool Logger::isTraceEnabled() const
{
    return logger->isEnabledFor(log4cplus::TRACE_LOG_LEVEL);
}

bool Logger::isDebugEnabled() const
{
    return logger->isEnabledFor(log4cplus::DEBUG_LOG_LEVEL);
}

bool Logger::isInfoEnabled() const
{
    return logger->isEnabledFor(log4cplus::INFO_LOG_LEVEL);
}

bool Logger::isWarnEnabled() const
{
    return logger->isEnabledFor(log4cplus::WARN_LOG_LEVEL);
}

bool Logger::isErrorEnabled() const
{
    return logger->isEnabledFor(log4cplus::ERROR_LOG_LEVEL);
}

void Logger::trace(const QString &message) const
{
    write(*logger, log4cplus::TRACE_LOG_LEVEL, message);
}

void Logger::debug(const QString &message) const
{
    write(*logger, log4cplus::DEBUG_LOG_LEVEL, message);
}

void Logger::info(const QString &message) const
{
    write(*logger, log4cplus::INFO_LOG_LEVEL, message);
}

void Logger::warn(const QString &message) const
{
    write(*logger, log4cplus::WARN_LOG_LEVEL, message);
}

void Logger::error(const QString &message) const
{
    write(*logger, log4cplus::ERROR_LOG_LEVEL, message);
}

} // namespace Log4Qt
