#include "shared/net/requestheaders.h"

#include "shared/net/headertext.h"

#include <utility>

namespace http {

namespace {

bool isSame(const QByteArray &name, const char *other)
{
    return name.compare(other, Qt::CaseInsensitive) == 0;
}

/// A header's value as it is sent.
QByteArray sendableValue(const QByteArray &value)
{
    return oneLine(value).replace('\0', ' ').trimmed();
}

/// Whether the header depends on the body. The client sets these itself, since the till may have
/// prepared the request for other bytes.
bool followsFromBody(const QByteArray &name)
{
    return isSame(name, "Content-Length") || isSame(name, "Transfer-Encoding")
           || isSame(name, "Expect");
}

void append(HeaderList &list, const QByteArray &name, const QByteArray &value)
{
    if (!isToken(name))
        list.refused.append(name);
    else if (!followsFromBody(name))
        list.lines.append({name, sendableValue(value)});
}

} // namespace

HeaderList headerList(const QHash<QString, QString> &headers)
{
    // Most requests of a worker have the same headers as the one before.
    static thread_local QHash<QString, QString> lastHeaders;
    static thread_local HeaderList lastList;
    if (headers != lastHeaders) {
        lastList = {};
        for (auto it = headers.cbegin(); it != headers.cend(); ++it)
            append(lastList, it.key().toUtf8(), it.value().toUtf8());
        lastHeaders = headers;
    }
    return lastList;
}

HeaderList headerList(const QMap<QByteArray, QByteArray> &headers)
{
    HeaderList list;
    for (auto it = headers.cbegin(); it != headers.cend(); ++it)
        append(list, it.key(), it.value());
    return list;
}

void makeSendable(http::Part &part, QByteArrayList &refused)
{
    part.contentType = sendableValue(part.contentType);
    const HeaderList list = headerList(std::exchange(part.headers, {}));
    for (const auto &[name, value] : list.lines)
        part.headers.insert(name, value);
    refused += list.refused;
}

} // namespace http
