#pragma once

#include <QString>

class QSettings;

namespace Log4Qt {

class Properties;

class PropertyConfigurator
{
public:
    static bool configure(const Properties &properties);
    static bool configure(const QString &configFilename);
    static bool configure(const QSettings &settings);
};

} // namespace Log4Qt
