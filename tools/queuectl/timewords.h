#pragma once

#include <QDateTime>
#include <QString>

namespace queuectl {

/// Which end of a day is meant where a word names a whole day.
enum class DayEnd
{
    /// Its first moment: `since yesterday`, `before today`.
    First,
    /// The first moment after it: `until yesterday` includes all of yesterday.
    Last,
};

/// The time that the operator has typed for `option`, in the till's zone:
///   today, yesterday (сегодня, вчера)  a whole day
///   45min, 2h, 7d (45мин, 2ч, 7д)      that long before `now`
///   2026-11-22                         a whole day
///   14:00                              today
///   2026-11-22 14:00, 2026-11-22T14:00:05+03:00
/// Throws Failure (Usage), which lists these forms.
QDateTime readTime(const QString &option, const QString &word, DayEnd dayEnd,
                   const QDateTime &now = QDateTime::currentDateTime());

/// The span that the operator has typed for `option`, in seconds: 90s, 15m or 15min, 2h, 7d, in
/// Russian 90с, 15м or 15мин, 2ч, 7д. Ten years at most. Throws Failure (Usage), which lists these
/// forms.
qint64 readSpan(const QString &option, const QString &word);

/// A time as JSON has it where milliseconds count: ISO 8601 in the till's zone, with the offset.
QString exactTime(const QDateTime &time);

} // namespace queuectl
