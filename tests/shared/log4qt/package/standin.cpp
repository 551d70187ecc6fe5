// Enough to log a scenario: levels, appenders, and a root logger that writes to standard output.
// Two habits of Log4Qt are here too: names of levels are translated, and the end of the process is
// logged.

#include "log4qt/appenderskeleton.h"
#include "log4qt/helpers/configuratorhelper.h"
#include "log4qt/helpers/properties.h"
#include "log4qt/loggingevent.h"
#include "log4qt/logmanager.h"
#include "log4qt/propertyconfigurator.h"

#include <QCoreApplication>
#include <QFile>
#include <QHash>
#include <QMutex>

#include <cstdio>
#include <ctime>

namespace Log4Qt {

namespace {

constexpr std::pair<Level::Value, const char *> levelNames[]{
    {Level::NULL_INT, "NULL"},   {Level::ALL_INT, "ALL"},     {Level::TRACE_INT, "TRACE"},
    {Level::DEBUG_INT, "DEBUG"}, {Level::INFO_INT, "INFO"},   {Level::WARN_INT, "WARN"},
    {Level::ERROR_INT, "ERROR"}, {Level::FATAL_INT, "FATAL"}, {Level::OFF_INT, "OFF"}};

QList<LoggingEvent> lastErrors;

class StandardOutput : public AppenderSkeleton
{
public:
    bool requiresLayout() const override { return true; }

protected:
    void append(const LoggingEvent &event) override
    {
        // Qt's dates are not available at the end of the process.
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        tm local = {};
        localtime_r(&now.tv_sec, &local);
        char time[32];
        std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &local);
        std::printf("%s,%03d %s [%s] %s\n", time, static_cast<int>(now.tv_nsec / 1'000'000),
                    event.level().toString().leftJustified(5).toUtf8().constData(),
                    event.loggerName().toUtf8().constData(), event.message().toUtf8().constData());
        std::fflush(stdout);
    }
};

struct Hierarchy
{
    ~Hierarchy()
    {
        LogManager::logger(QStringLiteral("::LoggerRepository"))
            ->debug(QStringLiteral("Shutting down Hierarchy"));
    }
};

} // namespace

QString Level::toString() const
{
    for (const auto &[known, name] : levelNames) {
        if (known == value)
            return QCoreApplication::translate("Level", name);
    }
    return QString();
}

Level Level::fromString(const QString &level, bool *ok)
{
    for (const auto &[known, name] : levelNames) {
        if (level == QLatin1String(name)) {
            if (ok)
                *ok = true;
            return known;
        }
    }
    if (ok)
        *ok = false;
    return NULL_INT;
}

LoggingEvent::LoggingEvent(const Logger *logger, Level level, const QString &message)
    : QEvent(QEvent::User)
    , eventLevel(level)
    , source(logger)
    , text(message)
{
}

Level LoggingEvent::level() const
{
    return eventLevel;
}
const Logger *LoggingEvent::logger() const
{
    return source;
}
QString LoggingEvent::message() const
{
    return text;
}
QString LoggingEvent::loggerName() const
{
    return source ? source->name() : QString();
}

Appender::Appender(QObject *parent)
    : QObject(parent)
{
}
Appender::~Appender() = default;

AppenderSkeleton::AppenderSkeleton(QObject *parent)
    : Appender(parent)
{
}
QString AppenderSkeleton::name() const
{
    return objectName();
}
void AppenderSkeleton::setName(const QString &name)
{
    setObjectName(name);
}
void AppenderSkeleton::close() {}
void AppenderSkeleton::doAppend(const LoggingEvent &event)
{
    QMutexLocker locker(&mutex);
    append(event);
}

void AppenderAttachable::addAppender(const AppenderSharedPtr &appender)
{
    QWriteLocker locker(&guard);
    appenders.append(appender);
}
void AppenderAttachable::removeAllAppenders()
{
    QWriteLocker locker(&guard);
    appenders.clear();
}
void AppenderAttachable::removeAppender(const AppenderSharedPtr &appender)
{
    QWriteLocker locker(&guard);
    appenders.removeAll(appender);
}
void AppenderAttachable::removeAppender(const QString &name)
{
    QWriteLocker locker(&guard);
    appenders.removeIf([&name](const AppenderSharedPtr &one) { return one->name() == name; });
}

LogError::LogError(const QString &, int) {}

Logger::Logger(Level level, const QString &name, Logger *parent)
    : category(name)
    , above(parent)
    , ownLevel(level)
{
}
Logger::~Logger() = default;
bool Logger::additivity() const
{
    return additive;
}
Level Logger::level() const
{
    return ownLevel;
}
QString Logger::name() const
{
    return category;
}
Logger *Logger::parentLogger() const
{
    return above;
}
void Logger::setAdditivity(bool additivity)
{
    additive = additivity;
}
void Logger::setLevel(Level level)
{
    ownLevel = level;
}

void Logger::callAppenders(const LoggingEvent &event) const
{
    {
        QReadLocker locker(&guard);
        for (const AppenderSharedPtr &appender : appenders)
            appender->doAppend(event);
    }
    if (additive && above)
        above->callAppenders(event);
}

Level Logger::effectiveLevel() const
{
    return ownLevel == Level(Level::NULL_INT) && above ? above->effectiveLevel() : ownLevel;
}
bool Logger::isEnabledFor(Level level) const
{
    return level >= effectiveLevel();
}
void Logger::log(Level level, const QString &message) const
{
    if (isEnabledFor(level))
        callAppenders(LoggingEvent(this, level, message));
}

bool Logger::isTraceEnabled() const
{
    return isEnabledFor(Level::TRACE_INT);
}
LogStream Logger::trace() const
{
    return LogStream();
}
void Logger::trace(const LogError &) const {}
void Logger::trace(const QString &message) const
{
    log(Level::TRACE_INT, message);
}

bool Logger::isDebugEnabled() const
{
    return isEnabledFor(Level::DEBUG_INT);
}
LogStream Logger::debug() const
{
    return LogStream();
}
void Logger::debug(const LogError &) const {}
void Logger::debug(const QString &message) const
{
    log(Level::DEBUG_INT, message);
}

bool Logger::isInfoEnabled() const
{
    return isEnabledFor(Level::INFO_INT);
}
LogStream Logger::info() const
{
    return LogStream();
}
void Logger::info(const LogError &) const {}
void Logger::info(const QString &message) const
{
    log(Level::INFO_INT, message);
}

bool Logger::isWarnEnabled() const
{
    return isEnabledFor(Level::WARN_INT);
}
LogStream Logger::warn() const
{
    return LogStream();
}
void Logger::warn(const LogError &) const {}
void Logger::warn(const QString &message) const
{
    log(Level::WARN_INT, message);
}

bool Logger::isErrorEnabled() const
{
    return isEnabledFor(Level::ERROR_INT);
}
LogStream Logger::error() const
{
    return LogStream();
}
void Logger::error(const LogError &) const {}
void Logger::error(const QString &message) const
{
    log(Level::ERROR_INT, message);
}

bool Logger::isFatalEnabled() const
{
    return isEnabledFor(Level::FATAL_INT);
}
LogStream Logger::fatal() const
{
    return LogStream();
}
void Logger::fatal(const LogError &) const {}
void Logger::fatal(const QString &message) const
{
    log(Level::FATAL_INT, message);
}

Logger *LogManager::rootLogger()
{
    static auto *root = new Logger(Level::DEBUG_INT, QStringLiteral("root"), nullptr);
    static const Hierarchy hierarchy;
    return root;
}

Logger *LogManager::logger(const QString &name)
{
    static QMutex mutex;
    static auto *loggers = new QHash<QString, Logger *>;
    QMutexLocker locker(&mutex);
    Logger *&logger = (*loggers)[name];
    if (!logger)
        logger = new Logger(Level::NULL_INT, name, rootLogger());
    return logger;
}

Logger *LogManager::logLogger()
{
    return logger(QStringLiteral("Log4Qt"));
}

void LogManager::resetConfiguration()
{
    rootLogger()->removeAllAppenders();
    rootLogger()->setLevel(Level::DEBUG_INT);
}

Properties::Properties(Properties *) {}
QString Properties::property(const QString &key) const
{
    return value(key);
}
void Properties::setProperty(const QString &key, const QString &value)
{
    insert(key, value);
}

bool PropertyConfigurator::configure(const Properties &properties)
{
    const QString root = QStringLiteral("log4j.rootLogger");
    const QString logger = QStringLiteral("log4j.logger.");
    LogManager::rootLogger()->setLevel(
        Level::fromString(properties.property(root).section(u',', 0, 0)));
    LogManager::rootLogger()->addAppender(AppenderSharedPtr(new StandardOutput));
    for (auto pair = properties.cbegin(); pair != properties.cend(); ++pair) {
        if (pair.key().startsWith(logger))
            LogManager::logger(pair.key().mid(logger.size()))
                ->setLevel(Level::fromString(pair.value()));
    }
    return true;
}

bool PropertyConfigurator::configure(const QString &configFilename)
{
    QFile file(configFilename);
    if (!file.open(QIODevice::ReadOnly)) {
        lastErrors = {LoggingEvent(LogManager::logLogger(), Level::ERROR_INT,
                                   QStringLiteral("refused ") + configFilename)};
        return false;
    }
    Properties properties;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (const QString &line : lines)
        properties.setProperty(
            line.section(u'=', 0, 0).trimmed().replace(QStringLiteral("\\:"), QStringLiteral(":")),
            line.section(u'=', 1).trimmed());
    return configure(properties);
}

ConfiguratorHelper::ConfiguratorHelper() = default;
void ConfiguratorHelper::doConfigurationFileChanged(const QString &) {}
QList<LoggingEvent> ConfiguratorHelper::configureError()
{
    return lastErrors;
}

} // namespace Log4Qt
