#pragma once

#include "rig/mariadbserver.h"

#include <QFile>

namespace faults {

using namespace Qt::StringLiterals;

/// Ends one connection, if it is still there.
inline void killConnection(rig::MariaDbServer &server, const QByteArray &id)
{
    server.run(
        u"DELIMITER //\nBEGIN NOT ATOMIC DECLARE CONTINUE HANDLER FOR 1094 BEGIN END; KILL %1; END//\n"_s
            .arg(QString::fromLatin1(id)));
}

/// The connections that the till has, by their ids.
inline QByteArrayList connections(rig::MariaDbServer &server)
{
    QByteArrayList ids =
        server
            .run(u"SELECT id FROM information_schema.processlist WHERE user = '%1'"_s.arg(
                server.user()))
            .split('\n');
    ids.removeAll(QByteArray());
    return ids;
}

/// Moves the socket away, so that new clients do not find the server, or back.
inline bool moveSocket(const rig::MariaDbServer &server, bool away)
{
    const QString aside = server.socket() + u".aside"_s;
    return away ? QFile::rename(server.socket(), aside) : QFile::rename(aside, server.socket());
}

} // namespace faults
