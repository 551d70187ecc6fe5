#pragma once

#include "level.h"
#include "logger.h"

namespace Log4Qt {

class LogManager
{
private:
    LogManager();
    ~LogManager();
    Q_DISABLE_COPY_MOVE(LogManager)

public:
    static Logger *logLogger();
    static Logger *rootLogger();
    static QList<Logger *> loggers();
    static Level threshold();
    static void setThreshold(Level level);
    static Logger *logger(const QString &name);
    static void resetConfiguration();
};

} // namespace Log4Qt
