#include "shared/net/tcpconnect.h"

#include "shared/net/exchangeobserver.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QHostInfo>
#include <QTcpSocket>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace {

QList<QHostAddress> lookUp(const QString &host, const QDeadlineTimer &end)
{
    const QHostAddress literal(host);
    if (!literal.isNull())
        return {literal};

    // The blocking lookup has no timeout.
    QList<QHostAddress> addresses;
    QEventLoop loop;
    const int lookup =
        QHostInfo::lookupHost(host, &loop, [&addresses, &loop](const QHostInfo &info) {
            addresses = info.addresses();
            loop.quit();
        });
    QTimer::singleShot(static_cast<int>(end.remainingTime()), &loop, &QEventLoop::quit);
    loop.exec(QEventLoop::ExcludeUserInputEvents);
    QHostInfo::abortHostLookup(lookup);
    return addresses;
}

/// Why no address was reached; `error` is that of the last one.
QString failureText(const QString &server, QAbstractSocket::SocketError error)
{
    return error == QAbstractSocket::ConnectionRefusedError
               ? u"Сервер %1 отклонил соединение"_s.arg(server)
               : u"Сервер %1 не ответил вовремя"_s.arg(server);
}

} // namespace

bool connectSocket(QTcpSocket &socket, const QString &host, quint16 port, const QDeadlineTimer &end)
{
    const QList<QHostAddress> addresses = lookUp(host, end);
    QString reason = u"Не найден адрес сервера %1"_s.arg(host);
    for (qsizetype i = 0; i < addresses.size() && !end.hasExpired(); ++i) {
        const qint64 share = end.remainingTime() / (addresses.size() - i);
        socket.connectToHost(addresses.at(i), port);
        if (socket.waitForConnected(static_cast<int>(share)))
            return true;
        reason = failureText(u"%1:%2"_s.arg(host, QString::number(port)), socket.error());
        socket.abort();
    }
    http::tellObserver({.kind = http::FailureKind::Network, .text = reason});
    return false;
}
