#include "rig/portreservation.h"

#include "rig/error.h"

#include <QFile>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace rig {

namespace {

void setReuse(int descriptor, bool reuse)
{
    const int value = reuse ? 1 : 0;
    ::setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &value, sizeof(value));
}

[[noreturn]] void fail(quint16 port)
{
    throw Error(
        u"port %1 of 127.0.0.1: %2"_s.arg(port).arg(QString::fromUtf8(std::strerror(errno))));
}

/// A socket bound to the port; -1 on failure. With `reuse`, the port may be in use by a socket with
/// SO_REUSEADDR, and by connections in TIME_WAIT.
int bindSocket(quint16 port, bool reuse)
{
    const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    setReuse(descriptor, reuse);
    if (::bind(descriptor, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0)
        return descriptor;
    const int reason = errno;
    ::close(descriptor);
    errno = reason;
    return -1;
}

/// Another program may use the port for a moment, for instance while it looks for a free one.
int bindGivenPort(quint16 port)
{
    constexpr std::chrono::milliseconds pause(50);
    for (int attempt = 0; attempt < 40; ++attempt) {
        const int descriptor = bindSocket(port, true);
        if (descriptor >= 0 || errno != EADDRINUSE)
            return descriptor;
        std::this_thread::sleep_for(pause);
    }
    errno = EADDRINUSE;
    return -1;
}

/// The first ephemeral port.
int firstPortOfCallers()
{
    constexpr int usual = 32768;
    QFile range(u"/proc/sys/net/ipv4/ip_local_port_range"_s);
    if (!range.open(QIODevice::ReadOnly))
        return usual;
    const int first = range.readAll().simplified().split(' ').value(0).toInt();
    return first > 0 ? first : usual;
}

/// A free port below the ephemeral range, so that other programs rarely take it while it is not
/// reserved, as between two runs of the stand.
int bindAnyPort(quint16 &port)
{
    constexpr int first = 10240;
    const int end = std::max(firstPortOfCallers(), first + 1024);
    for (int attempt = 0; attempt < end - first; ++attempt) {
        port = static_cast<quint16>(QRandomGenerator::global()->bounded(first, end));
        const int descriptor = bindSocket(port, false);
        if (descriptor >= 0 || errno != EADDRINUSE)
            return descriptor;
    }
    return -1;
}

} // namespace

PortReservation::PortReservation(quint16 port)
    : descriptor(port == 0 ? bindAnyPort(port) : bindGivenPort(port))
    , port_(port)
{
    if (descriptor < 0)
        fail(port);
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
    setReuse(descriptor, true); // earlier connections may be in TIME_WAIT
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
    // Two sockets may listen on one port if both have SO_REUSEADDR. Until now the first one did not
    // have it, so the kernel gave the port to no other program.
    setReuse(descriptor, true);
}

} // namespace rig
