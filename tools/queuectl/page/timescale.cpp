#include "tools/queuectl/page/timescale.h"

#include "tools/queuectl/text.h"

#include <QLocale>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace queuectl {

namespace {

constexpr qint64 minuteSeconds = 60;
constexpr qint64 hourSeconds = 60 * minuteSeconds;
constexpr qint64 daySeconds = 24 * hourSeconds;
constexpr qint64 mostParts = 60;
constexpr qint64 mostMarks = 8;
/// A text in the middle of its mark needs this much of the width on a telephone.
constexpr double markMargin = 0.05;

/// Lengths that divide a day, so that parts begin at round times.
constexpr qint64 lengths[] = {15 * minuteSeconds, 30 * minuteSeconds, hourSeconds,
                              2 * hourSeconds,    3 * hourSeconds,    6 * hourSeconds,
                              12 * hourSeconds,   daySeconds};

/// The shortest of these lengths, or a number of days, that makes at most `most` parts of the span.
qint64 lengthOf(qint64 span, qint64 most)
{
    for (const qint64 length : lengths) {
        if (span <= length * most)
            return length;
    }
    return (span + most * daySeconds - 1) / (most * daySeconds) * daySeconds;
}

/// The round times after `begin` and before `end`, as the till's clock shows them.
QList<QDateTime> roundTimes(const QDateTime &begin, const QDateTime &end, qint64 length)
{
    QList<QDateTime> times;
    const auto add = [&](const QDateTime &time) {
        // An hour that the clock leaves out would come twice.
        const bool isLater = times.isEmpty() || time > times.last();
        if (time > begin && time < end && isLater)
            times.append(time);
    };
    const qint64 days = std::max<qint64>(1, length / daySeconds);
    for (QDate date = begin.date(); date <= end.date(); date = date.addDays(days)) {
        add(date.startOfDay());
        for (qint64 second = length; second < daySeconds; second += length)
            add(QDateTime(date, QTime::fromMSecsSinceStartOfDay(static_cast<int>(second * 1000))));
    }
    return times;
}

QString markText(const QDateTime &time, qint64 length)
{
    if (length < daySeconds)
        return time.toString(u"HH:mm"_s);
    return isRussian() ? time.toString(u"dd.MM"_s) : QLocale::c().toString(time, u"d MMM"_s);
}

} // namespace

TimeScale::TimeScale(const QDateTime &begin, const QDateTime &end)
{
    const QDateTime last = end > begin ? end : begin.addSecs(minuteSeconds);
    edges.append(begin);
    edges.append(roundTimes(begin, last, lengthOf(begin.secsTo(last), mostParts)));
    edges.append(last);
}

qint64 TimeScale::partSeconds() const
{
    return lengthOf(begin().secsTo(end()), mostParts);
}

int TimeScale::partOf(const QDateTime &time) const
{
    if (!time.isValid() || time < begin() || time >= end())
        return -1;
    const auto next = std::upper_bound(edges.cbegin(), edges.cend(), time);
    return static_cast<int>(next - edges.cbegin()) - 1;
}

double TimeScale::position(const QDateTime &time) const
{
    const auto whole = static_cast<double>(begin().msecsTo(end()));
    return std::clamp(static_cast<double>(begin().msecsTo(time)) / whole, 0.0, 1.0);
}

QList<TimeScale::Mark> TimeScale::marks() const
{
    const qint64 length = lengthOf(begin().secsTo(end()), mostMarks);
    QList<Mark> marks;
    const QList<QDateTime> times = roundTimes(begin(), end(), length);
    for (const QDateTime &time : times) {
        const double place = position(time);
        if (place >= markMargin && place <= 1 - markMargin)
            marks.append({place, markText(time, length)});
    }
    return marks;
}

} // namespace queuectl
