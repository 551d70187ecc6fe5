#include "tests/fuzz/playedpeer.h"

#include "tests/fuzz/fuzz.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace fuzz {

PlayedPeer::PlayedPeer()
    : listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    const bool isListening = ::bind(listener, generic, length) == 0 && ::listen(listener, 16) == 0
                             && ::getsockname(listener, generic, &length) == 0;
    check(isListening, "no free port");
    portNumber = ntohs(address.sin_port);
    thread = std::thread(&PlayedPeer::serve, this);
}

PlayedPeer::~PlayedPeer()
{
    isEnding = true;
    // Ends the wait for a caller.
    ::shutdown(listener, SHUT_RDWR);
    thread.join();
    ::close(listener);
}

void PlayedPeer::play(const QByteArray &bytes)
{
    const std::lock_guard lock(mutex);
    greeting = bytes;
}

void PlayedPeer::serve()
{
    while (!isEnding) {
        const int caller = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (caller < 0)
            continue;
        QByteArray bytes;
        {
            const std::lock_guard lock(mutex);
            bytes = greeting;
        }
        if (!bytes.isEmpty())
            ::send(caller, bytes.constData(), static_cast<size_t>(bytes.size()), MSG_NOSIGNAL);
        char buffer[4096];
        while (::recv(caller, buffer, sizeof buffer, 0) > 0) {
        }
        ::close(caller);
    }
}

} // namespace fuzz
