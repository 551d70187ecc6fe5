#pragma once

#include <QSqlDatabase>
#include <QSqlError>
#include <QString>

/// Throws BasicException: what did not work, and why.
[[noreturn]] void throwDatabaseError(const QString &what, const QSqlError &error);

/// Runs a statement that gives no rows. Throws like throwDatabaseError() when it fails.
void executeStatement(const QSqlDatabase &database, const QString &statement, const QString &what);
