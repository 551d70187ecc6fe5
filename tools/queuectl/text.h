#pragma once

#include <QDateTime>
#include <QString>

namespace queuectl {

/// Whether the operator reads Russian: by LC_ALL, LC_MESSAGES or LANG, the first that is set, as
/// they were at the first call.
bool isRussian();

/// The text in the operator's language.
QString text(const char *english, const char *russian);

/// A whole number, thousands apart: "12 345".
QString numberText(qint64 number);
/// "2 h 11 min", "45 s": the two largest units.
QString durationText(qint64 seconds);
/// The same for narrow columns: "2h 11m", "45s".
QString shortDuration(qint64 seconds);
/// The time of day, with the date in front when that is not today's.
QString timeText(const QDateTime &time);
/// The entry of `known` that is a slip of the finger away from `word`, or an empty text.
QString nearest(const QString &word, const QStringList &known);

} // namespace queuectl
