#include "shared/net/tcpclient.h"

#include "shared/core/inflight.h"
#include "shared/net/exchangeobserver.h"
#include "shared/net/tcpconnect.h"

#include <QNetworkProxy>

#include <algorithm>
#include <utility>

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds defaultTimeout{5};
constexpr std::chrono::seconds maxTimeout = std::chrono::hours(24);
/// The system does not notify of the last acknowledgement, so it is polled.
constexpr std::chrono::milliseconds arrivalCheck{5};

} // namespace

TcpClient::TcpClient(QObject *parent)
    : QObject(parent)
    , socket(this)
{
    socket.setProxy(QNetworkProxy::NoProxy);
    // Data from the server is discarded, so that it does not accumulate.
    connect(&socket, &QTcpSocket::readyRead, this,
            [this] { socket.skip(socket.bytesAvailable()); });
}

TcpClient::~TcpClient()
{
    endExchange();
}

void TcpClient::setHost(const QString &newHost)
{
    host = newHost;
}

void TcpClient::setPort(int newPort)
{
    port = newPort;
}

void TcpClient::setTimeout(int seconds)
{
    timeout = std::chrono::seconds(seconds);
}

bool TcpClient::connectToServer()
{
    disconnectFromServer();
    // Other numbers would be truncated to 16 bits, and so to another port.
    if (port < 1 || port > 65535) {
        http::tellObserver(
            {.kind = http::FailureKind::Request,
             .text = u"Недопустимый порт %1, нужно число от 1 до 65535"_s.arg(port)});
        return false;
    }
    const QDeadlineTimer end = deadline();
    const inflight::CallGuard guard{std::chrono::milliseconds(end.remainingTime())};
    hasSentAll = true;
    isExchangeOpen = connectSocket(socket, host, static_cast<quint16>(port), end);
    return isExchangeOpen;
}

void TcpClient::disconnectFromServer()
{
    const QDeadlineTimer end = deadline();
    const inflight::CallGuard guard{std::chrono::milliseconds(end.remainingTime())};
    flush(end);
    if (socket.state() == QAbstractSocket::ConnectedState) {
        // Signals the end of the data and waits for the bytes in transit. If the server sends
        // anything meanwhile, closing at once would cause a reset, which discards these bytes.
        ::shutdown(static_cast<int>(socket.socketDescriptor()), SHUT_WR);
        awaitArrival(end);
    }
    socket.abort();
    endExchange();
}

void TcpClient::write(const QByteArray &data)
{
    if (socket.state() != QAbstractSocket::ConnectedState) {
        hasSentAll = false;
        return;
    }
    const QDeadlineTimer end = deadline();
    const inflight::CallGuard guard{std::chrono::milliseconds(end.remainingTime())};
    socket.write(data);
    flush(end);
}

QDeadlineTimer TcpClient::deadline() const
{
    return QDeadlineTimer(std::min(timeout.count() > 0 ? timeout : defaultTimeout, maxTimeout));
}

void TcpClient::flush(const QDeadlineTimer &end)
{
    while (socket.bytesToWrite() > 0) {
        if (!socket.waitForBytesWritten(static_cast<int>(end.remainingTime()))) {
            hasSentAll = false;
            return;
        }
    }
}

void TcpClient::awaitArrival(const QDeadlineTimer &end)
{
    while (socket.state() == QAbstractSocket::ConnectedState) {
        int unacknowledged = 0;
        // The FIN counts as one byte.
        if (::ioctl(static_cast<int>(socket.socketDescriptor()), SIOCOUTQ, &unacknowledged) != 0
            || unacknowledged <= 1)
            break;
        // Asked here, because QTcpSocket reports a reset as an ordinary end of the connection.
        pollfd sign = {static_cast<int>(socket.socketDescriptor()), POLLIN, 0};
        const bool hasSign = ::poll(&sign, 1, static_cast<int>(arrivalCheck.count())) > 0;
        if (end.hasExpired() || (hasSign && (sign.revents & POLLERR) != 0)) {
            hasSentAll = false;
            break;
        }
        if (hasSign)
            socket.waitForReadyRead(0);
    }
    // Closing with unread bytes would cause a reset.
    socket.waitForReadyRead(0);
}

void TcpClient::endExchange()
{
    if (!std::exchange(isExchangeOpen, false))
        return;
    if (hasSentAll)
        http::tellObserver({});
    else
        http::tellObserver({.kind = http::FailureKind::Network,
                            .text = u"Сервер %1:%2 не принял всё отправленное"_s.arg(
                                host, QString::number(port))});
}
