#pragma once

#include "shared/core/sqlitefiles.h"

#include <QSqlDatabase>
#include <QString>

#include <atomic>
#include <chrono>

class WriteGate;

/// Opens the till's database as the settings of section `database` say: an SQLite file by default,
/// or a MariaDB or MySQL server.
///
/// Each thread has one connection under a name of its own, which only that thread may use and
/// remove. Nobody keeps a QSqlDatabase beyond the call that needs it, or the removal draws a
/// warning of Qt's; prepared statements may outlive it.
///
/// When the SQLite file is deleted or replaced while connections have it open, the log says so
/// once, and the write-ahead log that is left of the former file is put aside before the new one
/// is opened.
///
/// Reached through Singleton<ConnectionFactory>. Thread: any.
class ConnectionFactory
{
public:
    /// Closes and forgets the connection. Statements on it fail from then on.
    virtual void removeConnection(const QString &name);
    virtual ~ConnectionFactory();
    /// The open connection of the calling thread, opened now if need be.
    /// Throws BasicException with a text that names the database and holds no password.
    virtual QSqlDatabase getConnection();
    /// False when the file behind an SQLite connection has been deleted or replaced: its statements
    /// would go on succeeding on a file that nobody else sees.
    virtual bool isConnectionCurrent(const QString &name);
    /// Empties the write-ahead log of the calling thread's SQLite connection when it has grown
    /// beyond the ordinary and nobody needs it; what it holds goes into the file. Waits for its
    /// turn among this process's writers, and for no other program.
    void shrinkLog(const QString &name);
    /// Where writers of the connection's file wait for their turn; null on a server.
    WriteGate *gateOf(const QSqlDatabase &database) const;

    /// Whether the settings name a database server.
    static bool usesServer();
    /// Opens a further connection of the calling thread to that server. It is QSqlDatabase's under
    /// `name`, and none of the others. A call on it waits for the server for `timeout` at most.
    /// Throws BasicException as getConnection() does.
    static QSqlDatabase connectToServer(const QString &name, std::chrono::seconds timeout);

    /// Whether an open connection is tried with a statement before it is handed out; true at first.
    static void setWithCheck(bool check);
    /// Whether those of our tables that an SQLite file lacks are created when it is opened; true at
    /// first. A table that is there stays as it is.
    static void setCreatesTables(bool creates);

private:
    QSqlDatabase open(const QString &name);
    void openSqlite(QSqlDatabase &database, const QString &path);

    SqliteFiles files;
    static inline std::atomic<bool> withCheck{true};
    static inline std::atomic<bool> createsTables{true};
};
