#include "log4qt/logmanager.h"

#include "log4qt/backend.h"

#include <QHash>

#include <cstdlib>
#include <log4cplus/hierarchy.h>
#include <log4cplus/initializer.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>
#include <mutex>

using namespace Qt::StringLiterals;

namespace Log4Qt {

namespace backend {

log4cplus::LogLevel toLog4cplus(Level level)
{
    switch (level.toInt()) {
    case Level::NULL_INT:
        return log4cplus::NOT_SET_LOG_LEVEL;
    case Level::ALL_INT:
        return log4cplus::ALL_LOG_LEVEL;
    case Level::TRACE_INT:
        return log4cplus::TRACE_LOG_LEVEL;
    case Level::DEBUG_INT:
        return log4cplus::DEBUG_LOG_LEVEL;
    case Level::INFO_INT:
        return log4cplus::INFO_LOG_LEVEL;
    case Level::WARN_INT:
        return log4cplus::WARN_LOG_LEVEL;
    case Level::ERROR_INT:
        return log4cplus::ERROR_LOG_LEVEL;
    case Level::FATAL_INT:
        return log4cplus::FATAL_LOG_LEVEL;
    default:
        return log4cplus::OFF_LOG_LEVEL;
    }
}

Level fromLog4cplus(log4cplus::LogLevel level)
{
    switch (level) {
    case log4cplus::NOT_SET_LOG_LEVEL:
        return Level::NULL_INT;
    case log4cplus::TRACE_LOG_LEVEL:
        return Level::TRACE_INT;
    case log4cplus::DEBUG_LOG_LEVEL:
        return Level::DEBUG_INT;
    case log4cplus::INFO_LOG_LEVEL:
        return Level::INFO_INT;
    case log4cplus::WARN_LOG_LEVEL:
        return Level::WARN_INT;
    case log4cplus::ERROR_LOG_LEVEL:
        return Level::ERROR_INT;
    case log4cplus::FATAL_LOG_LEVEL:
        return Level::FATAL_INT;
    default:
        return Level::OFF_INT;
    }
}

Gate &gate()
{
    static auto &gate = *new Gate;
    return gate;
}

} // namespace backend

struct LogManager::Registry
{
    std::mutex mutex;
    QHash<QString, Logger *> loggers;
    Logger *root = nullptr;
    Level threshold = Level::ALL_INT;
};

LogManager::Registry &LogManager::registry()
{
    // Never destroyed: workers may log until the process ends.
    static Registry &registry = []() -> Registry & {
        log4cplus::initialize();
        // The pool serves asynchronous appenders, which are not used here; log4cplus does not
        // accept 0.
        log4cplus::setThreadPoolSize(1);
        auto &made = *new Registry;
        log4cplus::Logger root = log4cplus::Logger::getRoot();
        // Without any appender log4cplus prints an error on standard error.
        root.addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
        made.root = new Logger(root);
        made.root->lowestEnabled = backend::fromLog4cplus(root.getLogLevel()).toInt();
        // Registered after log4cplus's own exit handler, so it runs before that.
        std::atexit(closeAppenders);
        return made;
    }();
    return registry;
}

Logger *LogManager::logger(const QString &name)
{
    Registry &known = registry();
    const std::lock_guard guard(known.mutex);
    Logger *&logger = known.loggers[name];
    if (!logger) {
        const std::shared_lock lock(backend::gate().mutex);
        if (backend::gate().closed) {
            known.loggers.remove(name);
            return known.root;
        }
        logger = new Logger(log4cplus::Logger::getInstance(name.toStdString()));
        logger->lowestEnabled =
            std::max(backend::fromLog4cplus(logger->logger->getChainedLogLevel()), known.threshold)
                .toInt();
    }
    return logger;
}

Logger *LogManager::rootLogger()
{
    return registry().root;
}

Logger *LogManager::logLogger()
{
    return logger(u"Log4Qt"_s);
}

void LogManager::setThreshold(Level level)
{
    {
        const std::lock_guard guard(registry().mutex);
        registry().threshold = level;
    }
    updateLevels();
}

Level LogManager::threshold()
{
    const std::lock_guard guard(registry().mutex);
    return registry().threshold;
}

void LogManager::resetConfiguration()
{
    registry();
    log4cplus::Logger::getDefaultHierarchy().resetConfiguration();
    rootLogger()->logger->addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
    setThreshold(Level::ALL_INT);
}

void LogManager::updateLevels()
{
    Registry &known = registry();
    const std::lock_guard guard(known.mutex);
    const auto update = [&known](Logger *logger) {
        const Level level = backend::fromLog4cplus(logger->logger->getChainedLogLevel());
        logger->lowestEnabled = std::max(level, known.threshold).toInt();
    };
    update(known.root);
    for (Logger *logger : std::as_const(known.loggers))
        update(logger);
}

void LogManager::closeAppenders()
{
    backend::Gate &gate = backend::gate();
    gate.closed = true;
    const std::unique_lock lock(gate.mutex);
    log4cplus::deinitialize();
}

} // namespace Log4Qt
