#pragma once

#include <QByteArray>
#include <QList>

#include <chrono>
#include <curl/curl.h>

namespace curl {

/// The longest idle time after which a connection is reused. Servers close idle connections after 2
/// to 5 seconds, and a request sent at that moment is lost.
constexpr std::chrono::seconds maxIdle{4};

/// A thread's sockets, and which of them are kept alive for later exchanges. Detects servers that
/// close a kept-alive connection without announcing it, and remembers their hosts for all threads.
/// A host is one text of scheme, name and port. Thread: the one that owns the sockets.
class KeptSockets
{
public:
    void opened(curl_socket_t descriptor);
    void closed(curl_socket_t descriptor);

    /// Call before a request is sent on the kept connection with this local port. False if the
    /// server has closed the connection, or has sent unexpected bytes on it.
    bool take(int ourPort);
    /// The exchange with `host` has left this connection open. Ignored for the connection of an
    /// earlier exchange.
    void noteKept(curl_socket_t descriptor, const QByteArray &host);
    /// Checks for connections that the server has closed; libcurl replaces these silently.
    void noteClosedByServer(const QByteArray &host);

private:
    struct Socket
    {
        curl_socket_t descriptor = CURL_SOCKET_BAD;
        bool isIdle = false;
        std::chrono::steady_clock::time_point idleSince;
        QByteArray host;
    };

    Socket *withPort(int ourPort);

    QList<Socket> sockets;
};

/// Whether a request to `host` may reuse a connection and leave its own open.
/// Thread: any.
bool isReuseAllowed(const QByteArray &host);
/// From now on, for an hour, each request to `host` gets a new connection.
/// Thread: any.
void rememberClosingHost(const QByteArray &host);

} // namespace curl
