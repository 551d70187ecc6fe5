#include "tests/support/logcapture.h"

#include <log4qt/appenderskeleton.h>
#include <log4qt/logger.h>
#include <log4qt/loggingevent.h>
#include <log4qt/logmanager.h>

#include <mutex>

using namespace Qt::StringLiterals;

/// Holds the lines. An appender belongs to the logging, which may keep it beyond the capture.
class LogCapture::Collector : public Log4Qt::AppenderSkeleton
{
public:
    bool requiresLayout() const override { return false; }

    QStringList lines() const
    {
        const std::lock_guard guard(mutex);
        return collected;
    }

    void clear()
    {
        const std::lock_guard guard(mutex);
        collected.clear();
    }

protected:
    void append(const Log4Qt::LoggingEvent &event) override
    {
        const std::lock_guard guard(mutex);
        collected.append(event.level().toString() + u' ' + event.message());
    }

private:
    mutable std::mutex mutex;
    QStringList collected;
};

struct LogCapture::Attachment
{
    Log4Qt::Logger *logger;
    Log4Qt::Level formerLevel;
    bool formerAdditivity;
    Collector *collector;
    Log4Qt::AppenderSharedPtr appender;
};

LogCapture::LogCapture(const QString &name)
{
    Log4Qt::Logger *logger =
        name.isEmpty() ? Log4Qt::LogManager::rootLogger() : Log4Qt::LogManager::logger(name);
    auto *collector = new Collector;
    attachment =
        std::make_unique<Attachment>(Attachment{logger, logger->level(), logger->additivity(),
                                                collector, Log4Qt::AppenderSharedPtr(collector)});
    logger->addAppender(attachment->appender);
    logger->setAdditivity(false);
    logger->setLevel(Log4Qt::Level::fromString(u"TRACE"_s));
}

LogCapture::~LogCapture()
{
    attachment->logger->setLevel(attachment->formerLevel);
    attachment->logger->setAdditivity(attachment->formerAdditivity);
    attachment->logger->removeAppender(attachment->appender);
}

QStringList LogCapture::lines() const
{
    return attachment->collector->lines();
}

void LogCapture::clear()
{
    attachment->collector->clear();
}
