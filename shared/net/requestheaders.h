#pragma once

#include "shared/net/httpparams.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>

#include <utility>

namespace http {

/// The headers of a request as they are sent, and the names of the refused ones.
struct HeaderList
{
    QList<std::pair<QByteArray, QByteArray>> lines;
    QByteArrayList refused;
};

/// Checks a caller's headers. Each value is reduced to one line. Names that HTTP does not allow are
/// refused. Headers that depend on the body are dropped, since the client sets them itself.
HeaderList headerList(const QHash<QString, QString> &headers);
HeaderList headerList(const QMap<QByteArray, QByteArray> &headers);

/// Removes headers that must not be sent from the part. Adds the refused names to `refused`.
void makeSendable(Part &part, QByteArrayList &refused);

} // namespace http
