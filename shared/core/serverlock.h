#pragma once

#include <QString>

/// Locks that a database server keeps for a connection (GET_LOCK), by which services on several
/// machines that name one schema agree. They end with the connection.
namespace serverlock {

/// The lock of the service that delivers the rows of `schema`.
QString serviceLock(const QString &schema);
/// The lock of the connection that delivers the rows of one type.
QString typeLock(const QString &schema, const QString &type);

} // namespace serverlock
