#pragma once

#include <QString>

namespace Log4Qt {

class Properties;

/// Configures levels and appenders from log4j properties.
///
/// Supported are `log4j.rootLogger`, `log4j.logger.<category>` (also `log4j.category.<category>`),
/// `log4j.additivity.<category>`, `log4j.threshold` and `log4j.appender.<name>` with the classes
/// ConsoleAppender, FileAppender, RollingFileAppender, DailyRollingFileAppender and NullAppender
/// and the layouts PatternLayout, SimpleLayout and TTCCLayout, as `org.apache.log4j.X` or
/// `Log4Qt::X`.
/// `${name}` is replaced by another property or an environment variable. Folders of log files are
/// created. A rolling file has at least 200 kB. Files are appended to by default, so that a restart
/// loses no lines.
///
/// On an error the configuration does not change, and ConfiguratorHelper::configureError() has the
/// reasons. An unknown property gives a warning on the logger "Log4Qt". Thread: one at a time.
class PropertyConfigurator
{
public:
    static bool configure(const Properties &properties);
    static bool configure(const QString &configFilename);
};

} // namespace Log4Qt
