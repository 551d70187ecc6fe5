#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>

class QSqlError;

// What Qt's database drivers hand out, in the form that this service uses.

/// Why a statement or a connection failed, in one line that is never empty: drivers may fail
/// without a word. `statement`: what failed, for that case.
QString databaseErrorText(const QSqlError &error, const QString &statement = QString());

/// The value of a column with a time, in the till's zone; invalid when it holds none. Text with a
/// zone, as in `2026-01-31T12:00:00Z` or `...+03:00`, keeps its instant. Text without one is the
/// till's own time, and so is a server's, which newer drivers of Qt's hand out as UTC.
QDateTime databaseTime(const QVariant &value);
