#pragma once

#include <QHash>
#include <QJsonDocument>
#include <QString>
#include <QUrl>

namespace mfg {

/// One request to the Mfg service. The body of an `mfg` message consists of these four, `payload`
/// as an object.
struct Request
{
    /// The verb as a value of QNetworkAccessManager::Operation: 2 is GET, 4 is POST.
    int op = 0;
    /// The whole address, including the query.
    QUrl url;
    QHash<QString, QString> headers;
    /// Empty for a GET.
    QJsonDocument payload;
};

} // namespace mfg
