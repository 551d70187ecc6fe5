#pragma once

#include <QByteArray>
#include <QIODevice>
#include <QJsonObject>
#include <QString>

namespace fileutils {

/// The whole file; empty when it cannot be read.
QByteArray readFromFile(const QString &path, QIODevice::OpenMode mode);

/// Writes `object` as JSON text. With QIODevice::Truncate in `mode` the file is replaced
/// atomically: after a crash it holds either the old object or the new one. False on failure.
bool writeToFile(const QString &path, const QJsonObject &object, QIODevice::OpenMode mode);

} // namespace fileutils
