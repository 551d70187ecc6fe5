#pragma once

#include <QString>

#include <ctime>
#include <limits>
#include <log4cplus/layout.h>
#include <string>
#include <string_view>
#include <vector>

/// How lines look. Known to the slice's own files only.
namespace Log4Qt::backend {

/// A conversion pattern with the conversions of Log4Qt. Lines of a message after its first one are
/// indented, so that a line which begins with a time is always the beginning of an event, whatever
/// a message quotes. Control and invisible characters appear by their numbers, and a message has 64
/// KiB at most (shared/text/escaping.h). Log4Qt itself writes messages as they are.
///
/// A delivery writes three lines, so patterns of nothing but time, level, category, thread and
/// message are filled in here, at a third of what the library takes. All others are left to it.
/// Thread: that of the appender, which calls under its lock.
class LineLayout final : public log4cplus::PatternLayout
{
public:
    explicit LineLayout(const QString &pattern);

    void formatAndAppend(log4cplus::tostream &output,
                         const log4cplus::spi::InternalLoggingEvent &event) override;

private:
    /// One piece of a line, and the room it gets, in bytes.
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
        /// What stands there, or the format of the time as std::put_time takes it.
        std::string text;
        std::size_t least = 0;
        std::size_t most = std::numeric_limits<std::size_t>::max();
        bool isLeftJustified = false;
    };

    static std::vector<Field> fieldsOf(const QString &pattern);
    void appendLine(const log4cplus::spi::InternalLoggingEvent &event, std::string_view message);
    void appendPadded(const Field &field, std::string_view value);
    const std::string &timeOf(const Field &field, const log4cplus::helpers::Time &time);

    /// Empty where the library has to fill the line in.
    const std::vector<Field> fields;
    /// Room that is used again and again.
    std::string line;
    /// The last second that was written out, by the field that asked.
    const Field *lastField = nullptr;
    std::time_t lastSecond = 0;
    std::string lastText;
    /// Where its milliseconds stand.
    std::vector<std::size_t> millisecondPlaces;
};

/// A date format of Qt, such as `yyyy-MM-dd HH:mm:ss.zzz`, with the conversions of log4cplus.
/// Letters between apostrophes stand for themselves.
QString toStrftime(const QString &format);

} // namespace Log4Qt::backend
