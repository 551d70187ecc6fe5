#pragma once

#include <QHash>
#include <QJsonDocument>
#include <QString>
#include <QUrl>

namespace mfg {

/// One request to the Mfg service. A message of type `mfg` holds these four as its body, `payload`
/// as an object.
struct Request
{
    /// The verb as a value of QNetworkAccessManager::Operation: 2 is GET, 4 is POST.
    int op = 0;
    /// The whole address, query included.
    QUrl url;
    QHash<QString, QString> headers;
    /// Empty for a GET.
    QJsonDocument payload;
};

} // namespace mfg
