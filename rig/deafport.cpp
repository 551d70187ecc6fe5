#include "rig/deafport.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rig {

DeafPort::DeafPort(const QByteArray &address, int port)
{
    sockaddr_in place = {};
    place.sin_family = AF_INET;
    place.sin_port = htons(static_cast<in_port_t>(port));
    socklen_t size = sizeof(place);
    auto *const plain = reinterpret_cast<sockaddr *>(&place);
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listener < 0 || ::inet_pton(AF_INET, address.constData(), &place.sin_addr) != 1
        || ::bind(listener, plain, size) != 0 || ::listen(listener, 0) != 0
        || ::getsockname(listener, plain, &size) != 0)
        qFatal("%s:%d: %s", address.constData(), port, std::strerror(errno));
    port_ = ntohs(place.sin_port);
    sockets.push_back(listener);

    // The kernel's accept queue is longer than the requested backlog.
    for (;;) {
        const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        ::connect(client, plain, size);
        sockets.push_back(client);
        pollfd wait = {client, POLLOUT, 0};
        constexpr int longForLoopbackMs = 200;
        if (::poll(&wait, 1, longForLoopbackMs) == 0)
            return;
    }
}

DeafPort::~DeafPort()
{
    for (const int socket : sockets)
        ::close(socket);
}

} // namespace rig
