#pragma once

#include <QDateTime>
#include <QString>

namespace http {

/// Whether the file's name says that it is PKCS#12; every other is PEM.
bool isPkcs12(const QString &path);

/// When the client certificate in this file ends, in UTC; invalid when the file cannot be read, has
/// no certificate, or is PKCS#12 and has another password. A PEM file may hold more: its first
/// certificate counts.
QDateTime certificateEnd(const QString &path, const QString &password);

} // namespace http
