#pragma once

#include <QString>

#include <log4cplus/layout.h>

/// How lines look. Known to the slice's own files only.
namespace Log4Qt::backend {

/// A conversion pattern with the conversions of Log4Qt. Lines of a message behind its first one are
/// indented, so that a line which begins with a time is always the beginning of an event, whatever
/// a message quotes.
class LineLayout final : public log4cplus::PatternLayout
{
public:
    explicit LineLayout(const QString &pattern);

    void formatAndAppend(log4cplus::tostream &output,
                         const log4cplus::spi::InternalLoggingEvent &event) override;
};

/// A date format of Qt, such as `yyyy-MM-dd HH:mm:ss.zzz`, with the conversions of log4cplus. Letters
/// between apostrophes stand for themselves.
QString toStrftime(const QString &format);

} // namespace Log4Qt::backend
