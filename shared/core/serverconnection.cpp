#include "shared/core/serverconnection.h"

#include "shared/core/databasesettings.h"
#include "shared/core/databasestatements.h"

using namespace Qt::StringLiterals;

namespace {

/// Some servers close a session that is idle for less than the time between two polls.
constexpr auto longestIdle = std::chrono::seconds(24 * 60 * 60);

} // namespace

bool isServerDriver(const QString &driver)
{
    return driver == u"QMYSQL" || driver == u"QMARIADB";
}

void openServer(QSqlDatabase &database, std::chrono::seconds timeout)
{
    const QString schema = settings::database::schemaName();
    const QString socket = settings::database::socket.value();
    const QString host = settings::database::host.value();

    database.setDatabaseName(schema);
    database.setHostName(host);
    const int port = settings::database::port.value();
    if (port > 0)
        database.setPort(port);
    database.setUserName(settings::database::user.value());
    database.setPassword(settings::database::password.value());
    QString options =
        u"MYSQL_OPT_CONNECT_TIMEOUT=%1;MYSQL_OPT_READ_TIMEOUT=%2;MYSQL_OPT_WRITE_TIMEOUT=%2"_s
            .arg(settings::database::connectTimeout.value().count())
            .arg(timeout.count());
    if (!socket.isEmpty())
        options += u";UNIX_SOCKET="_s + socket;
    database.setConnectOptions(options);

    const QString what = u"Не удалось подключиться к базе данных '%1' на сервере %2"_s.arg(
        schema, socket.isEmpty() ? host : socket);
    if (!database.open())
        throwDatabaseError(what, database.lastError());
    // Times are local, whatever time zone the driver has set.
    executeStatement(database, u"SET SESSION time_zone = 'SYSTEM'"_s, what);
    // The probe selects a plain column together with COUNT.
    executeStatement(
        database, u"SET SESSION sql_mode = REPLACE(@@SESSION.sql_mode, 'ONLY_FULL_GROUP_BY', '')"_s,
        what);
    executeStatement(database, u"SET SESSION wait_timeout = %1"_s.arg(longestIdle.count()), what);
}
