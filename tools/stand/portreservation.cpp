#include "tools/stand/portreservation.h"

#include "tools/stand/scenarioerror.h"

#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

[[noreturn]] void fail(quint16 port)
{
    throw ScenarioError(
        u"port %1 of 127.0.0.1: %2"_s.arg(port).arg(QString::fromUtf8(std::strerror(errno))));
}

} // namespace

PortReservation::PortReservation(quint16 port)
{
    descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (port != 0) {
        // A port that was used a moment ago is free again, though old connections still fade out.
        const int on = 1;
        ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    }
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    if (descriptor < 0 || ::bind(descriptor, generic, size) != 0
        || ::getsockname(descriptor, generic, &size) != 0)
        fail(port);
    port_ = ntohs(address.sin_port);
}

PortReservation::~PortReservation()
{
    ::close(descriptor);
}

quint16 PortReservation::port() const
{
    return port_;
}

int PortReservation::listen()
{
    if (::listen(descriptor, 50) != 0)
        fail(port_);
    return ::fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
}

void PortReservation::refuse()
{
    ::shutdown(descriptor, SHUT_RDWR);
}

void PortReservation::lend()
{
    // A second socket may listen here once both allow it. Set after bind(), it took no part in the
    // choice of the port, so the system keeps the port out of everybody else's choice.
    const int on = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
}

} // namespace stand
