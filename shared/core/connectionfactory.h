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
/// Each thread has one connection under its own name, which only that thread may use and remove. Do
/// not keep a QSqlDatabase beyond the call that needs it: Qt warns when such a connection is
/// removed. Prepared statements may outlive the connection.
///
/// When the SQLite file is deleted or replaced while connections have it open, this is logged once.
/// The write-ahead log of the former file is renamed before the new file is opened.
///
/// Reached through Singleton<ConnectionFactory>. Thread: any.
class ConnectionFactory
{
public:
    /// Closes and removes the connection; statements on it fail afterwards.
    virtual void removeConnection(const QString &name);
    virtual ~ConnectionFactory();
    /// The calling thread's open connection, opened now if necessary. Throws BasicException with a
    /// text that names the database and contains no password.
    virtual QSqlDatabase getConnection();
    /// False when the file of an SQLite connection has been deleted or replaced: its statements
    /// would still succeed, on a file that no other program sees.
    virtual bool isConnectionCurrent(const QString &name);
    /// Truncates the write-ahead log of the calling thread's SQLite connection if it is larger than
    /// 8 MiB and no reader needs it; its content is first copied into the database. Waits for its
    /// turn among this process's writers, but not for other programs.
    void shrinkLog(const QString &name);
    /// The write gate of the connection's file; null on a server.
    WriteGate *gateOf(const QSqlDatabase &database) const;

    /// Whether the settings name a database server.
    static bool usesServer();
    /// Opens another connection of the calling thread to the server, under `name`; the caller owns
    /// it and removes it with QSqlDatabase. A call on it waits for the server for `timeout` at
    /// most. Throws BasicException as getConnection() does.
    static QSqlDatabase connectToServer(const QString &name, std::chrono::seconds timeout);

    /// Whether an open connection is checked with a statement before each use; true by default.
    static void setWithCheck(bool check);
    /// Whether missing tables are created when an SQLite file is opened; true by default. Existing
    /// tables are not changed.
    static void setCreatesTables(bool creates);

private:
    QSqlDatabase open(const QString &name);
    void openSqlite(QSqlDatabase &database, const QString &path);

    SqliteFiles files;
    static inline std::atomic<bool> withCheck{true};
    static inline std::atomic<bool> createsTables{true};
};
