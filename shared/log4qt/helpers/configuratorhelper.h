#pragma once

#include "log4qt/loggingevent.h"

#include <QList>

namespace Log4Qt {

/// What the last configuration had to say.
class ConfiguratorHelper
{
public:
    /// The reasons why the last PropertyConfigurator::configure() gave false.
    static QList<LoggingEvent> configureError();
    static void setConfigureError(const QList<LoggingEvent> &errors);
};

} // namespace Log4Qt
