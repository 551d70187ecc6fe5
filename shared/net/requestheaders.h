#pragma once

#include "shared/net/httpparams.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>

#include <utility>

namespace http {

/// The headers of a request as they go out, and the names of those that must not.
struct HeaderList
{
    QList<std::pair<QByteArray, QByteArray>> lines;
    QByteArrayList refused;
};

/// Those that a caller gives, checked: values are one line each, names that HTTP does not allow are
/// refused, and what follows from the body is left out, since the client says that itself.
HeaderList headerList(const QHash<QString, QString> &headers);
HeaderList headerList(const QMap<QByteArray, QByteArray> &headers);

/// Leaves in the part what may go out. The names of its other headers are added to `refused`.
void makeSendable(Part &part, QByteArrayList &refused);

} // namespace http
