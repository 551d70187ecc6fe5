#pragma once

#include <QString>

class QSqlError;

// What Qt's database drivers hand out, in the form that this service uses.

/// Why a statement or a connection failed, in one line that is never empty: drivers may fail
/// without a word. `statement`: what failed, for that case.
QString databaseErrorText(const QSqlError &error, const QString &statement = QString());
