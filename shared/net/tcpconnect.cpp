#include "shared/net/tcpconnect.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QHostInfo>
#include <QTcpSocket>
#include <QTimer>

namespace {

QList<QHostAddress> lookUp(const QString &host, const QDeadlineTimer &end)
{
    const QHostAddress literal(host);
    if (!literal.isNull())
        return {literal};

    // The blocking lookup knows no timeout.
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

} // namespace

bool connectSocket(QTcpSocket &socket, const QString &host, quint16 port, const QDeadlineTimer &end)
{
    const QList<QHostAddress> addresses = lookUp(host, end);
    for (qsizetype i = 0; i < addresses.size() && !end.hasExpired(); ++i) {
        const qint64 share = end.remainingTime() / (addresses.size() - i);
        socket.connectToHost(addresses.at(i), port);
        if (socket.waitForConnected(static_cast<int>(share)))
            return true;
        socket.abort();
    }
    return false;
}
