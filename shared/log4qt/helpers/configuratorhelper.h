#pragma once

#include "log4qt/loggingevent.h"

#include <QList>

namespace Log4Qt {

/// The errors of the last configuration.
class ConfiguratorHelper
{
public:
    /// Why the last PropertyConfigurator::configure() returned false.
    static QList<LoggingEvent> configureError();
    static void setConfigureError(const QList<LoggingEvent> &errors);
};

} // namespace Log4Qt
