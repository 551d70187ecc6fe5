#pragma once

#include <QByteArray>

#include <atomic>
#include <functional>
#include <list>
#include <thread>

namespace rig {

/// A TCP peer on a free port of 127.0.0.1 that behaves as badly as it is told to. Every connection
/// is served by a thread of its own; all of them end with the object.
/// Thread: any.
class RoughPeer
{
public:
    /// One connection, seen from the peer. Each operation returns false when the other side has
    /// gone or the peer ends.
    class Line
    {
    public:
        Line(int socket, int ending, std::atomic<qint64> &sent);

        /// Reads to the end of the head, and of the body that Content-Length tells of.
        bool readRequest();
        /// Waits for the first bytes of the other side, and reads none.
        bool awaitBytes();
        bool send(const QByteArray &bytes);
        /// The bytes and the end of the connection in one packet, so that the other side sees both
        /// at once.
        bool sendLast(const QByteArray &bytes);
        /// Sends the same bytes again and again until there are `total` or the other side has gone.
        bool flood(const QByteArray &bytes, qint64 total);
        /// One byte each `intervalMs`, and again from the start at the end.
        bool drip(const QByteArray &bytes, int intervalMs);
        /// Keeps silent until the other side goes; what it says is read and thrown away.
        bool listen();
        /// Neither reads nor writes for that long; for ever when it is below 0.
        bool idle(int milliseconds = -1);
        /// The other side sees a reset instead of an orderly end.
        void reset();
        /// Serves the connection in place of the operations above.
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
    /// Bytes that were handed to the system.
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
