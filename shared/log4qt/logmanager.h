#pragma once

#include "log4qt/logger.h"

namespace Log4Qt {

/// Creates and owns the loggers. Thread: any.
class LogManager
{
public:
    /// The logger of the category `name`; always the same object for one name.
    static Logger *logger(const QString &name);
    /// The logger whose level and appenders apply to every category without its own.
    static Logger *rootLogger();
    /// The logger of the logging library itself: category "Log4Qt".
    static Logger *logLogger();

    /// Suppresses all lines below `level`, whatever the loggers' levels. ALL_INT by default.
    static void setThreshold(Level level);
    static Level threshold();

    /// Removes all appenders and levels: levels from debug up are enabled, but no line is written.
    static void resetConfiguration();

private:
    friend class Logger;
    friend class Configurator;

    struct Registry;
    static Registry &registry();
    /// Recomputes the effective level of every logger.
    static void updateLevels();
    static void closeAppenders();
};

} // namespace Log4Qt
