#pragma once

#include "shared/net/httpheader.h"

#include <QObject>

#include <chrono>
#include <memory>

/// A small HTTP server for the programs of this machine: it listens on 127.0.0.1 and hands out one
/// request after another. A client that is slow, silent or sends rubbish takes nothing from the
/// others. Thread: the one that made it, which must run an event loop.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    struct Limits
    {
        /// Of an unfinished request, head and body together.
        qint64 requestBytes = 1024 * 1024;
        qint64 requestLineBytes = 16 * 1024;
        /// When one more comes, the connection that has been silent longest is closed.
        int connections = 200;
        /// From the first byte, or the beginning of the connection, to the end of the request.
        std::chrono::seconds requestTime{10};
        /// Between two requests.
        std::chrono::seconds idleTime{30};
    };

    /// Listens at once; port 0 takes a free one. When that fails, port() is 0 and the object stays
    /// without clients.
    explicit HttpServer(int port, QObject *parent = nullptr);
    HttpServer(int port, const Limits &limits, QObject *parent = nullptr);
    ~HttpServer() override;

    /// Answers the current request. A content length that is missing is added; the body is held
    /// back from a HEAD request. To be called once, while requestReceived() is being emitted.
    virtual void sendResponse(const ResponseHeader &header, const QByteArray &body);

    /// The port that the server listens on, or 0.
    int port() const;
    /// Why it does not listen, in the system's words; empty when it does.
    QString listenError() const { return listenError_; }

    /// Whether a server can be asked to listen there.
    static bool isPort(int number) { return number >= 0 && number <= 65535; }

Q_SIGNALS:
    /// A request has come in, with any verb. It is answered before the slot returns, by
    /// sendResponse(); a request that nobody answers gets status 500.
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
