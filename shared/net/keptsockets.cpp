#include "shared/net/keptsockets.h"

#include "shared/net/closinghosts.h"

#include <cstddef>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace {

/// Shared by all threads: the worker of a type may run on another thread in each pass.
ClosingHosts &closingHosts()
{
    // Never destroyed, since a worker may outlive main().
    static auto &hosts = *new ClosingHosts;
    return hosts;
}

/// The state of a kept connection before a request is sent on it.
enum class SocketState
{
    Idle,
    /// Unread bytes.
    Input,
    /// The server has closed it.
    Closed,
};

SocketState stateOf(curl_socket_t socket)
{
    pollfd wait = {socket, POLLIN | POLLRDHUP, 0};
    if (::poll(&wait, 1, 0) <= 0)
        return SocketState::Idle;
    return (wait.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0 ? SocketState::Closed
                                                                 : SocketState::Input;
}

int localPort(curl_socket_t socket)
{
    // Both address families have the port at the same offset. It stays 0 on failure.
    static_assert(offsetof(sockaddr_in, sin_port) == offsetof(sockaddr_in6, sin6_port));
    sockaddr_in6 address = {};
    socklen_t size = sizeof(address);
    ::getsockname(socket, reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin6_port);
}

} // namespace

namespace curl {

void KeptSockets::opened(curl_socket_t descriptor)
{
    sockets.append({descriptor, false, {}, {}});
}

void KeptSockets::closed(curl_socket_t descriptor)
{
    sockets.removeIf(
        [descriptor](const Socket &socket) { return socket.descriptor == descriptor; });
}

bool KeptSockets::take(int ourPort)
{
    Socket *const socket = withPort(ourPort);
    if (!socket)
        return true;
    socket->isIdle = false;
    const SocketState state = stateOf(socket->descriptor);
    if (state == SocketState::Closed)
        rememberClosingHost(socket->host);
    return state == SocketState::Idle;
}

void KeptSockets::noteKept(curl_socket_t descriptor, const QByteArray &host)
{
    for (Socket &socket : sockets) {
        // A socket that was idle during the exchange belongs to an earlier one.
        if (socket.descriptor == descriptor && !socket.isIdle)
            socket = {descriptor, true, std::chrono::steady_clock::now(), host};
    }
}

void KeptSockets::noteClosedByServer(const QByteArray &host)
{
    for (Socket &socket : sockets) {
        // After longer idle times libcurl does not reuse the connection, so no request was at risk.
        if (socket.isIdle && socket.host == host
            && std::chrono::steady_clock::now() - socket.idleSince < maxIdle
            && stateOf(socket.descriptor) == SocketState::Closed) {
            socket.isIdle = false;
            rememberClosingHost(host);
        }
    }
}

/// A thread mostly has only one connection, which needs no comparison.
KeptSockets::Socket *KeptSockets::withPort(int ourPort)
{
    for (Socket &socket : sockets) {
        if (sockets.size() == 1 || localPort(socket.descriptor) == ourPort)
            return &socket;
    }
    return nullptr;
}

bool isReuseAllowed(const QByteArray &host)
{
    return !closingHosts().contains(host, std::chrono::steady_clock::now());
}

void rememberClosingHost(const QByteArray &host)
{
    closingHosts().add(host, std::chrono::steady_clock::now());
}

} // namespace curl
