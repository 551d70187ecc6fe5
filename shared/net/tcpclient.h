#pragma once

#include <QDeadlineTimer>
#include <QObject>
#include <QString>
#include <QTcpSocket>

#include <chrono>

/// A plain TCP connection whose operations block until they are done or the timeout has passed.
/// From connecting to closing is one exchange; the thread's observer is told at its end
/// (exchangeobserver.h). Thread: the one that made it; it need not run an event loop.
class TcpClient : public QObject
{
    Q_OBJECT

public:
    explicit TcpClient(QObject *parent = nullptr);
    ~TcpClient() override;

    virtual void setHost(const QString &host);
    virtual void setPort(int port);
    /// Seconds that each of the operations below may take, name lookup included; 0 and less mean 5.
    virtual void setTimeout(int seconds);
    /// Tries each address of a name. False when there is no connection within the timeout, or the
    /// port is not one of 1 to 65535. An open connection is closed first.
    virtual bool connectToServer();
    /// Sends what is left and closes in an orderly way, so that everything written arrives at a
    /// server that reads within the timeout.
    virtual void disconnectFromServer();
    /// Returns when the bytes are handed to the system, or the timeout has passed; what has not
    /// been handed over by then goes out with disconnectFromServer(). Without a connection nothing
    /// happens.
    virtual void write(const QByteArray &data);

private:
    QDeadlineTimer deadline() const;
    /// Waits until no byte is left in this process.
    void flush(const QDeadlineTimer &deadline);
    /// Waits until the server's system has acknowledged every byte.
    void awaitArrival(const QDeadlineTimer &deadline);
    /// Tells the observer, if a connection was made since the last time.
    void endExchange();

    QTcpSocket socket;
    QString host;
    int port = 0;
    std::chrono::seconds timeout{0};
    bool isExchangeOpen = false;
    /// Nothing that was written since the connection was made is known to be lost.
    bool hasSentAll = true;
};
