#pragma once

#include <QDeadlineTimer>
#include <QObject>
#include <QString>
#include <QTcpSocket>

#include <chrono>

/// A plain TCP connection whose operations block until they are done or the timeout has passed. One
/// exchange lasts from connecting to closing; at its end the thread's observer receives the result
/// (exchangeobserver.h). Thread: the one that made it; an event loop is not needed.
class TcpClient : public QObject
{
    Q_OBJECT

public:
    explicit TcpClient(QObject *parent = nullptr);
    ~TcpClient() override;

    virtual void setHost(const QString &host);
    virtual void setPort(int port);
    /// The limit of each operation below in seconds, name lookup included; below 1 means 5.
    virtual void setTimeout(int seconds);
    /// Tries each address of a name. False without a connection within the timeout, or if the port
    /// is not between 1 and 65535. Closes an open connection first.
    virtual bool connectToServer();
    /// Sends the remaining bytes and closes gracefully, so that all data arrives at a server that
    /// reads it within the timeout.
    virtual void disconnectFromServer();
    /// Returns when the bytes are in the socket's buffer or the timeout has passed;
    /// disconnectFromServer() sends the rest. Does nothing without a connection.
    virtual void write(const QByteArray &data);

private:
    QDeadlineTimer deadline() const;
    /// Waits until all bytes have left this process.
    void flush(const QDeadlineTimer &deadline);
    /// Waits until the server's TCP has acknowledged every byte.
    void awaitArrival(const QDeadlineTimer &deadline);
    /// Passes the result to the observer if a connection was made since the last call.
    void endExchange();

    QTcpSocket socket;
    QString host;
    int port = 0;
    std::chrono::seconds timeout{0};
    bool isExchangeOpen = false;
    /// No byte written since the connection was made is known to be lost.
    bool hasSentAll = true;
};
