#pragma once

#include <QString>

class QDeadlineTimer;
class QTcpSocket;

/// Connects `socket` to `host`, a name or an address, and returns whether it could, at `end` at the
/// latest. The addresses of a name are tried in turn, each for its share of the time that is left,
/// so one that does not answer keeps nobody from the next. When it could not, the thread's observer
/// is told why. Thread: the socket's, which need not run an event loop.
bool connectSocket(QTcpSocket &socket, const QString &host, quint16 port,
                   const QDeadlineTimer &end);
