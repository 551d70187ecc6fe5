#include "tools/queuectl/logsettings.h"

#include "shared/core/paths.h"
#include "tools/queuectl/text.h"

#include <log4qt/helpers/configuratorhelper.h>
#include <log4qt/helpers/properties.h>
#include <log4qt/loggingevent.h>
#include <log4qt/logmanager.h>
#include <log4qt/propertyconfigurator.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

/// The keys that name files: the appender's option may be written in two ways.
bool namesFile(const QString &key)
{
    return key.startsWith(u"log4j.appender."_s) && key.count(u'.') == 3
           && key.section(u'.', 3).compare(u"file"_s, Qt::CaseInsensitive) == 0;
}

/// Replaces `${name}` with another property or an environment variable.
QString resolved(QString value, const Log4Qt::Properties &properties)
{
    // A property that refers to itself would never end.
    for (int i = 0; i < 10; ++i) {
        const qsizetype start = value.indexOf(u"${"_s);
        const qsizetype end = start < 0 ? -1 : value.indexOf(u'}', start);
        if (end < 0)
            break;
        const QString name = value.mid(start + 2, end - start - 2);
        const QString replacement = properties.contains(name)
                                        ? properties.property(name)
                                        : qEnvironmentVariable(name.toLocal8Bit().constData());
        value.replace(start, end - start + 1, replacement);
    }
    return value;
}

} // namespace

QString logFile()
{
    QFile file(logSettingsFile());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    Log4Qt::Properties properties;
    properties.load(&file);
    const QStringList appenders = properties.property(u"log4j.rootLogger"_s).split(u',');
    for (const QString &name : appenders) {
        const QString key = u"log4j.appender."_s + name.trimmed();
        if (!properties.property(key).endsWith(u"FileAppender"_s))
            continue;
        const QString path = properties.property(key + u".file"_s);
        return resolved(path.isEmpty() ? properties.property(key + u".File"_s) : path, properties);
    }
    return {};
}

QString logSettingsFile()
{
    const QString named = qEnvironmentVariable("LOG4QT_CONFIGURATION");
    return named.isEmpty() ? rootedPath(u"/tallocash/cash/queue/config/log4qt.properties"_s)
                           : named;
}

QStringList refusalsOfLogSettings(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {file.errorString()};
    Log4Qt::Properties properties;
    properties.load(&file);
    // The trial writes to other files than the service.
    const QTemporaryDir folder;
    int number = 0;
    const QStringList keys = properties.keys();
    for (const QString &key : keys) {
        if (namesFile(key))
            properties.setProperty(key, folder.filePath(u"%1.log"_s.arg(++number)));
    }
    QStringList reasons;
    if (!Log4Qt::PropertyConfigurator::configure(properties)) {
        const auto errors = Log4Qt::ConfiguratorHelper::configureError();
        for (const Log4Qt::LoggingEvent &error : errors)
            reasons.append(error.message());
        if (reasons.isEmpty())
            reasons.append(text("the reason is not known", "причина неизвестна"));
    }
    // This program logs nothing, whatever the settings say.
    Log4Qt::LogManager::resetConfiguration();
    Log4Qt::Properties silence;
    silence.setProperty(u"log4j.rootLogger"_s, u"ERROR, nowhere"_s);
    silence.setProperty(u"log4j.appender.nowhere"_s, u"org.apache.log4j.NullAppender"_s);
    Log4Qt::PropertyConfigurator::configure(silence);
    return reasons;
}

QStringList logFilesOutOfReach(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    Log4Qt::Properties properties;
    properties.load(&file);
    // ReadWritePaths of the unit, and its private /tmp. A trial with QUEUE_ROOT has no unit.
    const QString root = qEnvironmentVariable("QUEUE_ROOT");
    QStringList reach{u"/tallocash/"_s};
    if (!root.isEmpty())
        reach.append(QDir::cleanPath(root) + u'/');
    QStringList result;
    const QStringList keys = properties.keys();
    for (const QString &key : keys) {
        const QString place = QDir::cleanPath(properties.property(key));
        const bool isReached =
            std::any_of(reach.cbegin(), reach.cend(),
                        [&](const QString &folder) { return place.startsWith(folder); });
        if (namesFile(key) && place.startsWith(u'/') && !isReached)
            result.append(place);
    }
    result.sort();
    return result;
}

} // namespace queuectl
