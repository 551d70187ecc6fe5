#include "shared/core/sqliteschema.h"

#include "shared/core/databasestatements.h"

#include <log4qt/logmanager.h>

#include <QFile>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>

using namespace Qt::StringLiterals;

/// The linker keeps a static library's resources only if they are initialized explicitly.
static void initSchemaResource()
{
    Q_INIT_RESOURCE(sql);
}

namespace {

struct SchemaStatement
{
    QString table;
    QString text;
};

/// The statements of the compiled-in schema, without its comments.
QList<SchemaStatement> readSchema()
{
    initSchemaResource();
    QFile file(u":/sql/sqlite.sql"_s);
    // Part of the program: neither this failure nor the one below depends on the till.
    if (!file.open(QIODevice::ReadOnly))
        qFatal("The schema sql/sqlite.sql is not compiled in");
    QString script;
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    for (const QString &line : lines) {
        if (!line.trimmed().startsWith(u"--"))
            script += line + u'\n';
    }
    const QRegularExpression tableName(
        u"^CREATE (?:TABLE IF NOT EXISTS|INDEX IF NOT EXISTS \\w+ ON) (\\w+)"_s);
    QList<SchemaStatement> schema;
    const QStringList parts = script.split(u';');
    for (const QString &part : parts) {
        const QString text = part.trimmed();
        if (text.isEmpty())
            continue;
        const QRegularExpressionMatch match = tableName.match(text);
        if (!match.hasMatch())
            qFatal("The schema holds a statement of no table: %s", qPrintable(text));
        schema.append({match.captured(1), text});
    }
    return schema;
}

const QList<SchemaStatement> &schema()
{
    static const QList<SchemaStatement> statements = readSchema();
    return statements;
}

/// Creates our missing tables, each with its indexes. Returns their names, or nothing on failure;
/// the query has the error.
std::optional<QStringList> createMissingTables(QSqlQuery &query)
{
    // Another process may create tables at the same time, and so may the till.
    if (!query.exec(u"BEGIN IMMEDIATE"_s))
        return std::nullopt;
    const auto tables = readSchemaTables(query, u"main"_s);
    if (!tables)
        return std::nullopt;
    for (const SchemaStatement &statement : schema()) {
        if (tables->missing.contains(statement.table) && !query.exec(statement.text))
            return std::nullopt;
    }
    if (!query.exec(u"COMMIT"_s))
        return std::nullopt;
    return tables->missing;
}

} // namespace

std::optional<SchemaTables> readSchemaTables(QSqlQuery &query, const QString &schemaName)
{
    // A view instead of a table counts as present: the till made it.
    if (!query.exec(
            u"SELECT lower(name) FROM %1.sqlite_master WHERE type IN ('table', 'view')"_s.arg(
                schemaName)))
        return std::nullopt;
    QStringList present;
    while (query.next())
        present.append(query.value(0).toString());
    query.finish();

    SchemaTables tables;
    tables.isEmpty = present.isEmpty();
    for (const SchemaStatement &statement : schema()) {
        if (!present.contains(statement.table) && !tables.missing.contains(statement.table))
            tables.missing.append(statement.table);
    }
    return tables;
}

void createSchemaTables(const QString &path, bool isNew, const QString &name,
                        std::chrono::milliseconds busyTimeout)
{
    QSqlError error;
    std::optional<QStringList> created;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
        database.setDatabaseName(path);
        database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=%1"_s.arg(busyTimeout.count()));
        if (!database.open()) {
            error = database.lastError();
        } else {
            QSqlQuery query(database);
            // The journal mode can be changed reliably only while no other connection has the file
            // open.
            if (!isNew || query.exec(u"PRAGMA journal_mode=WAL"_s)) {
                query.finish();
                created = createMissingTables(query);
            }
            error = query.lastError();
        }
    }
    QSqlDatabase::removeDatabase(name);
    if (!created)
        throwDatabaseError(u"Не удалось создать таблицы в базе данных '%1'"_s.arg(path), error);
    if (!created->isEmpty())
        Log4Qt::LogManager::logger(u"database"_s)
            ->info(u"В базе данных '%1' созданы таблицы %2"_s.arg(path, created->join(u", "_s)));
}
