#include "rig/roughpeer.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rig {

namespace {

sockaddr_in loopback(int port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<in_port_t>(port));
    return address;
}

/// A listening socket on a free port.
int openListener(int backlog, int &port)
{
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    // Small, so that the sender soon notices that the peer does not read.
    const int receiveBuffer = 16 * 1024;
    ::setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof(address);
    auto *const plain = reinterpret_cast<sockaddr *>(&address);
    if (listener < 0 || ::bind(listener, plain, size) != 0 || ::listen(listener, backlog) != 0
        || ::getsockname(listener, plain, &size) != 0)
        qFatal("no free port: %s", std::strerror(errno));
    port = ntohs(address.sin_port);
    return listener;
}

} // namespace

RoughPeer::Line::Line(int socket, int ending, std::atomic<qint64> &sent)
    : socket(socket)
    , ending(ending)
    , sent(sent)
{
}

bool RoughPeer::Line::await(short events, int milliseconds) const
{
    pollfd waits[] = {{socket, events, 0}, {ending, POLLIN, 0}};
    int count = 0;
    do {
        count = ::poll(waits, 2, milliseconds);
    } while (count < 0 && errno == EINTR);
    return waits[1].revents == 0 && (waits[0].revents != 0 || count == 0);
}

bool RoughPeer::Line::readRequest()
{
    for (;;) {
        const qsizetype end = buffer.indexOf("\r\n\r\n");
        if (end >= 0) {
            const QByteArray head = buffer.left(end).toLower();
            const qsizetype length = head.indexOf("content-length:");
            const qsizetype body =
                length < 0 ? 0 : head.mid(length + 15).split('\r').first().trimmed().toLongLong();
            if (buffer.size() >= end + 4 + body) {
                buffer.remove(0, end + 4 + body);
                return true;
            }
        }
        char chunk[65536];
        if (!await(POLLIN))
            return false;
        const ssize_t count = ::recv(socket, chunk, sizeof(chunk), 0);
        if (count <= 0)
            return false;
        buffer.append(chunk, count);
    }
}

bool RoughPeer::Line::awaitBytes()
{
    return await(POLLIN);
}

bool RoughPeer::Line::send(const QByteArray &bytes)
{
    for (qsizetype done = 0; done < bytes.size();) {
        if (!await(POLLOUT))
            return false;
        const ssize_t count =
            ::send(socket, bytes.constData() + done, static_cast<std::size_t>(bytes.size() - done),
                   MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count < 0 && errno != EAGAIN)
            return false;
        const ssize_t written = std::max<ssize_t>(count, 0);
        done += written;
        sent += written;
    }
    return true;
}

bool RoughPeer::Line::sendLast(const QByteArray &bytes)
{
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_CORK, &on, sizeof(on));
    return send(bytes) && ::shutdown(socket, SHUT_WR) == 0;
}

bool RoughPeer::Line::flood(const QByteArray &bytes, qint64 total)
{
    for (qint64 done = 0; done < total; done += bytes.size()) {
        if (!send(bytes.left(static_cast<qsizetype>(std::min<qint64>(bytes.size(), total - done)))))
            return false;
    }
    return true;
}

bool RoughPeer::Line::drip(const QByteArray &bytes, int intervalMs)
{
    for (qsizetype i = 0;; i = (i + 1) % bytes.size()) {
        // Received data does not end the wait; a closed connection shows in send().
        if (!send(bytes.mid(i, 1)) || !idle(intervalMs))
            return false;
    }
}

bool RoughPeer::Line::listen()
{
    char chunk[65536];
    while (await(POLLIN)) {
        if (::recv(socket, chunk, sizeof(chunk), 0) <= 0)
            return false;
    }
    return false;
}

bool RoughPeer::Line::idle(int milliseconds)
{
    return await(0, milliseconds);
}

void RoughPeer::Line::reset()
{
    const linger atOnce = {1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
}

RoughPeer::RoughPeer(Conduct conduct)
    : conduct(std::move(conduct))
    , listener(openListener(128, port_))
    , ending(::eventfd(0, EFD_CLOEXEC))
    , acceptor(&RoughPeer::accept, this)
{
}

RoughPeer::~RoughPeer()
{
    ::eventfd_write(ending, 1);
    acceptor.join();
    for (Served &line : lines)
        line.thread.join();
    ::close(listener);
    ::close(ending);
}

void RoughPeer::accept()
{
    for (;;) {
        pollfd waits[] = {{listener, POLLIN, 0}, {ending, POLLIN, 0}};
        ::poll(waits, 2, -1);
        if (waits[1].revents != 0)
            return;
        const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0)
            continue;
        ++connections_;
        lines.remove_if([](Served &line) {
            if (line.isOver)
                line.thread.join();
            return !line.thread.joinable();
        });
        Served &served = lines.emplace_back();
        served.thread = std::thread([this, socket, &served] {
            Line line(socket, ending, sent);
            conduct(line);
            ::close(socket);
            served.isOver = true;
        });
    }
}

} // namespace rig
