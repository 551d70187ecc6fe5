#pragma once

#include <QString>

class QDeadlineTimer;
class QTcpSocket;

/// Connects `socket` to `host`, a name or an address. Returns at `end` at the latest, with true on
/// success. The addresses of a name are tried in turn, each for its share of the remaining time, so
/// that an address that does not answer leaves time for the next. On failure the thread's observer
/// receives the reason. Thread: the socket's; an event loop is not needed.
bool connectSocket(QTcpSocket &socket, const QString &host, quint16 port,
                   const QDeadlineTimer &end);
