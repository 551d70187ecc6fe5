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

} // namespace

JournalConnection::JournalConnection(const QString &path, std::chrono::milliseconds busyTimeout)
{
    const int code = sqlite3_open_v2(QFile::encodeName(path).constData(), &handle,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    if (code != SQLITE_OK) {
        sqlite3_close(handle);
        throw faultOf(code, sqlite3_errstr(code));
    }
    sqlite3_busy_timeout(handle, static_cast<int>(busyTimeout.count()));
}

JournalConnection::~JournalConnection()
{
    sqlite3_close(handle);
}

qint64 JournalConnection::run(const char *text)
{
    SqliteStatement statement(handle, text);
    if (!statement.isPrepared() || !statement.execute())
        fail();
    const qint64 first = statement.next() ? statement.value(0).toLongLong() : 0;
    while (statement.next()) {
    }
    if (statement.lastError().isValid())
        fail();
    return first;
}

void JournalConnection::fail() const
{
    throw faultOf(sqlite3_errcode(handle), sqlite3_errmsg(handle));
}

qint64 JournalConnection::changes() const
{
    return sqlite3_changes(handle);
}
