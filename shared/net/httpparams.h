#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QMetaType>
#include <QUrl>

namespace http {

/// One section of a multipart/form-data request.
struct Part
{
    Q_GADGET
    Q_PROPERTY(QByteArray name MEMBER name)
    Q_PROPERTY(QByteArray fileName MEMBER fileName)
    Q_PROPERTY(QByteArray contentType MEMBER contentType)
    Q_PROPERTY(QMap<QByteArray, QByteArray> headers MEMBER headers)
    Q_PROPERTY(QByteArray body MEMBER body)

public:
    QByteArray name;
    QByteArray fileName;
    QByteArray contentType;
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;

    bool operator==(const Part &) const = default;
};

/// One whole request. The property names are the keys in a message.
struct Params
{
    Q_GADGET
    Q_PROPERTY(QByteArray method MEMBER method)
    Q_PROPERTY(QUrl url MEMBER url)
    Q_PROPERTY(QByteArray body MEMBER body)
    Q_PROPERTY(QMap<QByteArray, QByteArray> headers MEMBER headers)
    Q_PROPERTY(QList<http::Part> parts MEMBER parts)

public:
    QByteArray method;
    QUrl url;
    /// Not sent if there are parts.
    QByteArray body;
    QMap<QByteArray, QByteArray> headers;
    QList<http::Part> parts;

    /// The verb to send: `method`, or by default POST with a body or parts and GET without.
    QByteArray verb() const;

    bool operator==(const Params &) const = default;
};

} // namespace http
