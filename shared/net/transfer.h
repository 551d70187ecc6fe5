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

/// The state and the received data of an exchange.
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
    /// The empty line after the headers was received. libcurl accepts an answer that ends before
    /// it.
    bool isHeadWhole = false;
    /// This machine's clock minus the Date of the answer; nothing without a valid Date.
    std::optional<std::chrono::seconds> clockDifference;
    int attempts = 0;

    bool isBodyTooLarge = false;
    bool isHeaderTooLarge = false;
    bool isRepeatRefused = false;
    /// The answer came from a proxy that requires other credentials.
    bool isProxyRefusal = false;
    /// The request was sent on a kept connection.
    bool isReused = false;
    /// The server sent unexpected bytes on the kept connection or closed it, so nothing was sent
    /// there.
    bool wasOutOfStep = false;
};

// Callbacks of libcurl. `context` is the exchange's Transfer, for the socket functions the thread's
// KeptSockets.

std::size_t takeBody(char *data, std::size_t size, std::size_t count, void *context);
std::size_t takeHeader(char *data, std::size_t size, std::size_t count, void *context);
int beforeRequest(void *context, char *remoteAddress, char *ourAddress, int remotePort,
                  int ourPort);
curl_socket_t openSocket(void *context, curlsocktype purpose, curl_sockaddr *address);
int closeSocket(void *context, curl_socket_t descriptor);

} // namespace curl
