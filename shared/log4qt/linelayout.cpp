#include "log4qt/linelayout.h"

#include <QRegularExpression>

#include <array>
#include <log4cplus/helpers/property.h>
#include <log4cplus/spi/loggingevent.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace Log4Qt::backend {

namespace {

// clang-format off
/// Longer letters first: "MMM" is not "MM" and "M".
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

QString dateConversion(const QString &option)
{
    QString format = option;
    if (format.isEmpty() || format == u"ISO8601")
        format = u"yyyy-MM-dd HH:mm:ss.zzz"_s;
    else if (format == u"ABSOLUTE")
        format = u"HH:mm:ss.zzz"_s;
    else if (format == u"DATE")
        format = u"dd MMM yyyy HH:mm:ss.zzz"_s;
    return u"D{"_s + toStrftime(format) + u'}';
}

/// A pattern of Log4Qt with the conversions of log4cplus. Conversions that name a place in the source
/// vanish: the lines carry none.
QString toLog4cplus(const QString &pattern)
{
    static const QRegularExpression conversion(
        u"%(?<width>-?[0-9]*(?:\\.[0-9]+)?)(?<letter>[A-Za-z%])(?:\\{(?<option>[^}]*)\\})?"_s);
    QString result;
    qsizetype end = 0;
    QRegularExpressionMatchIterator matches = conversion.globalMatch(pattern);
    while (matches.hasNext()) {
        const QRegularExpressionMatch match = matches.next();
        result += QStringView(pattern).sliced(end, match.capturedStart() - end);
        end = match.capturedEnd();
        const QString width = u'%' + match.captured(u"width"_s);
        const QChar letter = match.captured(u"letter"_s).front();
        if (letter == u'd')
            result += width + dateConversion(match.captured(u"option"_s));
        else if (!u"CFLMl"_s.contains(letter))
            result += match.captured();
    }
    return result + pattern.mid(end);
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
{
}

void LineLayout::formatAndAppend(log4cplus::tostream &output,
                                 const log4cplus::spi::InternalLoggingEvent &event)
{
    if (event.getMessage().find('\n') == std::string::npos) {
        log4cplus::PatternLayout::formatAndAppend(output, event);
        return;
    }
    const QByteArray indented =
        QByteArray::fromStdString(event.getMessage()).replace("\n", "\n    ");
    const log4cplus::spi::InternalLoggingEvent copy(
        event.getLoggerName(), event.getLogLevel(), event.getNDC(), event.getMDCCopy(),
        indented.toStdString(), event.getThread(), event.getThread2(), event.getTimestamp(),
        std::string(), -1);
    log4cplus::PatternLayout::formatAndAppend(output, copy);
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
