#pragma once

#include <QString>

/// Names of locks on the database server (GET_LOCK), by which services on several machines
/// coordinate. A lock ends with its connection.
namespace serverlock {

/// The lock of the active service of `schema`.
QString serviceLock(const QString &schema);
/// The lock of the connection that delivers messages of one type.
QString typeLock(const QString &schema, const QString &type);

} // namespace serverlock
