#pragma once

#include "log4qt/logger.h"

namespace Log4Qt {

/// Hands out the loggers. Thread: any.
class LogManager
{
public:
    /// The logger of the category `name`: the same object for every call with that name.
    static Logger *logger(const QString &name);
    /// The logger whose level and appenders hold for every category that has none of its own.
    static Logger *rootLogger();
    /// The logger on which the logging tells of itself: category "Log4Qt".
    static Logger *logLogger();

    /// Nothing below `level` is written, whatever the loggers' levels are. ALL_INT by default.
    static void setThreshold(Level level);
    static Level threshold();

    /// Takes all appenders and levels away: nothing is written, from debug up everything enabled.
    static void resetConfiguration();

private:
    friend class Logger;
    friend class Configurator;

    struct Registry;
    static Registry &registry();
    /// Recomputes the level in force of every logger.
    static void updateLevels();
    static void closeAppenders();
};

} // namespace Log4Qt
