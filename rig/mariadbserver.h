#pragma once

#include "rig/durability.h"

#include <QDir>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>

namespace rig {

/// A real MariaDB server for one test: a process of its own in a temporary folder, reached over a
/// unix socket alone, with the schema of packaging/sql/mariadb.sql and a user who has the till's
/// rights. Works for root and for an ordinary user. The process ends with the object, and with the
/// test should that die. What goes wrong ends the test with a message.
/// Thread: the one that made it.
class MariaDbServer
{
public:
    /// Makes the data folder below `parent`, starts the server and loads the schema. Takes about a
    /// second. A path below a deep folder is too long for a socket.
    explicit MariaDbServer(Durability durability = Durability::OfTests,
                           const QString &parent = QDir::tempPath());
    ~MariaDbServer();
    MariaDbServer(const MariaDbServer &) = delete;

    /// Returns when the server answers, with the rows that it had.
    void start();
    /// Ends the server in an orderly way.
    void stop();
    /// Ends the server as a power cut would.
    void kill();

    /// 0 while it does not run.
    qint64 processId() const { return server.processId(); }
    QString socket() const;
    QString user() const;
    QString password() const;
    /// The section of the service's settings that leads here.
    QString settings() const;

    /// Runs SQL as the server's administrator and returns what the client prints: one line for each
    /// row, columns parted by tabs.
    QByteArray run(const QString &sql);

private:
    QByteArray runClient(const QByteArray &input);

    const Durability durability;
    QTemporaryDir folder;
    QProcess server;
};

} // namespace rig
