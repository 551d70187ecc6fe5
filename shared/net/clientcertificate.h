#pragma once

#include <QDateTime>
#include <QString>

namespace http {

/// Whether the suffix of the file's name is one of PKCS#12; all other files are PEM.
bool isPkcs12(const QString &path);

/// The expiry time of the client certificate in this file, in UTC. Invalid if the file cannot be
/// read, has no certificate, or is PKCS#12 with another password. In a PEM file with several
/// certificates the first one counts.
QDateTime certificateEnd(const QString &path, const QString &password);

} // namespace http
