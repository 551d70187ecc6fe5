#pragma once

#include "rig/durability.h"

#include <QDir>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace rig {

/// A MariaDB server for one test: a process in a temporary folder, reachable only over a unix
/// socket, with the schema of packaging/sql/mariadb.sql and a user with the till's rights. Works
/// for root and for an ordinary user. The process ends with the object, or with the test program. A
/// failure ends the test with a message.
/// Thread: the one that made it.
class MariaDbServer
{
public:
    /// Creates the data folder below `parent`, starts the server and loads the schema. Takes about
    /// a second. The path must be short: a socket's path is limited.
    explicit MariaDbServer(Durability durability = Durability::OfTests,
                           const QString &parent = QDir::tempPath());
    ~MariaDbServer();
    MariaDbServer(const MariaDbServer &) = delete;

    /// Returns when the server answers. The rows are still there.
    void start();
    /// Shuts the server down normally.
    void stop();
    /// Kills the server, as a power cut would.
    void kill();

    /// 0 while it is not running.
    qint64 processId() const { return server.processId(); }
    QString socket() const;
    QString user() const;
    QString password() const;
    /// The section of the service's settings for this server.
    QString settings() const;

    /// Runs SQL as the server's administrator and returns the client's output: one line for each
    /// row, columns separated by tabs.
    QByteArray run(const QString &sql);

private:
    QByteArray runClient(const QByteArray &input);

    const Durability durability;
    QTemporaryDir folder;
    QProcess server;
};

} // namespace rig
