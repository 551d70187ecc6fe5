#pragma once

#include <QSqlQuery>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>

/// What the file has: nothing of ours, or which of our tables are missing.
struct SchemaTables
{
    bool isEmpty = true;
    QStringList missing;
};

/// Looks into `schemaName` of the query's connection. Nothing when that fails; the query has the
/// error.
std::optional<SchemaTables> readSchemaTables(QSqlQuery &query, const QString &schemaName);

/// Creates those of our tables that the SQLite file lacks, each with its indexes, and logs their
/// names. Works on a connection `name` of its own that has the file as its main database, so that
/// the schema's statements are the ones an installer runs by hand, and that waits for a lock for
/// `busyTimeout`. `isNew`: the file has no tables at all. Throws BasicException.
void createSchemaTables(const QString &path, bool isNew, const QString &name,
                        std::chrono::milliseconds busyTimeout);
