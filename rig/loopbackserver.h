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

/// Listens on a free port of 127.0.0.1 in its own thread. Records the received HTTP requests and
/// plays one scripted reply for each, byte for byte. Without a script it answers 200 with an empty
/// body.
/// Thread: any; the server works in its own thread.
class LoopbackServer
{
public:
    struct Request
    {
        QByteArray verb;
        /// As in the request line: a path with its query, or the absolute form that a proxy gets.
        QByteArray target;
        QByteArray path;
        QByteArray query;
        /// In the order of arrival, with unchanged names.
        QList<std::pair<QByteArray, QByteArray>> headers;
        QByteArray body;
        /// The connection's number, from 1.
        int connection = 0;

        /// The value of a header (case-insensitive); null without one.
        QByteArray header(const QByteArray &name) const;
        QList<QByteArray> headerValues(const QByteArray &name) const;
    };

    /// The server's action after a request.
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
        /// The reply waits for release().
        bool isHeld = false;
        /// The bytes after this many are sent one by one, a few milliseconds apart; below 0: all at
        /// once.
        qsizetype dripAfter = -1;
        /// Replies after the head, without waiting for the body.
        bool isEarly = false;

        Reply closing() const;
        Reply resetting() const;
        Reply held() const;
        Reply drippingAfter(qsizetype count) const;
        Reply early() const;
    };

    /// A complete answer with its Content-Length; `headers` are lines that end in CRLF.
    static Reply answer(int status, const QByteArray &body = {}, const QByteArray &headers = {});
    static Reply raw(const QByteArray &bytes);
    /// Reads the request and sends nothing.
    static Reply silence();

    /// A closed port; no server of this program gets it later.
    static int unusedPort();

    LoopbackServer();
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer &) = delete;

    int port() const;
    /// A URL of this server, such as url("/path?query").
    QUrl url(const QString &target = QString()) const;
    void play(const QList<Reply> &replies);
    /// Sends the held replies.
    void release();
    /// Closes all open connections, as a server does with idle ones.
    void closeConnections();

    QList<Request> requests() const;
    int connectionCount() const;
    int openConnectionCount() const;
    /// All received bytes, even if they are not a request.
    QByteArray received() const;
    /// False if they did not arrive within some seconds.
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
    /// Runs `work` in the server's thread and waits for its end.
    void order(const std::function<void(Worker &)> &work);

    State state;
    std::function<void(Worker &)> ordered;
    bool isServing = false;
    int port_ = 0;
    int orders[2] = {-1, -1};
    std::thread thread;
};

} // namespace rig
