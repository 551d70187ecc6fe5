#include "engine/journalconnection.h"

#include <QFile>

#include <sqlite3.h>

namespace {

constexpr int primaryCodeMask = 0xff;

JournalFault faultOf(int code, const char *text)
{
    const int primary = code & primaryCodeMask;
    return JournalFault(QString::fromUtf8(text),
                        primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB);
}

/// Finalizes a statement that is executed once.
struct Finalizer
{
    sqlite3_stmt *const statement;
    ~Finalizer() { sqlite3_finalize(statement); }
};

} // namespace

JournalConnection::JournalConnection(const QString &path, std::chrono::milliseconds busyTimeout)
{
    const int code = sqlite3_open_v2(QFile::encodeName(path).constData(), &handle,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code != SQLITE_OK) {
        const JournalFault fault =
            faultOf(code, handle ? sqlite3_errmsg(handle) : sqlite3_errstr(code));
        sqlite3_close(handle);
        throw fault;
    }
    sqlite3_busy_timeout(handle, static_cast<int>(busyTimeout.count()));
}

JournalConnection::~JournalConnection()
{
    sqlite3_close(handle);
}

qint64 JournalConnection::run(const char *statement)
{
    const Finalizer once{prepare(statement, 0)};
    int code = sqlite3_step(once.statement);
    const qint64 first = code == SQLITE_ROW ? sqlite3_column_int64(once.statement, 0) : 0;
    while (code == SQLITE_ROW)
        code = sqlite3_step(once.statement);
    if (code != SQLITE_DONE)
        fail();
    return first;
}

sqlite3_stmt *JournalConnection::prepare(const char *text, unsigned flags)
{
    sqlite3_stmt *statement = nullptr;
    if (sqlite3_prepare_v3(handle, text, -1, flags, &statement, nullptr) != SQLITE_OK)
        fail();
    return statement;
}

void JournalConnection::fail() const
{
    throw faultOf(sqlite3_errcode(handle), sqlite3_errmsg(handle));
}

JournalConnection::Statement::Statement(JournalConnection &connection, const QByteArray &text)
    : connection(connection)
    , handle(connection.prepare(text.constData(), SQLITE_PREPARE_PERSISTENT))
{
}

JournalConnection::Statement::~Statement()
{
    sqlite3_finalize(handle);
}

void JournalConnection::Statement::bind(int position, qint64 value)
{
    sqlite3_bind_int64(handle, position + 1, value);
}

void JournalConnection::Statement::bind(int position, const QString &text)
{
    QByteArray &kept = texts.at(position);
    kept = text.toUtf8();
    // constData() of an empty array is not a null pointer, which SQLite would store as NULL.
    sqlite3_bind_text(handle, position + 1, kept.constData(), static_cast<int>(kept.size()),
                      SQLITE_STATIC);
}

void JournalConnection::Statement::bind(int position, QLatin1StringView text)
{
    sqlite3_bind_text(handle, position + 1, text.data(), static_cast<int>(text.size()),
                      SQLITE_STATIC);
}

qint64 JournalConnection::Statement::step()
{
    sqlite3_step(handle);
    // Resets the statement and returns the error of the step.
    if (sqlite3_reset(handle) != SQLITE_OK)
        connection.fail();
    return sqlite3_changes(connection.handle);
}
