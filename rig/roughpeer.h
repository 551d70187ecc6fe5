#pragma once

#include <QByteArray>

#include <atomic>
#include <functional>
#include <list>
#include <thread>

namespace rig {

/// A TCP peer on a free port of 127.0.0.1 that misbehaves as told. Each connection has its own
/// thread; all of them end with the object.
/// Thread: any.
class RoughPeer
{
public:
    /// The peer's side of one connection. Each operation returns false when the other side has
    /// closed or the peer ends.
    class Line
    {
    public:
        Line(int socket, int ending, std::atomic<qint64> &sent);

        /// Reads to the end of the head, and of a body with Content-Length.
        bool readRequest();
        /// Waits for the first bytes, without reading them.
        bool awaitBytes();
        bool send(const QByteArray &bytes);
        /// Sends the bytes and the end of the connection in one packet, so that the other side sees
        /// both at once.
        bool sendLast(const QByteArray &bytes);
        /// Repeats the bytes until `total` bytes are sent or the other side has closed.
        bool flood(const QByteArray &bytes, qint64 total);
        /// Sends one byte every `intervalMs`, and starts again at the end.
        bool drip(const QByteArray &bytes, int intervalMs);
        /// Sends nothing until the other side closes; received data is discarded.
        bool listen();
        /// Neither reads nor writes for this time; for ever if below 0.
        bool idle(int milliseconds = -1);
        /// Closes with a reset.
        void reset();
        /// For serving the connection without the operations above.
        int descriptor() const { return socket; }

    private:
        /// Waits for one of the poll events.
        bool await(short events, int milliseconds = -1) const;

        const int socket;
        const int ending;
        std::atomic<qint64> &sent;
        QByteArray buffer;
    };

    using Conduct = std::function<void(Line &line)>;

    explicit RoughPeer(Conduct conduct);
    ~RoughPeer();
    RoughPeer(const RoughPeer &) = delete;
    RoughPeer &operator=(const RoughPeer &) = delete;

    int port() const { return port_; }
    /// Connections since the start.
    int connections() const { return connections_; }
    /// Bytes passed to the system.
    qint64 sentBytes() const { return sent; }

private:
    void accept();

    const Conduct conduct;
    int port_ = 0;
    int listener = -1;
    /// Readable once the peer ends.
    int ending = -1;
    std::atomic<int> connections_{0};
    std::atomic<qint64> sent{0};
    struct Served
    {
        std::thread thread;
        std::atomic<bool> isOver{false};
    };
    std::list<Served> lines;
    std::thread acceptor;
};

} // namespace rig
