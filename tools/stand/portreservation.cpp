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

void setReuse(int descriptor, bool reuse)
{
    const int value = reuse ? 1 : 0;
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &value, sizeof(value));
}

[[noreturn]] void fail(quint16 port)
{
    throw ScenarioError(
        u"port %1 of 127.0.0.1: %2"_s.arg(port).arg(QString::fromUtf8(std::strerror(errno))));
}

/// Port 0: the system's choice, and nobody else's. A given port may be in use by a socket that
/// allows it, and by connections of the past.
int bindSocket(quint16 port)
{
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    setReuse(descriptor, port != 0);
    if (::bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        const int reason = errno;
        ::close(descriptor);
        errno = reason;
        fail(port);
    }
    return descriptor;
}

quint16 portOf(int descriptor)
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    if (::getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        fail(0);
    return ntohs(address.sin_port);
}

} // namespace

PortReservation::PortReservation(quint16 port)
{
    // The system chooses a free port for the first socket. The second one asks for it by number:
    // only then does the port stay ours when the socket listens and stops listening.
    const int chooser = port == 0 ? bindSocket(0) : -1;
    port_ = port == 0 ? portOf(chooser) : port;
    if (chooser >= 0)
        setReuse(chooser, true);
    try {
        descriptor = bindSocket(port_);
    } catch (const ScenarioError &) {
        ::close(chooser);
        throw;
    }
    if (chooser >= 0)
        ::close(chooser);
    setReuse(descriptor, false);
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
    setReuse(descriptor, true); // connections of the former time may still fade out
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
    // A second socket may listen here once both allow it. As long as the first one did not, the
    // system kept the port out of everybody else's choice.
    setReuse(descriptor, true);
}

} // namespace stand
