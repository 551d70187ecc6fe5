#include "shared/net/tcpclient.h"

#include "shared/core/inflight.h"
#include "shared/net/exchangeobserver.h"
#include "shared/net/tcpconnect.h"

#include <QNetworkProxy>

#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr int defaultTimeoutSeconds = 5;
constexpr int maxTimeoutSeconds = 24 * 60 * 60;
/// The system does not tell when the last byte was acknowledged, it has to be asked.
constexpr int arrivalCheckMs = 5;

} // namespace

TcpClient::TcpClient(QObject *parent)
    : QObject(parent)
    , socket(this)
{
    socket.setProxy(QNetworkProxy::NoProxy);
    // What the server says is nobody's, and must not pile up while something else is waited for.
    connect(&socket, &QTcpSocket::readyRead, this,
            [this] { socket.skip(socket.bytesAvailable()); });
}

TcpClient::~TcpClient() = default;

void TcpClient::setHost(const QString &newHost)
{
    host = newHost;
}

void TcpClient::setPort(int newPort)
{
    port = newPort;
}

void TcpClient::setTimeout(int timeout)
{
    timeoutSeconds = timeout;
}

bool TcpClient::connectToServer()
{
    disconnectFromServer();
    // The low 16 bits of any other number would be somebody else's port.
    if (port < 1 || port > 65535)
        return false;

    const QDeadlineTimer end = deadline();
    const inflight::CallGuard guard{std::chrono::milliseconds(end.remainingTime())};
    const bool isConnected = connectSocket(socket, host, static_cast<quint16>(port), end);
    if (isConnected)
        http::tellObserver({});
    else
        http::tellObserver({http::FailureKind::Network, 0, socket.errorString(), {}});
    return isConnected;
}

void TcpClient::disconnectFromServer()
{
    const QDeadlineTimer end = deadline();
    const inflight::CallGuard guard{std::chrono::milliseconds(end.remainingTime())};
    flush(end);
    if (socket.state() == QAbstractSocket::ConnectedState) {
        // The server is told that this was all, and closing waits for the bytes on their way: what
        // a server says meanwhile would turn the close into a reset, which takes them back.
        ::shutdown(static_cast<int>(socket.socketDescriptor()), SHUT_WR);
        awaitArrival(end);
    }
    socket.abort();
}

void TcpClient::write(const QByteArray &data)
{
    if (socket.state() != QAbstractSocket::ConnectedState)
        return;
    const QDeadlineTimer end = deadline();
    const inflight::CallGuard guard{std::chrono::milliseconds(end.remainingTime())};
    socket.write(data);
    flush(end);
}

QDeadlineTimer TcpClient::deadline() const
{
    const int seconds = timeoutSeconds > 0 ? timeoutSeconds : defaultTimeoutSeconds;
    return QDeadlineTimer(std::min(seconds, maxTimeoutSeconds) * 1000);
}

void TcpClient::flush(const QDeadlineTimer &end)
{
    while (socket.bytesToWrite() > 0
           && socket.waitForBytesWritten(static_cast<int>(end.remainingTime()))) {
    }
}

void TcpClient::awaitArrival(const QDeadlineTimer &end)
{
    while (socket.state() == QAbstractSocket::ConnectedState && !end.hasExpired()) {
        int unacknowledged = 0;
        // The end of the stream counts as one.
        if (::ioctl(static_cast<int>(socket.socketDescriptor()), SIOCOUTQ, &unacknowledged) != 0
            || unacknowledged <= 1)
            break;
        socket.waitForReadyRead(arrivalCheckMs);
    }
    // Closing with unread bytes would be a reset, too.
    socket.waitForReadyRead(0);
}
