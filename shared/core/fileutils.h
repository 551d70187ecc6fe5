#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QJsonObject>
#include <QString>

namespace fileutils {

/// The whole file, or nothing when it cannot be read.
QByteArray readFromFile(const QString &path, QIODevice::OpenMode mode);

/// Writes `object` as JSON text. With QIODevice::Truncate in `mode` the file is replaced as a
/// whole: after a crash it holds the old object or the new one, never a part. False when it could
/// not be written.
bool writeToFile(const QString &path, const QJsonObject &object, QIODevice::OpenMode mode);

} // namespace fileutils
