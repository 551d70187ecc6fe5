#pragma once

#include "log4qt/logger.h"

namespace Log4Qt {

/// Hands out the loggers. Thread: any.
class LogManager
{
public:
    /// The logger of the category `name`: the same object for every call with that name.
    static Logger *logger(const QString &name);
};

} // namespace Log4Qt
