#pragma once

#include <QByteArray>
#include <QList>

#include <chrono>
#include <curl/curl.h>

namespace curl {

/// How long a connection may be idle and still take a further request. Servers close one after 2 to
/// 5 seconds, and a request that meets its end is lost.
constexpr std::chrono::seconds maxIdle{4};

/// The sockets of a thread, and which of them are kept for a further exchange. It watches for
/// servers that close a kept connection without announcing it, and remembers their hosts for all
/// threads. A host is named by scheme, name and port in one text. Thread: the one whose sockets
/// they are.
class KeptSockets
{
public:
    void opened(curl_socket_t descriptor);
    void closed(curl_socket_t descriptor);

    /// A request is about to go out on the kept connection with this port of ours. False when the
    /// server has closed it, or has said something on it before it was asked.
    bool take(int ourPort);
    /// The exchange with `host` has left this connection open, unless it is one of a former
    /// exchange.
    void noteKept(curl_socket_t descriptor, const QByteArray &host);
    /// libcurl replaces a kept connection that the server has closed, and tells nobody.
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

/// Whether a request to `host` may use a kept connection, and leave its own open.
/// Thread: any.
bool isReuseAllowed(const QByteArray &host);
/// From now on each request to `host` has a connection of its own, for an hour.
/// Thread: any.
void rememberClosingHost(const QByteArray &host);

} // namespace curl
