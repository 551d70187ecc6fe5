#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <utility>

/// The header lines of an HTTP message.
class BasicHeader
{
public:
    virtual ~BasicHeader() = default;

    void setContentType(const QString &type);
    void setContentLength(int bytes);

    /// Replaces the value of the header `name` (case-insensitive).
    void setValue(const QByteArray &name, const QByteArray &value);
    /// Empty without such a header.
    QByteArray value(const QByteArray &name) const;
    bool contains(const QByteArray &name) const;

    /// The lines as they are sent, each with its line end.
    QByteArray toByteArray() const;

private:
    QList<std::pair<QByteArray, QByteArray>> lines;
};

/// The head of a received request.
class RequestHeader : public BasicHeader
{
public:
    RequestHeader() = default;
    /// `requestLine` is the first line without its line end, such as "GET /status HTTP/1.1".
    explicit RequestHeader(const QByteArray &requestLine);

    /// The verb as received, such as "GET".
    QByteArray getMethod() const { return method; }
    /// The decoded path without the query. Only "%2F" stays encoded: a slash inside a part must not
    /// divide it when the caller splits the path at "/".
    QString getPath() const { return path; }
    /// Whether the client can reuse the connection.
    bool isKeepAlive() const;

private:
    QByteArray method;
    QString path;
    bool isHttp11 = false;
};

/// The head of an answer; by default "HTTP/1.1 200 OK" without headers.
class ResponseHeader : public BasicHeader
{
public:
    void setStatusLine(int code, const QString &reason, int major, int minor);

    /// The first line with its line end.
    QByteArray statusLine() const;

private:
    int code = 200;
    QString reason = QStringLiteral("OK");
    int major_ = 1;
    int minor_ = 1;
};
