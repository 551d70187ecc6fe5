#pragma once

#include "shared/core/basicexception.h"
#include "shared/core/sqlitestatement.h"

#include <QByteArray>
#include <QString>

#include <chrono>

/// The journal's file could not be opened or written.
class JournalFault : public BasicException
{
public:
    JournalFault(const QString &text, bool isDamage)
        : BasicException(text)
        , isDamage_(isDamage)
    {
    }

    /// The file is not a sound database.
    bool isDamage() const { return isDamage_; }

private:
    bool isDamage_;
};

/// A connection to an existing SQLite file through SQLite's own interface. Through Qt's driver, the
/// row of a message takes twice the instructions.
///
/// Every call throws JournalFault, with SQLite's own text, when SQLite refuses it.
///
/// Thread: one at a time.
class JournalConnection
{
public:
    class Statement;

    /// A statement waits for as long as `busyTimeout` while another program has the file locked.
    JournalConnection(const QString &path, std::chrono::milliseconds busyTimeout);
    ~JournalConnection();
    JournalConnection(const JournalConnection &) = delete;
    JournalConnection &operator=(const JournalConnection &) = delete;

    /// Executes a statement to its end. Returns the first value of its first row as a number; 0
    /// without a row.
    qint64 run(const char *statement);
    qint64 run(const QString &statement) { return run(statement.toUtf8().constData()); }

private:
    [[noreturn]] void fail() const;
    qint64 changes() const;

    sqlite3 *handle = nullptr;
};

/// A prepared statement. It must not outlive its connection.
class JournalConnection::Statement
{
public:
    Statement(JournalConnection &connection, const QByteArray &text)
        : connection(connection)
        , statement(connection.handle, text)
    {
        if (!statement.isPrepared())
            connection.fail();
    }

    /// Executes it with a value for each `?`, see SqliteStatement. Returns the number of changed
    /// rows.
    template <typename... Values>
    qint64 execute(const Values &...values)
    {
        if (!statement.execute(values...))
            connection.fail();
        return connection.changes();
    }

private:
    JournalConnection &connection;
    SqliteStatement statement;
};
