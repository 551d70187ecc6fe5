#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QUrl>

/// The parts of the log lines about an exchange. Each is on one line. Values whose names tell of a
/// secret are left out; a secret in a body is not found.
namespace exchangelog {

/// The first 4096 bytes as a text, with their number when there are more. `omitted` bytes were left
/// out after them before.
QString excerpt(const QByteArray &bytes, qsizetype omitted = 0);

/// The address without its password, and without the values of the query's members whose names tell
/// of a secret.
QString addressText(const QUrl &url);

/// Header lines, without the values of those whose names tell of a secret or are among
/// `secretNames`, in any case. `omittedBytes` were left out after them before.
QString headersText(const QList<QByteArray> &lines, qsizetype omittedBytes,
                    const QStringList &secretNames);

/// The warning about headers that were not sent, as HTTP does not allow their names.
QString refusedHeadersText(const QByteArrayList &names);

} // namespace exchangelog
