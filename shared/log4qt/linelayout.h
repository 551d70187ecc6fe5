#pragma once

#include <QString>

#include <ctime>
#include <limits>
#include <log4cplus/layout.h>
#include <string>
#include <string_view>
#include <vector>

/// Internal: the format of log lines.
namespace Log4Qt::backend {

/// A conversion pattern with Log4Qt's conversions. Only the first line of a message begins at the
/// margin; the others are indented, so a line that begins with a time is always the beginning of an
/// event, even if a message quotes log lines. Control and invisible characters are written by
/// number, and a message has at most 64 KiB (shared/text/escaping.h). Log4Qt itself does neither.
///
/// A delivery writes three lines. Patterns with only time, level, category, thread and message are
/// therefore formatted here, in a third of log4cplus's time. All others are left to log4cplus.
/// Thread: the appender's, under its lock.
class LineLayout final : public log4cplus::PatternLayout
{
public:
    explicit LineLayout(const QString &pattern);

    void formatAndAppend(log4cplus::tostream &output,
                         const log4cplus::spi::InternalLoggingEvent &event) override;

private:
    /// One field of a line and its width in bytes.
    struct Field
    {
        enum Kind
        {
            Text,
            Time,
            Level,
            Category,
            Thread,
            Message
        };
        Kind kind = Text;
        /// The literal text, or the time's format for std::put_time.
        std::string text;
        std::size_t least = 0;
        std::size_t most = std::numeric_limits<std::size_t>::max();
        bool isLeftJustified = false;
    };

    static std::vector<Field> fieldsOf(const QString &pattern);
    void appendLine(const log4cplus::spi::InternalLoggingEvent &event, std::string_view message);
    void appendPadded(const Field &field, std::string_view value);
    const std::string &timeOf(const Field &field, const log4cplus::helpers::Time &time);

    /// Empty if log4cplus formats the line.
    const std::vector<Field> fields;
    /// A buffer that is reused for each line.
    std::string line;
    /// The last formatted second, and the field that it was formatted for.
    const Field *lastField = nullptr;
    std::time_t lastSecond = 0;
    std::string lastText;
    /// The positions of its milliseconds.
    std::vector<std::size_t> millisecondPlaces;
};

/// Converts a date format of Qt, such as `yyyy-MM-dd HH:mm:ss.zzz`, to one of log4cplus. Characters
/// between apostrophes are literal.
QString toStrftime(const QString &format);

} // namespace Log4Qt::backend
