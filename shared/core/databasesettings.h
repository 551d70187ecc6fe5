#pragma once

#include "shared/core/setting.h"

/// Section `database`. Changes apply to connections opened later.
namespace settings::database {

inline constexpr Setting<QString> driver{
    .key = u"database:driver",
    .defaultValue = u"QSQLITE",
    .about = u"`QSQLITE`, or `QMYSQL` or `QMARIADB` for a server.",
};
/// Use fileName() and schemaName(), which apply the right default.
inline constexpr Setting<QString> name{
    .key = u"database:name",
    .defaultValue = u"/tallocash/cash/queue/queues.db",
    .about = u"SQLite: path of the file, which is created if it is missing. Server: the schema, by "
             u"default `queues`.",
};
inline constexpr Setting<QString> socket{
    .key = u"database:socket",
    .about = u"Server: the unix socket; if set, host and port are not used.",
};
inline constexpr Setting<QString> host{
    .key = u"database:host",
    .defaultValue = u"localhost",
    .about = u"Server: the host.",
};
inline constexpr Setting<int> port{
    .key = u"database:port",
    .smallest = 0,
    .about = u"Server: the port; 0 for the default port.",
};
inline constexpr Setting<QString> user{
    .key = u"database:user",
    .about = u"Server: the account.",
};
inline constexpr Setting<QString> password{
    .key = u"database:password",
    .about = u"Server: the password of the account.",
};
inline constexpr Setting<std::chrono::seconds> connectTimeout{
    .key = u"database:connectTimeout",
    .defaultValue = 5,
    .smallest = 1,
    .about = u"Server: timeout for opening a connection.",
};

/// The SQLite file; for driver QSQLITE only.
QString fileName();
/// The schema on a server.
QString schemaName();

} // namespace settings::database
