#include "log4qt/logger.h"

#include "log4qt/backend.h"
#include "log4qt/loggingevent.h"
#include "log4qt/logmanager.h"

#include <QDateTime>

#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace Log4Qt {

namespace {

/// Stands among the appenders of log4cplus for one of ours.
class Bridge final : public log4cplus::Appender
{
public:
    explicit Bridge(const AppenderSharedPtr &target)
        : target(target)
    {
    }
    ~Bridge() override { destructorImpl(); }
    Bridge(const Bridge &) = delete;
    Bridge &operator=(const Bridge &) = delete;

    void close() override { closed = true; }
    bool isFor(const AppenderSharedPtr &appender) const { return target == appender; }

private:
    void append(const log4cplus::spi::InternalLoggingEvent &event) override
    {
        target->doAppend(LoggingEvent(QString::fromStdString(event.getLoggerName()),
                                      backend::fromLog4cplus(event.getLogLevel()),
                                      QString::fromStdString(event.getMessage())));
    }

    const AppenderSharedPtr target;
};

/// The line of a worker that is still at work while the process ends.
void writeDirectly(const QString &category, Level level, const QString &message)
{
    const QByteArray line =
        u"%1 %2 [%3] %4\n"_s
            .arg(QDateTime::currentDateTime().toString(u"yyyy-MM-dd HH:mm:ss,zzz"_s),
                 level.toString().leftJustified(5), category, message)
            .toUtf8();
    [[maybe_unused]] const ssize_t written =
        ::write(STDOUT_FILENO, line.constData(), static_cast<std::size_t>(line.size()));
}

} // namespace

Logger::Logger(const log4cplus::Logger &logger)
    : logger(new log4cplus::Logger(logger))
{
}

QString Logger::name() const
{
    return QString::fromStdString(logger->getName());
}

Level Logger::level() const
{
    return backend::fromLog4cplus(logger->getLogLevel());
}

void Logger::setLevel(Level level)
{
    logger->setLogLevel(backend::toLog4cplus(level));
    LogManager::updateLevels();
}

Level Logger::effectiveLevel() const
{
    return static_cast<Level::Value>(lowestEnabled.load(std::memory_order_relaxed));
}

bool Logger::additivity() const
{
    return logger->getAdditivity();
}

void Logger::setAdditivity(bool additivity)
{
    logger->setAdditivity(additivity);
}

void Logger::addAppender(const AppenderSharedPtr &appender)
{
    logger->addAppender(log4cplus::SharedAppenderPtr(new Bridge(appender)));
}

void Logger::removeAppender(const AppenderSharedPtr &appender)
{
    for (const log4cplus::SharedAppenderPtr &candidate : logger->getAllAppenders()) {
        const auto *bridge = dynamic_cast<const Bridge *>(candidate.get());
        if (bridge && bridge->isFor(appender))
            logger->removeAppender(candidate);
    }
}

void Logger::forcedLog(Level level, const QString &message) const
{
    backend::Gate &gate = backend::gate();
    const std::shared_lock lock(gate.mutex);
    if (gate.closed)
        writeDirectly(name(), level, message);
    else
        logger->forcedLog(backend::toLog4cplus(level), message.toStdString(), nullptr, -1, nullptr);
}

} // namespace Log4Qt
