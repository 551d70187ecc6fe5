#pragma once

#include <QByteArray>
#include <QList>

#include <chrono>
#include <cstddef>
#include <curl/curl.h>
#include <optional>

namespace curl {

constexpr qsizetype maxBodySize = 16 * 1024 * 1024;
constexpr qsizetype maxHeaderSize = 256 * 1024;

/// What an exchange brings in, and how it went so far.
struct Transfer
{
    bool keepHeaders = false;
    bool isRepeatable = false;
    CURL *handle = nullptr;

    QByteArray body;
    /// The values of Content-Encoding, comma-joined.
    QByteArray contentCodings;
    QList<QByteArray> headerLines;
    qsizetype keptHeaderSize = 0;
    qsizetype omittedHeaderSize = 0;
    qsizetype headerSize = 0;
    /// The empty line at the end of the headers came. libcurl lets an answer pass that ends before
    /// it.
    bool isHeadWhole = false;
    /// The clock of this machine minus the Date of the answer; nothing when it has no readable one.
    std::optional<std::chrono::seconds> clockDifference;
    int attempts = 0;

    bool isBodyTooLarge = false;
    bool isHeaderTooLarge = false;
    bool isRepeatRefused = false;
    /// The answer was a proxy's, which wants other credentials than it was given.
    bool isProxyRefusal = false;
    /// The request went out on a kept connection.
    bool isReused = false;
    /// The server said something on the kept connection before it was asked, or closed it, so
    /// nothing was sent there.
    bool wasOutOfStep = false;
};

// What libcurl calls during an exchange. `context` is the exchange's Transfer, of the socket's
// functions the thread's KeptSockets.

std::size_t takeBody(char *data, std::size_t size, std::size_t count, void *context);
std::size_t takeHeader(char *data, std::size_t size, std::size_t count, void *context);
int beforeRequest(void *context, char *remoteAddress, char *ourAddress, int remotePort,
                  int ourPort);
curl_socket_t openSocket(void *context, curlsocktype purpose, curl_sockaddr *address);
int closeSocket(void *context, curl_socket_t descriptor);

} // namespace curl
