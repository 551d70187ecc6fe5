#pragma once

#include <QSqlDatabase>
#include <QSqlError>
#include <QString>

/// Throws BasicException: the failed operation and the reason.
[[noreturn]] void throwDatabaseError(const QString &what, const QSqlError &error);

/// Runs a statement that returns no rows. Throws like throwDatabaseError() on failure.
void executeStatement(const QSqlDatabase &database, const QString &statement, const QString &what);
