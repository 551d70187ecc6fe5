#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QUrl>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace rig {

/// Listens on a free port of 127.0.0.1 in a thread of its own, records the HTTP requests that
/// arrive and plays one scripted reply for each, byte for byte. Without a script it answers 200
/// with an empty body.
/// Thread: any; the server's own work is done in its thread.
class LoopbackServer
{
public:
    struct Request
    {
        QByteArray verb;
        /// As it stood in the request line: a path with its query, or what a proxy is given.
        QByteArray target;
        QByteArray path;
        QByteArray query;
        /// In the order of arrival, names as they came.
        QList<std::pair<QByteArray, QByteArray>> headers;
        QByteArray body;
        /// Counts the connections from 1.
        int connection = 0;

        /// The value, names compared without regard to case; null when there is none.
        QByteArray header(const QByteArray &name) const;
        QList<QByteArray> headerValues(const QByteArray &name) const;
    };

    /// What the server does once a request has arrived.
    struct Reply
    {
        enum class Then
        {
            KeepOpen,
            Close,
            Reset
        };

        QByteArray bytes;
        Then then = Then::KeepOpen;
        /// Nothing is sent before release().
        bool isHeld = false;
        /// The bytes behind this many go out one by one, a few milliseconds apart; below 0: all at
        /// once.
        qsizetype dripAfter = -1;
        /// Acts on the head, without waiting for the body.
        bool isEarly = false;

        Reply closing() const;
        Reply resetting() const;
        Reply held() const;
        Reply drippingAfter(qsizetype count) const;
        Reply early() const;
    };

    /// A whole answer with its Content-Length; `headers` are lines that end in CRLF.
    static Reply answer(int status, const QByteArray &body = {}, const QByteArray &headers = {});
    static Reply raw(const QByteArray &bytes);
    /// Takes the request and keeps silent.
    static Reply silence();

    /// A port on which nothing listens; nobody else is given it before the program ends.
    static int unusedPort();

    LoopbackServer();
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer &) = delete;

    int port() const;
    /// An address on this server, such as url("/path?query").
    QUrl url(const QString &target = QString()) const;
    void play(const QList<Reply> &replies);
    /// Sends what is held back.
    void release();
    /// Closes all connections that are open, as a server does with idle ones.
    void closeConnections();

    QList<Request> requests() const;
    int connectionCount() const;
    int openConnectionCount() const;
    /// Every byte that arrived, whether or not it makes a request.
    QByteArray received() const;
    /// False when they did not come within some seconds.
    bool waitForRequests(int count) const;
    bool waitForOpenConnections(int count) const;

private:
    class Worker;
    struct State
    {
        mutable std::mutex mutex;
        mutable std::condition_variable changed;
        QList<Reply> script;
        QList<Request> requests;
        QByteArray received;
        int connectionCount = 0;
        int openConnectionCount = 0;
    };

    void serve();
    /// Has the server's thread do this, and waits until it is done.
    void order(const std::function<void(Worker &)> &work);

    State state;
    std::function<void(Worker &)> ordered;
    bool isServing = false;
    int port_ = 0;
    int orders[2] = {-1, -1};
    std::thread thread;
};

} // namespace rig
