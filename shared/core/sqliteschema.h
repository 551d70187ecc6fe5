#pragma once

#include <QSqlQuery>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/// Whether a file is empty, and which of our tables are missing.
struct SchemaTables
{
    bool isEmpty = true;
    QStringList missing;
};

/// Reads `schemaName` over the query's connection. Nothing on failure; the query has the error.
std::optional<SchemaTables> readSchemaTables(QSqlQuery &query, const QString &schemaName);

/// Creates our missing tables in the SQLite file, each with its indexes, and logs their names. Uses
/// a separate connection `name` with the file as its main database, so that the statements are the
/// ones an installer runs by hand; it waits for locks for `busyTimeout`. `isNew`: the file has no
/// tables at all. Throws BasicException.
void createSchemaTables(const QString &path, bool isNew, const QString &name,
                        std::chrono::milliseconds busyTimeout);
