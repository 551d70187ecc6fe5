#include "tools/queuectl/timewords.h"

#include "tools/queuectl/failure.h"
#include "tools/queuectl/text.h"

#include <QRegularExpression>
#include <QTimeZone>

#include <optional>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 secondsOfMinute = 60;
constexpr qint64 secondsOfHour = 60 * secondsOfMinute;
/// Ten years; what is longer is a slip of the finger.
constexpr qint64 maxDays = 3653;

QDateTime edgeOf(const QDate &date, DayEnd dayEnd)
{
    // Not midnight: where clocks change at midnight, the day begins later.
    return (dayEnd == DayEnd::First ? date : date.addDays(1)).startOfDay();
}

std::optional<QDateTime> dayOf(const QString &word, DayEnd dayEnd, const QDateTime &now)
{
    if (word == u"today" || word == u"сегодня")
        return edgeOf(now.date(), dayEnd);
    if (word == u"yesterday" || word == u"вчера")
        return edgeOf(now.date().addDays(-1), dayEnd);
    const QDate date = QDate::fromString(word, u"yyyy-MM-dd"_s);
    if (!date.isValid())
        return std::nullopt;
    return edgeOf(date, dayEnd);
}

/// `2h` and its like.
std::optional<QDateTime> spanBefore(const QString &word, const QDateTime &now)
{
    qsizetype digits = 0;
    while (digits < word.size() && word[digits] >= u'0' && word[digits] <= u'9')
        ++digits;
    bool isNumber = false;
    const qint64 number = word.left(digits).toLongLong(&isNumber);
    const QString unit = word.mid(digits);
    if (!isNumber || number < 1)
        return std::nullopt;
    const bool isMinutes = unit == u"min" || unit == u"мин";
    const bool isHours = unit == u"h" || unit == u"ч";
    if (isMinutes && number <= maxDays * 24 * 60)
        return now.addSecs(-number * secondsOfMinute);
    if (isHours && number <= maxDays * 24)
        return now.addSecs(-number * secondsOfHour);
    // By the calendar: a day of a clock change has 23 or 25 hours.
    if ((unit == u"d" || unit == u"д") && number <= maxDays)
        return now.addDays(-number);
    return std::nullopt;
}

std::optional<QDateTime> momentOf(const QString &word, const QDateTime &now)
{
    for (const QString &format : {u"HH:mm"_s, u"HH:mm:ss"_s}) {
        const QTime time = QTime::fromString(word, format);
        if (time.isValid())
            return QDateTime(now.date(), time);
    }
    QString iso = word;
    const qsizetype dateSize = 10;
    if (iso.size() > dateSize && iso[dateSize] == u' ')
        iso[dateSize] = u'T';
    if (iso.size() <= dateSize || iso[dateSize].toUpper() != u'T')
        return std::nullopt;
    const QDateTime time = QDateTime::fromString(iso, Qt::ISODateWithMs);
    if (!time.isValid())
        return std::nullopt;
    return time.toLocalTime();
}

} // namespace

QDateTime readTime(const QString &option, const QString &word, DayEnd dayEnd, const QDateTime &now)
{
    const QString plain = word.trimmed().toLower();
    for (const std::optional<QDateTime> &time :
         {dayOf(plain, dayEnd, now), spanBefore(plain, now), momentOf(word.trimmed(), now)}) {
        if (time && time->isValid())
            return *time;
    }
    throw Failure(
        Usage,
        text(
            "--%1 takes today, yesterday, 45min, 2h, 7d, 2026-11-22, 14:00 or '2026-11-22 14:00', not '%2'",
            "--%1 принимает today, yesterday, 45min, 2h, 7d, 2026-11-22, 14:00 или '2026-11-22 14:00', а не '%2'")
            .arg(option, word));
}

qint64 readSpan(const QString &option, const QString &word)
{
    static const QRegularExpression form(u"^([0-9]{1,9})(s|m|min|h|d|с|м|мин|ч|д)$"_s);
    const QRegularExpressionMatch match = form.match(word.trimmed().toLower());
    const QString unit = match.captured(2);
    qint64 seconds = match.captured(1).toLongLong();
    if (unit == u"d" || unit == u"д")
        seconds *= 24 * secondsOfHour;
    else if (unit == u"h" || unit == u"ч")
        seconds *= secondsOfHour;
    else if (unit.startsWith(u'm') || unit.startsWith(u'м'))
        seconds *= secondsOfMinute;
    if (!match.hasMatch() || seconds < 1 || seconds > maxDays * 24 * secondsOfHour)
        throw Failure(Usage, text("--%1 takes 90s, 15m, 2h or 7d, not '%2'",
                                  "--%1 принимает 90s, 15m, 2h или 7d, а не '%2'")
                                 .arg(option, word));
    return seconds;
}

QString exactTime(const QDateTime &time)
{
    if (!time.isValid())
        return {};
    const QDateTime local = time.toLocalTime();
    return local.toOffsetFromUtc(local.offsetFromUtc()).toString(Qt::ISODateWithMs);
}

} // namespace queuectl
