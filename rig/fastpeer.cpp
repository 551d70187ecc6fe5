#include "rig/fastpeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <system_error>

namespace rig {

namespace {

constexpr std::string_view probeRequest = "GET /settle HTTP/1.1\r\n\r\n";

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

/// The value of Content-Length in `head`; 0 without one.
size_t contentLength(std::string_view head)
{
    constexpr std::string_view name = "content-length:";
    while (!head.empty()) {
        const size_t end = std::min(head.find("\r\n"), head.size());
        std::string_view line = head.substr(0, end);
        head.remove_prefix(std::min(end + 2, head.size()));
        if (line.size() < name.size() || strncasecmp(line.data(), name.data(), name.size()) != 0)
            continue;
        line.remove_prefix(name.size());
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        size_t length = 0;
        std::from_chars(line.data(), line.data() + line.size(), length);
        return length;
    }
    return 0;
}

} // namespace

FastPeer::FastPeer(Answer answer)
    : answer(std::move(answer))
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
    timer = checked(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC), "timerfd_create");
    watch(poller, listener);
    watch(poller, wakeUp);
    watch(poller, timer);
    thread = std::thread(&FastPeer::run, this);
}

FastPeer::~FastPeer()
{
    eventfd_write(wakeUp, 1);
    thread.join();
    for (const auto &[connection, rest] : connections)
        close(connection);
    close(listener);
    close(poller);
    close(timer);
    close(wakeUp);
}

void FastPeer::settle()
{
    // Connections are accepted in order, so once this one is accepted, all earlier ones are.
    const int probe = checked(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket");
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<uint16_t>(portNumber));
    checked(connect(probe, reinterpret_cast<sockaddr *>(&address), sizeof address), "connect");
    while (send(probe, probeRequest.data(), probeRequest.size(), MSG_NOSIGNAL) < 0)
        checked(errno == EINTR ? 0 : -1, "send");
    char byte = 0;
    checked(static_cast<int>(recv(probe, &byte, 1, 0)), "recv");
    close(probe);
    for (int open = openConnections; open > 0; open = openConnections)
        openConnections.wait(open);
}

std::string FastPeer::reply(int status, std::string_view body)
{
    std::string bytes = "HTTP/1.1 " + std::to_string(status)
                        + " Told\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    return bytes.append(body);
}

void FastPeer::run()
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
            } else if (descriptor == timer) {
                sendLate();
            } else if (!read(descriptor)) {
                forget(descriptor);
            }
        }
    }
}

void FastPeer::accept()
{
    const int connection = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (connection < 0)
        return;
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    watch(poller, connection);
    connections[connection];
    ++openConnections;
}

bool FastPeer::read(int connection)
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
        const size_t bodySize = contentLength({pending.data(), headSize});
        if (pending.size() < headSize + 4 + bodySize)
            return true;
        const std::string_view whole = pending;
        const size_t verbEnd = whole.find(' ');
        const size_t targetEnd = whole.find(' ', verbEnd + 1);
        Request request;
        request.time = Clock::now();
        request.head = whole.substr(0, headSize);
        request.verb = whole.substr(0, verbEnd);
        request.target = whole.substr(verbEnd + 1, targetEnd - verbEnd - 1);
        request.body = whole.substr(headSize + 4, bodySize);
        const std::string bytes = request.target == "/settle" ? reply(200) : answer(request);
        pending.erase(0, headSize + 4 + bodySize);

        const std::chrono::milliseconds delay = answerDelay;
        if (delay.count() > 0 && !bytes.empty()) {
            late.push_back({request.time + delay, connection, bytes});
            if (late.size() == 1)
                setTimer();
            continue;
        }
        // The answer is so short that it always fits into the socket's buffer.
        if (!bytes.empty() && send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL) < 0)
            return false;
    }
}

void FastPeer::sendLate()
{
    uint64_t expirations = 0;
    // Non-blocking; the number of expirations does not matter.
    [[maybe_unused]] const ssize_t size = ::read(timer, &expirations, sizeof expirations);
    while (!late.empty() && late.front().due <= Clock::now()) {
        const Late answered = std::move(late.front());
        late.pop_front();
        // A connection that the client has closed is closed here at the next read.
        send(answered.connection, answered.bytes.data(), answered.bytes.size(), MSG_NOSIGNAL);
    }
    setTimer();
}

void FastPeer::forget(int connection)
{
    std::erase_if(late,
                  [connection](const Late &answer) { return answer.connection == connection; });
    connections.erase(connection);
    close(connection);
    --openConnections;
    openConnections.notify_all();
}

void FastPeer::setTimer()
{
    if (late.empty())
        return;
    const auto due = late.front().due.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(due);
    itimerspec time = {};
    time.it_value.tv_sec = seconds.count();
    time.it_value.tv_nsec = std::chrono::nanoseconds(due - seconds).count();
    timerfd_settime(timer, TFD_TIMER_ABSTIME, &time, nullptr);
}

} // namespace rig
