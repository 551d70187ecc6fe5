#include "tests/support/logcapture.h"

#include <log4qt/appenderskeleton.h>
#include <log4qt/logger.h>
#include <log4qt/loggingevent.h>
#include <log4qt/logmanager.h>

#include <mutex>

using namespace Qt::StringLiterals;

namespace {

/// Log4Qt gives the name of a level in the language of the user.
QString nameOf(Log4Qt::Level level)
{
    switch (level.toInt()) {
    case Log4Qt::Level::TRACE_INT:
        return u"TRACE"_s;
    case Log4Qt::Level::DEBUG_INT:
        return u"DEBUG"_s;
    case Log4Qt::Level::INFO_INT:
        return u"INFO"_s;
    case Log4Qt::Level::WARN_INT:
        return u"WARN"_s;
    case Log4Qt::Level::ERROR_INT:
        return u"ERROR"_s;
    default:
        return QString::number(level.toInt());
    }
}

} // namespace

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
        // Messages of Log4Qt about itself.
        if (event.loggerName().startsWith(u"::"_s))
            return;
        const std::lock_guard guard(mutex);
        collected.append(nameOf(event.level()) + u' ' + event.message());
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
    logger->setLevel(Log4Qt::Level(Log4Qt::Level::TRACE_INT));
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
