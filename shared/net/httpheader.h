#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <utility>

/// The lines behind the first line of an HTTP message.
class BasicHeader
{
public:
    virtual ~BasicHeader() = default;

    void setContentType(const QString &type);
    void setContentLength(int bytes);

    /// Replaces the value of the line `name`, which is compared in any case.
    void setValue(const QByteArray &name, const QByteArray &value);
    /// Empty when there is no such line.
    QByteArray value(const QByteArray &name) const;
    bool contains(const QByteArray &name) const;

    /// The lines as they are sent, each with its line end.
    QByteArray toByteArray() const;

private:
    QList<std::pair<QByteArray, QByteArray>> lines;
};

/// The head of a request that came in.
class RequestHeader : public BasicHeader
{
public:
    RequestHeader() = default;
    /// `requestLine` is the first line without its line end, such as "GET /status HTTP/1.1".
    explicit RequestHeader(const QByteArray &requestLine);

    /// The verb as it came, such as "GET".
    QByteArray getMethod() const { return method; }
    /// The path without query, decoded to text. One code stays as it came, "%2F": a slash inside a
    /// part of the path must not divide it when the caller splits at "/".
    QString getPath() const { return path; }
    /// Whether the client can use the connection for a further request.
    bool isKeepAlive() const;

private:
    QByteArray method;
    QString path;
    bool isHttp11 = false;
};

/// The head of an answer. Without a call it is that of an empty "HTTP/1.1 200 OK".
class ResponseHeader : public BasicHeader
{
public:
    void setStatusLine(int code, const QString &reason, int major, int minor);

    /// The first line as it is sent, with its line end.
    QByteArray statusLine() const;

private:
    int code = 200;
    QString reason = QStringLiteral("OK");
    int major_ = 1;
    int minor_ = 1;
};
