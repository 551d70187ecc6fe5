#include "benchmarks/receiver.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>
#include <system_error>

namespace {

constexpr std::string_view answer = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";

int checked(int result, const char *what)
{
    if (result < 0)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

void watch(int poller, int descriptor)
{
    epoll_event event = {};
    event.events = EPOLLIN;
    event.data.fd = descriptor;
    checked(epoll_ctl(poller, EPOLL_CTL_ADD, descriptor, &event), "epoll_ctl");
}

/// The value of Content-Length in `head`, 0 without one.
size_t contentLength(std::string_view head)
{
    constexpr std::string_view name = "\r\ncontent-length:";
    for (size_t at = head.find("\r\n"); at != std::string_view::npos;
         at = head.find("\r\n", at + 2)) {
        const std::string_view line = head.substr(at);
        if (line.size() < name.size() || strncasecmp(line.data(), name.data(), name.size()) != 0)
            continue;
        std::string_view number = line.substr(name.size());
        number.remove_prefix(std::min(number.find_first_not_of(' '), number.size()));
        size_t length = 0;
        std::from_chars(number.data(), number.data() + number.size(), length);
        return length;
    }
    return 0;
}

} // namespace

Receiver::Receiver()
{
    listener = checked(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    checked(bind(listener, reinterpret_cast<sockaddr *>(&address), size), "bind");
    checked(listen(listener, SOMAXCONN), "listen");
    checked(getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size), "getsockname");
    portNumber = ntohs(address.sin_port);

    poller = checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1");
    wakeUp = checked(eventfd(0, EFD_CLOEXEC), "eventfd");
    watch(poller, listener);
    watch(poller, wakeUp);
    thread = std::thread(&Receiver::run, this);
}

Receiver::~Receiver()
{
    eventfd_write(wakeUp, 1);
    thread.join();
    for (const auto &[connection, rest] : connections)
        close(connection);
    close(listener);
    close(poller);
    close(wakeUp);
}

void Receiver::expect(int requests)
{
    const std::scoped_lock lock(mutex);
    current = {};
    expected = requests;
}

bool Receiver::wait(int requests, std::chrono::seconds timeout)
{
    std::unique_lock lock(mutex);
    awaited = requests;
    return arrived.wait_for(lock, timeout,
                            [this, requests] { return current.requests >= requests; });
}

Receiver::Drain Receiver::drain() const
{
    const std::scoped_lock lock(mutex);
    return current;
}

void Receiver::run()
{
    std::array<epoll_event, 64> events;
    for (;;) {
        const int ready = epoll_wait(poller, events.data(), events.size(), -1);
        for (int i = 0; i < ready; ++i) {
            const int descriptor = events[i].data.fd;
            if (descriptor == wakeUp)
                return;
            if (descriptor == listener) {
                accept();
            } else if (!read(descriptor)) {
                connections.erase(descriptor);
                close(descriptor);
            }
        }
    }
}

void Receiver::accept()
{
    const int connection = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (connection < 0)
        return;
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    watch(poller, connection);
    connections[connection];
    const std::scoped_lock lock(mutex);
    ++current.connections;
}

bool Receiver::read(int connection)
{
    std::string &pending = connections[connection];
    std::array<char, 16384> chunk;
    const ssize_t size = recv(connection, chunk.data(), chunk.size(), 0);
    if (size <= 0)
        return size < 0 && (errno == EAGAIN || errno == EINTR);
    pending.append(chunk.data(), static_cast<size_t>(size));

    for (;;) {
        const size_t headSize = pending.find("\r\n\r\n");
        if (headSize == std::string::npos)
            return true;
        const size_t whole = headSize + 4 + contentLength({pending.data(), headSize + 2});
        if (pending.size() < whole)
            return true;
        count(pending.substr(0, headSize));
        pending.erase(0, whole);
        // So short an answer always fits into the socket's buffer.
        if (send(connection, answer.data(), answer.size(), MSG_NOSIGNAL) < 0)
            return false;
    }
}

void Receiver::count(const std::string &head)
{
    const auto now = Clock::now();
    const std::scoped_lock lock(mutex);
    if (current.requests++ == 0) {
        current.first = now;
        current.head = head;
    }
    if (current.requests == expected)
        current.last = now;
    if (current.requests == awaited)
        arrived.notify_all();
}
