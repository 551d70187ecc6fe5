#include "log4qt/logger.h"

#include "log4qt/backend.h"
#include "log4qt/loggingevent.h"
#include "log4qt/logmanager.h"
#include "shared/text/escaping.h"

#include <array>
#include <cstdio>
#include <ctime>
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/nullappender.h>
#include <log4cplus/spi/loggingevent.h>
#include <unistd.h>

namespace Log4Qt {

namespace {

/// Adapts one of our appenders to log4cplus.
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

/// Writes the line of a worker that is still running at process exit. Qt's date functions need
/// objects that are already destroyed then.
void writeDirectly(const std::string &category, Level level, const QString &message)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local = {};
    localtime_r(&now.tv_sec, &local);
    std::array<char, 32> time{};
    std::strftime(time.data(), time.size(), "%Y-%m-%d %H:%M:%S", &local);
    std::array<char, 8> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ",%03d",
                  static_cast<int>(now.tv_nsec / 1'000'000));
    const std::string line = std::string(time.data()) + fraction.data() + ' '
                             + level.toString().leftJustified(5).toStdString() + " [" + category
                             + "] " + escaping::logText(std::string_view(message.toStdString()))
                             + '\n';
    [[maybe_unused]] const ssize_t written = ::write(STDOUT_FILENO, line.data(), line.size());
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
    // log4cplus reports an error for a line without an appender.
    if (!additivity && logger->getAllAppenders().empty())
        logger->addAppender(log4cplus::SharedAppenderPtr(new log4cplus::NullAppender));
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
    // Checked before the lock as well: with a constant stream of readers a writer could wait for
    // ever.
    if (!gate.closed) {
        const std::shared_lock lock(gate.mutex);
        if (!gate.closed) {
            logger->forcedLog(backend::toLog4cplus(level), message.toStdString(), nullptr, -1,
                              nullptr);
            return;
        }
    }
    writeDirectly(logger->getName(), level, message);
}

} // namespace Log4Qt
