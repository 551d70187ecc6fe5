#include "log4qt/helpers/configuratorhelper.h"

#include <mutex>

namespace Log4Qt {

namespace {

struct Errors
{
    std::mutex mutex;
    QList<LoggingEvent> list;
};

Errors &errors()
{
    static auto &errors = *new Errors;
    return errors;
}

} // namespace

QList<LoggingEvent> ConfiguratorHelper::configureError()
{
    const std::lock_guard guard(errors().mutex);
    return errors().list;
}

void ConfiguratorHelper::setConfigureError(const QList<LoggingEvent> &list)
{
    const std::lock_guard guard(errors().mutex);
    errors().list = list;
}

} // namespace Log4Qt
