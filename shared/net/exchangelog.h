#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

/// The parts of log lines about an exchange, each on one line. Values are omitted if their name
/// suggests a secret; secrets inside a body are not detected.
namespace exchangelog {

/// The first 4096 bytes as text, followed by the total size if there are more. `omitted`: bytes
/// that were already cut off.
QString excerpt(const QByteArray &bytes, qsizetype omitted = 0);

/// The address without its password and without query values whose names suggest a secret.
QString addressText(const QUrl &url);

/// Header lines, without values whose names suggest a secret or are among `secretNames`
/// (case-insensitive). `omittedBytes`: bytes that were already cut off.
QString headersText(const QList<QByteArray> &lines, qsizetype omittedBytes,
                    const QStringList &secretNames);

/// The warning about headers that were not sent because HTTP does not allow their names.
QString refusedHeadersText(const QByteArrayList &names);

} // namespace exchangelog
