#pragma once

#include <QDateTime>
#include <QString>
#include <QVariant>

class QSqlError;

// Conversions of what Qt's database drivers return.

/// The reason of a failed statement or connection, in one line that is never empty: if the driver
/// gives no text, the line names `statement`.
QString databaseErrorText(const QSqlError &error, const QString &statement = QString());

/// The time in a column, in the till's zone; invalid when it holds none. Text with a zone, as in
/// `2026-01-31T12:00:00Z` or `...+03:00`, keeps its instant. Text without a zone is local time. So
/// is a server's time, which newer drivers of Qt return as UTC.
QDateTime databaseTime(const QVariant &value);
