#include "rig/controlport.h"

#include <QEventLoop>
#include <QTcpSocket>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace rig {

QByteArray askControl(quint16 port, const QByteArray &target, std::chrono::milliseconds limit)
{
    QTcpSocket socket;
    QEventLoop loop;
    QObject::connect(&socket, &QTcpSocket::disconnected, &loop, &QEventLoop::quit);
    QObject::connect(&socket, &QTcpSocket::errorOccurred, &loop, &QEventLoop::quit);
    QTimer::singleShot(limit, &loop, &QEventLoop::quit);
    socket.connectToHost(u"127.0.0.1"_s, port);
    socket.write("GET " + target + " HTTP/1.1\r\nHost: till\r\nConnection: close\r\n\r\n");
    // A closed port may have refused the connection already.
    if (socket.state() != QAbstractSocket::UnconnectedState)
        loop.exec();
    const QByteArray answer = socket.readAll();
    const qsizetype end = answer.indexOf("\r\n\r\n");
    return end < 0 ? QByteArray() : answer.mid(end + 4);
}

} // namespace rig
