#include "log4qt/linelayout.h"

#include "shared/text/escaping.h"

#include <QRegularExpression>

#include <algorithm>
#include <array>
#include <iomanip>
#include <log4cplus/helpers/property.h>
#include <log4cplus/helpers/timehelper.h>
#include <log4cplus/loglevel.h>
#include <log4cplus/spi/loggingevent.h>
#include <sstream>
#include <utility>

using namespace Qt::StringLiterals;

namespace Log4Qt::backend {

namespace {

// clang-format off
/// Longest first, so that "MMM" is not read as "MM" and "M".
constexpr std::array dateTokens{
    std::pair{"yyyy"_L1, "%Y"_L1}, std::pair{"yy"_L1, "%y"_L1},
    std::pair{"MMMM"_L1, "%B"_L1}, std::pair{"MMM"_L1, "%b"_L1},
    std::pair{"MM"_L1, "%m"_L1},   std::pair{"M"_L1, "%m"_L1},
    std::pair{"dddd"_L1, "%A"_L1}, std::pair{"ddd"_L1, "%a"_L1},
    std::pair{"dd"_L1, "%d"_L1},   std::pair{"d"_L1, "%d"_L1},
    std::pair{"EEEE"_L1, "%A"_L1}, std::pair{"EEE"_L1, "%a"_L1},
    std::pair{"HH"_L1, "%H"_L1},   std::pair{"H"_L1, "%H"_L1},
    std::pair{"hh"_L1, "%H"_L1},   std::pair{"h"_L1, "%H"_L1},
    std::pair{"mm"_L1, "%M"_L1},   std::pair{"m"_L1, "%M"_L1},
    std::pair{"ss"_L1, "%S"_L1},   std::pair{"s"_L1, "%S"_L1},
    std::pair{"zzz"_L1, "%q"_L1},  std::pair{"SSS"_L1, "%q"_L1},
    std::pair{"ww"_L1, "%W"_L1},   std::pair{"ap"_L1, "%p"_L1},
    std::pair{"AP"_L1, "%p"_L1},   std::pair{"t"_L1, "%Z"_L1},
};
// clang-format on

/// The time format of a `%d`, in the conversions of log4cplus.
QString timeFormat(const QString &option)
{
    QString format = option;
    if (format.isEmpty() || format == u"ISO8601")
        format = u"yyyy-MM-dd HH:mm:ss,zzz"_s;
    else if (format == u"ABSOLUTE")
        format = u"HH:mm:ss,zzz"_s;
    else if (format == u"DATE")
        format = u"dd MMM yyyy HH:mm:ss,zzz"_s;
    return toStrftime(format);
}

/// A placeholder of three characters; the standard library does not format milliseconds.
constexpr std::string_view millisecondsMark = "\1\1\1";

std::string withMillisecondsMarked(std::string format)
{
    for (std::size_t at = format.find('%'); at != std::string::npos;
         at = format.find('%', at + 2)) {
        if (format.compare(at, 2, "%q") == 0)
            format.replace(at, 2, millisecondsMark);
    }
    return format;
}

/// One conversion of a pattern, or the text between two.
struct Piece
{
    /// Null for text.
    QChar letter;
    QString width;
    QString option;
    QString whole;
};

QList<Piece> pieces(const QString &pattern)
{
    static const QRegularExpression conversion(
        u"%(?<width>-?[0-9]*(?:\\.[0-9]+)?)(?<letter>[A-Za-z%])(?:\\{(?<option>[^}]*)\\})?"_s);
    QList<Piece> result;
    qsizetype end = 0;
    QRegularExpressionMatchIterator matches = conversion.globalMatch(pattern);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        if (match.capturedStart() > end)
            result.append({QChar(), {}, {}, pattern.sliced(end, match.capturedStart() - end)});
        end = match.capturedEnd();
        const QChar letter = match.captured(u"letter"_s).front();
        // Conversions for the source location are dropped: lines have none.
        if (!u"CFLMl"_s.contains(letter))
            result.append({letter, match.captured(u"width"_s), match.captured(u"option"_s),
                           match.captured()});
    }
    if (end < pattern.size())
        result.append({QChar(), {}, {}, pattern.mid(end)});
    return result;
}

/// Converts a pattern of Log4Qt to one of log4cplus.
QString toLog4cplus(const QString &pattern)
{
    QString result;
    const QList<Piece> all = pieces(pattern);
    for (const Piece &piece : all) {
        if (piece.letter == u'd')
            result += u'%' + piece.width + u"D{"_s + timeFormat(piece.option) + u'}';
        else
            result += piece.whole;
    }
    return result;
}

log4cplus::helpers::Properties patternProperties(const QString &pattern)
{
    log4cplus::helpers::Properties properties;
    properties.setProperty("ConversionPattern", toLog4cplus(pattern).toStdString());
    return properties;
}

} // namespace

LineLayout::LineLayout(const QString &pattern)
    : log4cplus::PatternLayout(patternProperties(pattern))
    , fields(fieldsOf(pattern))
{
}

void LineLayout::formatAndAppend(log4cplus::tostream &output,
                                 const log4cplus::spi::InternalLoggingEvent &event)
{
    const std::string message = escaping::logText(std::string_view(event.getMessage()));
    if (!fields.empty()) {
        line.clear();
        appendLine(event, message);
        output.write(line.data(), static_cast<std::streamsize>(line.size()));
    } else {
        const log4cplus::spi::InternalLoggingEvent copy(
            event.getLoggerName(), event.getLogLevel(), event.getNDC(), event.getMDCCopy(), message,
            event.getThread(), event.getThread2(), event.getTimestamp(), std::string(), -1);
        log4cplus::PatternLayout::formatAndAppend(output, copy);
    }
}

/// Empty if the pattern has a conversion that only log4cplus supports.
std::vector<LineLayout::Field> LineLayout::fieldsOf(const QString &pattern)
{
    std::vector<Field> result;
    const QList<Piece> all = pieces(pattern);
    for (const Piece &piece : all) {
        Field field;
        if (piece.letter.isNull()) {
            field.text = piece.whole.toStdString();
        } else if (piece.letter == u'n') {
            field.text = "\n";
        } else if (piece.letter == u'd') {
            field.kind = Field::Time;
            field.text = withMillisecondsMarked(timeFormat(piece.option).toStdString());
        } else if (!piece.option.isEmpty()) {
            return {};
        } else if (piece.letter == u'p') {
            field.kind = Field::Level;
        } else if (piece.letter == u'c') {
            field.kind = Field::Category;
        } else if (piece.letter == u't') {
            field.kind = Field::Thread;
        } else if (piece.letter == u'm') {
            field.kind = Field::Message;
        } else {
            return {};
        }
        field.isLeftJustified = piece.width.startsWith(u'-');
        const QString least = piece.width.mid(field.isLeftJustified ? 1 : 0).section(u'.', 0, 0);
        const QString most = piece.width.section(u'.', 1);
        field.least = least.toUInt();
        if (!most.isEmpty())
            field.most = most.toUInt();
        result.push_back(field);
    }
    return result;
}

void LineLayout::appendLine(const log4cplus::spi::InternalLoggingEvent &event,
                            std::string_view message)
{
    for (const Field &field : fields) {
        switch (field.kind) {
        case Field::Text:
            line += field.text;
            break;
        case Field::Time:
            appendPadded(field, timeOf(field, event.getTimestamp()));
            break;
        case Field::Level:
            appendPadded(field, log4cplus::getLogLevelManager().toString(event.getLogLevel()));
            break;
        case Field::Category:
            appendPadded(field, event.getLoggerName());
            break;
        case Field::Thread:
            appendPadded(field, event.getThread());
            break;
        case Field::Message:
            appendPadded(field, message);
            break;
        }
    }
}

/// As in log4cplus, a value that is too long loses its beginning and is not padded.
void LineLayout::appendPadded(const Field &field, std::string_view value)
{
    if (value.size() > field.most) {
        line += value.substr(value.size() - field.most);
        return;
    }
    const std::size_t padding = field.least > value.size() ? field.least - value.size() : 0;
    if (!field.isLeftJustified)
        line.append(padding, ' ');
    line += value;
    if (field.isLeftJustified)
        line.append(padding, ' ');
}

const std::string &LineLayout::timeOf(const Field &field, const log4cplus::helpers::Time &time)
{
    const std::time_t second = log4cplus::helpers::to_time_t(time);
    if (&field != lastField || second != lastSecond) {
        std::tm local = {};
        localtime_r(&second, &local);
        std::ostringstream text;
        text << std::put_time(&local, field.text.c_str());
        lastText = text.str();
        lastField = &field;
        lastSecond = second;
        millisecondPlaces.clear();
        for (std::size_t at = lastText.find(millisecondsMark); at != std::string::npos;
             at = lastText.find(millisecondsMark, at))
            millisecondPlaces.push_back(at++);
    }
    const long milliseconds = log4cplus::helpers::microseconds_part(time) / 1000;
    for (const std::size_t at : millisecondPlaces) {
        lastText[at] = static_cast<char>('0' + milliseconds / 100);
        lastText[at + 1] = static_cast<char>('0' + milliseconds / 10 % 10);
        lastText[at + 2] = static_cast<char>('0' + milliseconds % 10);
    }
    return lastText;
}

QString toStrftime(const QString &format)
{
    QString result;
    bool isQuoted = false;
    for (qsizetype at = 0; at < format.size();) {
        const QStringView rest = QStringView(format).mid(at);
        if (rest.front() == u'\'') {
            const bool isDoubled = rest.startsWith("''"_L1);
            if (isDoubled)
                result += u'\'';
            else
                isQuoted = !isQuoted;
            at += isDoubled ? 2 : 1;
            continue;
        }
        const auto *token = dateTokens.end();
        if (!isQuoted)
            token = std::find_if(dateTokens.begin(), dateTokens.end(),
                                 [rest](const auto &pair) { return rest.startsWith(pair.first); });
        if (token != dateTokens.end()) {
            result += token->second;
            at += token->first.size();
            continue;
        }
        result += rest.front() == u'%' ? u"%%"_s : QString(rest.front());
        ++at;
    }
    return result;
}

} // namespace Log4Qt::backend
