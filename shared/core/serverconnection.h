#pragma once

#include <QSqlDatabase>
#include <QString>

#include <chrono>

/// Whether this driver of Qt connects to a MariaDB or MySQL server.
bool isServerDriver(const QString &driver);

/// Opens the connection to the configured server, with the till's time zone and an SQL mode that
/// the store's statements need. A call on it waits for the server for `timeout` at most. Throws
/// BasicException with a text that names the database and contains no password.
void openServer(QSqlDatabase &database, std::chrono::seconds timeout);
