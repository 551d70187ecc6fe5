#include "shared/core/sqlitestatement.h"

#include "shared/core/guarded.h"

#include <QMultiHash>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlQuery>

#include <cstring>
#include <sqlite3.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

using StatementsOfConnections = Guarded<QMultiHash<sqlite3 *, SqliteStatement *>>;

StatementsOfConnections &preparedStatements()
{
    static StatementsOfConnections statements;
    return statements;
}

/// Whether Qt's driver uses the library that this program is linked to.
bool isSharedLibrary(const QSqlDatabase &database)
{
    QSqlQuery query(database);
    return query.exec(u"SELECT sqlite_source_id()"_s) && query.next()
           && query.value(0).toString() == QLatin1StringView(sqlite3_sourceid());
}

QSqlError errorOf(int code, const char *text)
{
    return QSqlError(u"Unable to fetch row"_s, QString::fromUtf8(text), QSqlError::StatementError,
                     QString::number(code));
}

} // namespace

sqlite3 *SqliteStatement::handleOf(const QSqlDatabase &database)
{
    const QVariant handle = database.driver()->handle();
    if (!handle.isValid() || std::strcmp(handle.typeName(), "sqlite3*") != 0)
        return nullptr;
    sqlite3 *const connection = *static_cast<sqlite3 *const *>(handle.constData());
    if (!connection)
        return nullptr;
    static const bool isShared = isSharedLibrary(database);
    return isShared ? connection : nullptr;
}

void SqliteStatement::finalizeAll(sqlite3 *connection)
{
    const auto statements = preparedStatements().lock();
    const QList<SqliteStatement *> ofConnection = statements->values(connection);
    for (SqliteStatement *statement : ofConnection) {
        statement->finish();
        sqlite3_finalize(std::exchange(statement->handle, nullptr));
    }
}

SqliteStatement::SqliteStatement(sqlite3 *connection, const QByteArray &text)
    : connection(connection)
{
    const int code = sqlite3_prepare_v3(connection, text.constData(), -1, SQLITE_PREPARE_PERSISTENT,
                                        &handle, nullptr);
    if (code == SQLITE_OK)
        preparedStatements().lock()->insert(connection, this);
    else
        error = errorOf(code, sqlite3_errmsg(connection));
}

SqliteStatement::~SqliteStatement()
{
    preparedStatements().lock()->remove(connection, this);
    sqlite3_finalize(handle);
}

bool SqliteStatement::next()
{
    if (std::exchange(isFirstRowRead, false))
        return isOnRow;
    return isOnRow && step() && isOnRow;
}

void SqliteStatement::finish()
{
    isFirstRowRead = false;
    isOnRow = false;
    sqlite3_reset(handle);
}

QVariant SqliteStatement::value(int column) const
{
    const auto size = [this, column] {
        return sqlite3_column_bytes(handle, column);
    };
    switch (sqlite3_column_type(handle, column)) {
    case SQLITE_INTEGER:
        return sqlite3_column_int64(handle, column);
    case SQLITE_FLOAT:
        return sqlite3_column_double(handle, column);
    case SQLITE_BLOB:
        return QByteArray(static_cast<const char *>(sqlite3_column_blob(handle, column)), size());
    case SQLITE_TEXT:
        return QString::fromUtf8(
            reinterpret_cast<const char *>(sqlite3_column_text(handle, column)), size());
    default:
        return QVariant(QMetaType::fromType<QString>());
    }
}

void SqliteStatement::reset()
{
    finish();
    if (error.isValid())
        error = QSqlError();
}

void SqliteStatement::bind(int position, qint64 value)
{
    sqlite3_bind_int64(handle, position + 1, value);
}

void SqliteStatement::bind(int position, const QString &text)
{
    QByteArray &kept = texts.at(position);
    kept = text.toUtf8();
    // constData() of an empty array is not a null pointer, which SQLite would store as NULL.
    sqlite3_bind_text(handle, position + 1, kept.constData(), static_cast<int>(kept.size()),
                      SQLITE_STATIC);
}

void SqliteStatement::bind(int position, QLatin1StringView text)
{
    sqlite3_bind_text(handle, position + 1, text.data(), static_cast<int>(text.size()),
                      SQLITE_STATIC);
}

bool SqliteStatement::step()
{
    if (!handle) {
        error = errorOf(SQLITE_MISUSE, "the connection has been closed");
        return false;
    }
    const int code = sqlite3_step(handle);
    isOnRow = code == SQLITE_ROW;
    if (isOnRow)
        return true;
    if (code != SQLITE_DONE)
        error = errorOf(code, sqlite3_errmsg(connection));
    sqlite3_reset(handle);
    return code == SQLITE_DONE;
}
