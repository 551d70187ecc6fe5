#pragma once

#include "shared/net/httpheader.h"

#include <QObject>

#include <chrono>
#include <memory>

/// A small HTTP server for programs on this machine: it listens on 127.0.0.1 and passes on one
/// request at a time. A slow, silent or malformed client does not disturb the others. Thread: the
/// one that made it, which must run an event loop.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    struct Limits
    {
        /// The size of an unfinished request, head and body together.
        qint64 requestBytes = 1024 * 1024;
        qint64 requestLineBytes = 16 * 1024;
        /// For one connection more, the one that has been silent longest is closed.
        int connections = 200;
        /// From the first byte, or from the beginning of the connection, to the end of the request.
        std::chrono::seconds requestTime{10};
        /// Between two requests.
        std::chrono::seconds idleTime{30};
    };

    /// Listens at once; port 0 means any free one. On failure port() is 0, and the server has no
    /// clients.
    explicit HttpServer(int port, QObject *parent = nullptr);
    HttpServer(int port, const Limits &limits, QObject *parent = nullptr);
    ~HttpServer() override;

    /// Answers the current request. Adds a missing Content-Length; a HEAD request gets no body.
    /// Call once, while requestReceived() is being emitted.
    virtual void sendResponse(const ResponseHeader &header, const QByteArray &body);

    /// The port that the server listens on; 0 if it does not.
    int port() const;
    /// The system's error text if listening failed; otherwise empty.
    QString listenError() const { return listenError_; }

    /// Whether the number is a valid port.
    static bool isPort(int number) { return number >= 0 && number <= 65535; }

Q_SIGNALS:
    /// A request with any verb. Answer it with sendResponse() before the slot returns; otherwise
    /// the client gets status 500.
    void requestReceived(const RequestHeader &header, const QByteArray &body);

private:
    struct Clients;
    class Connection;
    class Listener;
    class Engine;

    void handle(Connection &connection, const QByteArray &body, const RequestHeader &header);

    std::unique_ptr<Engine> engine;
    Listener *listener = nullptr;
    Connection *current = nullptr;
    QString listenError_;
};
