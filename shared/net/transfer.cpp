#include "shared/net/transfer.h"

#include "shared/net/connections.h"
#include "shared/net/httpdate.h"

#include <algorithm>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/// More than a log line shows. A server may send tens of thousands of short lines, and the thread's
/// heap would keep that many small blocks.
constexpr qsizetype maxKeptHeaderSize = 8 * 1024;

/// The value of a header line with this name, which is given in lower case with its colon;
/// otherwise nothing. A continuation line begins with a blank and has no name.
std::optional<QByteArrayView> valueOf(QByteArrayView line, QByteArrayView name)
{
    if (line.size() <= name.size() || (line.front() | 0x20) != name.front()
        || line.first(name.size()).compare(name, Qt::CaseInsensitive) != 0)
        return std::nullopt;
    return line.sliced(name.size()).trimmed();
}

std::optional<std::chrono::seconds> differenceToClock(QByteArrayView date)
{
    const auto time = http::parseDate(date);
    if (!time)
        return std::nullopt;
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - *time;
}

/// Begins a new head and drops the data of the one before, which is not the answer's.
void beginHead(curl::Transfer &transfer)
{
    transfer.headerLines.clear();
    transfer.keptHeaderSize = 0;
    transfer.omittedHeaderSize = 0;
    transfer.isHeadWhole = false;
    transfer.contentCodings.clear();
    transfer.clockDifference.reset();
}

/// `line` as received, with the leading blanks of a continuation line.
void readHeader(curl::Transfer &transfer, QByteArrayView line)
{
    if (const auto codings = valueOf(line, "content-encoding:")) {
        if (!transfer.contentCodings.isEmpty())
            transfer.contentCodings += ',';
        transfer.contentCodings += *codings;
    } else if (const auto date = valueOf(line, "date:")) {
        transfer.clockDifference = differenceToClock(*date);
    }
}

void keepHeader(curl::Transfer &transfer, QByteArrayView line)
{
    if (transfer.keptHeaderSize < maxKeptHeaderSize) {
        transfer.headerLines.append(line.toByteArray());
        transfer.keptHeaderSize += line.size();
    } else {
        transfer.omittedHeaderSize += line.size();
    }
}

} // namespace

namespace curl {

std::size_t takeBody(char *data, std::size_t size, std::size_t count, void *context)
{
    auto &transfer = *static_cast<Transfer *>(context);
    const auto length = static_cast<qsizetype>(size * count);
    const qsizetype needed = transfer.body.size() + length;
    if (needed > maxBodySize) {
        transfer.isBodyTooLarge = true;
        return CURL_WRITEFUNC_ERROR;
    }
    // Doubles the capacity up to the answer's limit. append() alone would copy the body and need
    // both buffers at once.
    if (needed > transfer.body.capacity())
        transfer.body.reserve(std::clamp(2 * transfer.body.capacity(), needed, maxBodySize));
    transfer.body.append(data, length);
    return size * count;
}

std::size_t takeHeader(char *data, std::size_t size, std::size_t count, void *context)
{
    auto &transfer = *static_cast<Transfer *>(context);
    const QByteArrayView bytes(data, static_cast<qsizetype>(size * count));
    transfer.headerSize += bytes.size();
    if (transfer.headerSize > maxHeaderSize) {
        transfer.isHeaderTooLarge = true;
        return CURL_WRITEFUNC_ERROR;
    }
    const QByteArrayView line = bytes.trimmed();
    if (line.startsWith("HTTP/"))
        beginHead(transfer);
    else if (line.isEmpty())
        transfer.isHeadWhole = true;
    else if (!transfer.isHeadWhole)
        readHeader(transfer, bytes);
    if (transfer.keepHeaders && !line.isEmpty())
        keepHeader(transfer, line);
    return size * count;
}

/// libcurl calls this before each sending of the request. A second call means that a kept
/// connection broke before an answer. The server may have read the request, so repeating it could,
/// for instance, make a payment twice.
///
/// On an idle connection unread bytes belong to an earlier request. Taking them as this answer
/// would delete an undelivered message. If the server has closed the connection, the request would
/// be lost.
int beforeRequest(void *context, char *, char *, int, int ourPort)
{
    auto &transfer = *static_cast<Transfer *>(context);
    if (longInfo(transfer.handle, CURLINFO_NUM_CONNECTS) == 0) {
        transfer.wasOutOfStep = !connectionsOfThread().sockets.take(ourPort);
        if (transfer.wasOutOfStep)
            return CURL_PREREQFUNC_ABORT;
        transfer.isReused = true;
    }
    ++transfer.attempts;
    if (transfer.attempts > 1 && !transfer.isRepeatable) {
        transfer.isRepeatRefused = true;
        return CURL_PREREQFUNC_ABORT;
    }
    return CURL_PREREQFUNC_OK;
}

curl_socket_t openSocket(void *context, curlsocktype, curl_sockaddr *address)
{
    const curl_socket_t socket =
        ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    if (socket >= 0)
        static_cast<KeptSockets *>(context)->opened(socket);
    return socket;
}

int closeSocket(void *context, curl_socket_t descriptor)
{
    static_cast<KeptSockets *>(context)->closed(descriptor);
    return ::close(descriptor);
}

} // namespace curl
