#pragma once

#include <QString>

namespace Log4Qt {

class Properties;

/// Sets levels and appenders as log4j properties say.
///
/// Known are `log4j.rootLogger`, `log4j.logger.<category>` (`log4j.category.<category>` too),
/// `log4j.additivity.<category>`, `log4j.threshold` and `log4j.appender.<name>` with the classes
/// ConsoleAppender, FileAppender, RollingFileAppender, DailyRollingFileAppender and NullAppender
/// and the layouts PatternLayout, SimpleLayout and TTCCLayout, as `org.apache.log4j.X` or
/// `Log4Qt::X`.
/// `${name}` stands for another property or for a variable of the environment. Folders of log files
/// are created. A rolling file has at least 200 kB. Files are appended to unless told otherwise, so
/// that a restart loses nothing.
///
/// With an error nothing changes, and ConfiguratorHelper::configureError() has the reasons. A
/// property that nobody knows is warned of on the logger "Log4Qt". Thread: one at a time.
class PropertyConfigurator
{
public:
    static bool configure(const Properties &properties);
    static bool configure(const QString &configFilename);
};

} // namespace Log4Qt
