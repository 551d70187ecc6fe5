#include "shared/core/logging.h"

#include "shared/core/paths.h"

#include <log4qt/helpers/configuratorhelper.h>
#include <log4qt/helpers/properties.h>
#include <log4qt/loggingevent.h>
#include <log4qt/logmanager.h>
#include <log4qt/propertyconfigurator.h>

#include <QFile>
#include <QStringList>

#include <clocale>
#include <langinfo.h>

using namespace Qt::StringLiterals;

namespace {

QString configurationFile()
{
    const QString named = qEnvironmentVariable("LOG4QT_CONFIGURATION");
    if (!named.isEmpty())
        return named;
    const QString usual = rootedPath(u"/tallocash/cash/queue/config/log4qt.properties"_s);
    return QFile::exists(usual) ? usual : QString();
}

Log4Qt::Properties defaultProperties()
{
    const QString appender = u"log4j.appender.stdout"_s;
    Log4Qt::Properties properties;
    properties.setProperty(u"log4j.rootLogger"_s, u"INFO, stdout"_s);
    properties.setProperty(appender, u"org.apache.log4j.ConsoleAppender"_s);
    properties.setProperty(appender + u".layout"_s, u"org.apache.log4j.PatternLayout"_s);
    properties.setProperty(appender + u".layout.conversionPattern"_s,
                           u"%d{yyyy-MM-dd HH:mm:ss,zzz} %-5p [%c] %m%n"_s);
    return properties;
}

} // namespace

void useUtf8Locale()
{
    setlocale(LC_ALL, "");
    if (qstrcmp(nl_langinfo(CODESET), "UTF-8") != 0)
        qputenv("LC_ALL", "C.UTF-8");
}

void setUpLogging()
{
    Log4Qt::LogManager::resetConfiguration();
    const QString file = configurationFile();
    if (!file.isEmpty() && Log4Qt::PropertyConfigurator::configure(file))
        return;

    QStringList reasons;
    if (!file.isEmpty()) {
        const auto errors = Log4Qt::ConfiguratorHelper::configureError();
        for (const Log4Qt::LoggingEvent &error : errors)
            reasons.append(error.message());
    }
    // Undoes what the file configured before its mistake.
    Log4Qt::LogManager::resetConfiguration();
    Log4Qt::PropertyConfigurator::configure(defaultProperties());
    if (!file.isEmpty())
        Log4Qt::LogManager::logger(u"queue"_s)
            ->warn(
                u"Файл настроек журнала '%1' не принят, журнал идёт в стандартный вывод: %2"_s.arg(
                    file, reasons.join(u"; "_s)));
}
