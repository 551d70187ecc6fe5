#pragma once

#include <QSqlDatabase>
#include <QString>

#include <chrono>

/// Whether Qt's driver of this name reaches a MariaDB or MySQL server.
bool isServerDriver(const QString &driver);

/// Opens the connection to the server that the settings name, with the till's time zone and an SQL
/// mode in which the store's statements run. A call on it waits for the server for `timeout` at
/// most. Throws BasicException with a text that names the database and holds no password.
void openServer(QSqlDatabase &database, std::chrono::seconds timeout);
