#pragma once

#include "shared/net/restclient.h"

#include <QJsonDocument>
#include <QJsonObject>

/// Requests for the tests of RestClient.

inline const RestClient::Headers noHeaders;
constexpr int mebibyte = 1024 * 1024;

inline QJsonDocument object(const QString &key, const QJsonValue &value)
{
    return QJsonDocument(QJsonObject{{key, value}});
}

inline http::Params params(const QByteArray &method, const QUrl &url, const QByteArray &body = {})
{
    http::Params result;
    result.method = method;
    result.url = url;
    result.body = body;
    return result;
}
