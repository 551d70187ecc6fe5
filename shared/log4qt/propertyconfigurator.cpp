#include "log4qt/propertyconfigurator.h"

#include "log4qt/backend.h"
#include "log4qt/helpers/configuratorhelper.h"
#include "log4qt/helpers/properties.h"
#include "log4qt/linelayout.h"
#include "log4qt/logmanager.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>

#include <log4cplus/consoleappender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/helpers/property.h>
#include <log4cplus/helpers/timehelper.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>
#include <map>

using namespace Qt::StringLiterals;

namespace Log4Qt {

namespace {

/// log4cplus's minimum; it raises smaller sizes.
constexpr qint64 smallestRollingSize = 200 * 1024;

/// The name without a namespace: `org.apache.log4j.ConsoleAppender` and `Log4Qt::ConsoleAppender`
/// are the same class.
QString bareClass(const QString &name)
{
    for (const auto prefix :
         {"org.apache.log4j.varia."_L1, "org.apache.log4j."_L1, "Log4Qt::"_L1}) {
        if (name.startsWith(prefix))
            return name.mid(prefix.size());
    }
    return name;
}

bool isTrue(const QString &text)
{
    return text.compare(u"true", Qt::CaseInsensitive) == 0
           || text.compare(u"enabled", Qt::CaseInsensitive) == 0 || text == u"1";
}

/// The size in bytes of a text like "10MB"; -1 for any other text.
qint64 sizeFromText(const QString &text)
{
    QString digits = text.trimmed().toUpper();
    qint64 unit = 1;
    for (const auto &[suffix, factor] :
         {std::pair{"KB"_L1, 1 << 10}, std::pair{"MB"_L1, 1 << 20}, std::pair{"GB"_L1, 1 << 30}}) {
        if (digits.endsWith(suffix)) {
            digits.chop(suffix.size());
            unit = factor;
        }
    }
    bool isNumber = false;
    const qint64 value = digits.trimmed().toLongLong(&isNumber);
    return isNumber && value > 0 && value <= (1LL << 40) / unit ? value * unit : -1;
}

/// The interval at which a file with this pattern is rolled: the pattern's shortest unit.
std::string scheduleOf(const QString &strftime)
{
    if (strftime.contains(u"%M"))
        return "MINUTELY";
    if (strftime.contains(u"%H"))
        return "HOURLY";
    if (strftime.contains(u"%p"))
        return "TWICE_DAILY";
    if (strftime.contains(u"%d") || strftime.contains(u"%a") || strftime.contains(u"%A"))
        return "DAILY";
    if (strftime.contains(u"%W"))
        return "WEEKLY";
    return "MONTHLY";
}

QString dateSuffix(const QDateTime &time, const std::string &strftime)
{
    return u'.'
           + QString::fromStdString(log4cplus::helpers::getFormattedTime(
               strftime, log4cplus::helpers::from_time_t(time.toSecsSinceEpoch()), false));
}

/// log4cplus rolls only at the full hour, but tills are off at night. So a file of an earlier day
/// is rolled when the service starts.
void rollOldFile(const QString &path, const std::string &strftime)
{
    const QFileInfo file(path);
    if (!file.exists() || file.size() == 0)
        return;
    const QString then = dateSuffix(file.lastModified(), strftime);
    if (then != dateSuffix(QDateTime::currentDateTime(), strftime) && !QFile::exists(path + then))
        QFile::rename(path, path + then);
}

} // namespace

/// Reads the properties into a plan, and carries out the plan only if it has no errors.
class Configurator
{
public:
    explicit Configurator(const Properties &properties)
        : properties(properties)
    {
    }

    bool configure();

    QStringList errors;
    QStringList warnings;

private:
    struct LoggerPlan
    {
        QString category; // empty for the root logger
        std::optional<Level> level;
        std::optional<bool> additivity;
        QStringList appenders;
    };

    void readLogger(const QString &key, const QString &category);
    void readLoggers();
    log4cplus::SharedAppenderPtr makeAppender(const QString &name);
    log4cplus::SharedAppenderPtr makeFileAppender(const QString &prefix, const QString &kind);
    std::unique_ptr<log4cplus::Layout> makeLayout(const QString &prefix);
    void apply(const LoggerPlan &plan);

    QString take(const QString &key);
    QString takeOption(const QString &prefix, const QString &name);
    Level takeLevel(const QString &key);
    bool prepareFile(const QString &key, const QString &path);
    void warnOfUnknown();

    const Properties &properties;
    QSet<QString> taken;
    QList<LoggerPlan> plans;
    std::map<QString, log4cplus::SharedAppenderPtr> appenders;
};

bool Configurator::configure()
{
    readLoggers();
    for (const LoggerPlan &plan : std::as_const(plans)) {
        for (const QString &name : plan.appenders) {
            if (!appenders.contains(name))
                appenders[name] = makeAppender(name);
        }
    }
    Level threshold = Level::ALL_INT;
    if (properties.contains(u"log4j.threshold"_s))
        threshold = takeLevel(u"log4j.threshold"_s);
    if (!errors.isEmpty())
        return false;

    for (const LoggerPlan &plan : std::as_const(plans))
        apply(plan);
    LogManager::setThreshold(threshold);
    warnOfUnknown();
    return true;
}

void Configurator::readLoggers()
{
    const QString rootKey = properties.contains(u"log4j.rootLogger"_s) ? u"log4j.rootLogger"_s
                                                                       : u"log4j.rootCategory"_s;
    if (properties.contains(rootKey))
        readLogger(rootKey, QString());
    else
        errors.append(u"нет свойства log4j.rootLogger"_s);

    QStringList keys = properties.keys();
    keys.sort();
    for (const QString &key : std::as_const(keys)) {
        for (const auto prefix : {"log4j.logger."_L1, "log4j.category."_L1}) {
            if (key.startsWith(prefix))
                readLogger(key, key.mid(prefix.size()));
        }
    }
    for (const QString &key : std::as_const(keys)) {
        constexpr auto prefix = "log4j.additivity."_L1;
        if (!key.startsWith(prefix))
            continue;
        LoggerPlan plan;
        plan.category = key.mid(prefix.size());
        plan.additivity = isTrue(take(key));
        const auto known =
            std::find_if(plans.begin(), plans.end(), [&plan](const LoggerPlan &candidate) {
                return candidate.category == plan.category;
            });
        if (known != plans.end())
            known->additivity = plan.additivity;
        else
            plans.append(plan);
    }
}

void Configurator::readLogger(const QString &key, const QString &category)
{
    LoggerPlan plan;
    plan.category = category;
    QStringList entries = take(key).split(u',');
    for (QString &entry : entries)
        entry = entry.trimmed();

    const QString level = entries.takeFirst();
    const bool isInherited = level.compare(u"INHERITED", Qt::CaseInsensitive) == 0
                             || level.compare(u"NULL", Qt::CaseInsensitive) == 0;
    if (isInherited && !category.isEmpty()) {
        plan.level = Level(Level::NULL_INT);
    } else if (!level.isEmpty()) {
        bool isLevel = false;
        plan.level = Level::fromString(level, &isLevel);
        if (!isLevel || isInherited)
            errors.append(u"%1: неизвестный уровень '%2'"_s.arg(key, level));
    }
    entries.removeAll(QString());
    plan.appenders = entries;
    plans.append(plan);
}

log4cplus::SharedAppenderPtr Configurator::makeAppender(const QString &name)
{
    const QString key = u"log4j.appender."_s + name;
    if (!properties.contains(key)) {
        errors.append(u"нет свойства %1"_s.arg(key));
        return log4cplus::SharedAppenderPtr();
    }
    const QString className = take(key);
    const QString kind = bareClass(className);
    const QString prefix = key + u'.';

    log4cplus::SharedAppenderPtr appender;
    if (kind == u"ConsoleAppender") {
        const QString target = takeOption(prefix, u"target"_s);
        const bool isError = target == u"STDERR_TARGET" || target == u"System.err";
        if (!target.isEmpty() && !isError && target != u"STDOUT_TARGET" && target != u"System.out")
            errors.append(u"%1target: неизвестное значение '%2'"_s.arg(prefix, target));
        takeOption(prefix, u"immediateFlush"_s);
        // Flushed after each line: a line in a buffer is lost when the process is killed.
        appender = new log4cplus::ConsoleAppender(isError, true);
    } else if (kind == u"NullAppender") {
        appender = new log4cplus::NullAppender;
    } else if (kind == u"FileAppender" || kind == u"RollingFileAppender"
               || kind == u"DailyRollingFileAppender") {
        appender = makeFileAppender(prefix, kind);
    } else {
        errors.append(u"%1: неизвестный класс '%2'"_s.arg(key, className));
    }
    const bool needsLayout = kind != u"NullAppender";
    std::unique_ptr<log4cplus::Layout> layout;
    if (needsLayout)
        layout = makeLayout(prefix);
    if (!takeOption(prefix, u"threshold"_s).isEmpty() && appender)
        appender->setThreshold(backend::toLog4cplus(takeLevel(prefix + u"threshold"_s)));
    const QString encoding = takeOption(prefix, u"encoding"_s);
    if (!encoding.isEmpty() && encoding.compare(u"UTF-8", Qt::CaseInsensitive) != 0)
        warnings.append(u"%1encoding: журнал пишется в UTF-8, а не в '%2'"_s.arg(prefix, encoding));
    if (!appender || (needsLayout && !layout))
        return log4cplus::SharedAppenderPtr();
    if (layout)
        appender->setLayout(std::move(layout));
    appender->setName(name.toStdString());
    return appender;
}

log4cplus::SharedAppenderPtr Configurator::makeFileAppender(const QString &prefix,
                                                            const QString &kind)
{
    const QString path = takeOption(prefix, u"file"_s);
    if (path.isEmpty()) {
        errors.append(u"нет свойства %1file"_s.arg(prefix));
        return log4cplus::SharedAppenderPtr();
    }
    QString append = takeOption(prefix, u"appendFile"_s);
    if (append.isNull())
        append = takeOption(prefix, u"append"_s);
    const QString flush = takeOption(prefix, u"immediateFlush"_s);
    takeOption(prefix, u"bufferedIO"_s);

    log4cplus::helpers::Properties options;
    options.setProperty("File", QFile::encodeName(path).toStdString());
    options.setProperty("Append", append.isNull() || isTrue(append) ? "true" : "false");
    options.setProperty("ImmediateFlush", flush.isNull() || isTrue(flush) ? "true" : "false");

    if (kind == u"RollingFileAppender") {
        const QString sizeKey = properties.contains(prefix + u"maximumFileSize"_s)
                                    ? u"maximumFileSize"_s
                                    : u"maxFileSize"_s;
        const QString text = takeOption(prefix, sizeKey);
        qint64 size = text.isNull() ? 10 * 1024 * 1024 : sizeFromText(text);
        if (size < 0)
            errors.append(u"%1%2: неизвестный размер '%3'"_s.arg(prefix, sizeKey, text));
        else if (size < smallestRollingSize)
            warnings.append(
                u"%1%2: наименьший размер 200KB взят вместо '%3'"_s.arg(prefix, sizeKey, text));
        size = std::max(size, smallestRollingSize);
        const QString countText = takeOption(prefix, u"maxBackupIndex"_s);
        bool isCount = true;
        const int count = countText.isNull() ? 1 : countText.toInt(&isCount);
        if (!isCount || count < 0)
            errors.append(u"%1maxBackupIndex: неизвестное число '%2'"_s.arg(prefix, countText));
        options.setProperty("MaxFileSize", std::to_string(size));
        options.setProperty("MaxBackupIndex", std::to_string(count));
    }
    std::string pattern;
    if (kind == u"DailyRollingFileAppender") {
        QString text = takeOption(prefix, u"datePattern"_s);
        if (text.isEmpty())
            text = u"'.'yyyy-MM-dd"_s;
        QString strftime = backend::toStrftime(text);
        // log4cplus adds the dot itself.
        if (strftime.startsWith(u'.'))
            strftime.remove(0, 1);
        if (!strftime.contains(u'%') || strftime.contains(u'/'))
            errors.append(u"%1datePattern: неизвестный образец '%2'"_s.arg(prefix, text));
        pattern = strftime.toStdString();
        options.setProperty("DatePattern", pattern);
        options.setProperty("Schedule", scheduleOf(strftime));
        options.setProperty("RollOnClose", "false");
    }
    if (!errors.isEmpty() || !prepareFile(prefix + u"file"_s, path))
        return log4cplus::SharedAppenderPtr();
    if (kind == u"RollingFileAppender")
        return log4cplus::SharedAppenderPtr(new log4cplus::RollingFileAppender(options));
    if (kind == u"DailyRollingFileAppender") {
        rollOldFile(path, pattern);
        return log4cplus::SharedAppenderPtr(new log4cplus::DailyRollingFileAppender(options));
    }
    return log4cplus::SharedAppenderPtr(new log4cplus::FileAppender(options));
}

/// Creates the folder and tries to open the file, since log4cplus reports errors only on standard
/// error.
bool Configurator::prepareFile(const QString &key, const QString &path)
{
    const QString folder = QFileInfo(path).path();
    QFile file(path);
    const bool isNew = !file.exists();
    if (!QDir().mkpath(folder)) {
        errors.append(u"%1: не удалось создать каталог '%2'"_s.arg(key, folder));
        return false;
    }
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append)) {
        errors.append(u"%1: не удалось открыть файл '%2': %3"_s.arg(key, path, file.errorString()));
        return false;
    }
    if (isNew)
        file.remove();
    return true;
}

std::unique_ptr<log4cplus::Layout> Configurator::makeLayout(const QString &prefix)
{
    const QString key = prefix + u"layout"_s;
    if (!properties.contains(key)) {
        errors.append(u"нет свойства %1"_s.arg(key));
        return {};
    }
    const QString className = take(key);
    const QString kind = bareClass(className);
    const QString options = key + u'.';
    QString pattern;
    if (kind == u"PatternLayout") {
        pattern = takeOption(options, u"conversionPattern"_s);
        if (pattern.isEmpty())
            pattern = u"%m%n"_s;
    } else if (kind == u"SimpleLayout") {
        pattern = u"%p - %m%n"_s;
    } else if (kind == u"TTCCLayout") {
        const auto isOn = [this, &options](const QString &name) {
            const QString value = takeOption(options, name);
            return value.isNull() || isTrue(value);
        };
        const QString date = takeOption(options, u"dateFormat"_s);
        pattern = date.isEmpty() || date == u"RELATIVE" ? u"%r"_s : u"%d{"_s + date + u'}';
        pattern += isOn(u"threadPrinting"_s) ? u" [%t] %p"_s : u" %p"_s;
        pattern += isOn(u"categoryPrefixing"_s) ? u" %c"_s : u""_s;
        pattern += isOn(u"contextPrinting"_s) ? u" %x"_s : u""_s;
        pattern += u" - %m%n"_s;
    } else {
        errors.append(u"%1: неизвестный класс '%2'"_s.arg(key, className));
        return {};
    }
    return std::make_unique<backend::LineLayout>(pattern);
}

void Configurator::apply(const LoggerPlan &plan)
{
    Logger *logger =
        plan.category.isEmpty() ? LogManager::rootLogger() : LogManager::logger(plan.category);
    if (plan.level)
        logger->setLevel(*plan.level);
    if (plan.additivity)
        logger->setAdditivity(*plan.additivity);
    for (const QString &name : plan.appenders)
        logger->logger->addAppender(appenders.at(name));
}

/// The value of `key` with its references replaced; null without the key.
QString Configurator::take(const QString &key)
{
    if (!properties.contains(key))
        return {};
    taken.insert(key);
    QString value = properties.property(key);
    qsizetype from = 0;
    // The limit stops a reference to itself.
    for (int count = 0; count < 32; ++count) {
        const qsizetype start = value.indexOf(u"${"_s, from);
        const qsizetype end = value.indexOf(u'}', start);
        if (start < 0 || end < 0)
            break;
        const QString name = value.sliced(start + 2, end - start - 2);
        const QString replacement = properties.contains(name)
                                        ? properties.property(name)
                                        : qEnvironmentVariable(name.toUtf8().constData());
        taken.insert(name);
        value.replace(start, end - start + 1, replacement);
        from = properties.contains(name) ? start : start + replacement.size();
    }
    return value.isNull() ? u""_s : value;
}

/// An option's name may begin with a capital.
QString Configurator::takeOption(const QString &prefix, const QString &name)
{
    const QString capital = name.front().toUpper() + name.mid(1);
    for (const QString &spelling : {name, capital}) {
        if (properties.contains(prefix + spelling))
            return take(prefix + spelling);
    }
    return {};
}

Level Configurator::takeLevel(const QString &key)
{
    const qsizetype name = key.lastIndexOf(u'.') + 1;
    const QString text = takeOption(key.left(name), key.mid(name));
    bool isLevel = false;
    const Level level = Level::fromString(text, &isLevel);
    if (!isLevel || level == Level(Level::NULL_INT))
        errors.append(u"%1: неизвестный уровень '%2'"_s.arg(key, text));
    return level;
}

void Configurator::warnOfUnknown()
{
    // Properties of Log4Qt that the service does not use.
    static const QSet<QString> unused{u"log4j.reset"_s,         u"log4j.Debug"_s,
                                      u"log4j.configDebug"_s,   u"log4j.watchThisFile"_s,
                                      u"log4j.filterRules"_s,   u"log4j.handleQtMessages"_s,
                                      u"log4j.messagePattern"_s};
    QStringList keys = properties.keys();
    keys.sort();
    for (const QString &key : std::as_const(keys)) {
        if (key.startsWith(u"log4j."_s) && !taken.contains(key) && !unused.contains(key))
            warnings.append(u"неизвестное свойство %1"_s.arg(key));
    }
}

namespace {

bool configureFrom(const Properties &properties, const QString &source)
{
    Configurator configurator(properties);
    const bool isDone = configurator.configure();
    QList<LoggingEvent> errors;
    for (const QString &error : std::as_const(configurator.errors))
        errors.append(LoggingEvent(u"Log4Qt"_s, Level::ERROR_INT, error));
    ConfiguratorHelper::setConfigureError(errors);
    if (isDone) {
        for (const QString &warning : std::as_const(configurator.warnings))
            LogManager::logLogger()->warn(u"Файл настроек журнала '%1': %2"_s.arg(source, warning));
    }
    return isDone;
}

} // namespace

bool PropertyConfigurator::configure(const Properties &properties)
{
    return configureFrom(properties, u"по умолчанию"_s);
}

bool PropertyConfigurator::configure(const QString &configFilename)
{
    QFile file(configFilename);
    if (!file.open(QIODevice::ReadOnly)) {
        ConfiguratorHelper::setConfigureError(
            {LoggingEvent(u"Log4Qt"_s, Level::ERROR_INT, file.errorString())});
        return false;
    }
    Properties properties;
    properties.load(&file);
    return configureFrom(properties, configFilename);
}

} // namespace Log4Qt
