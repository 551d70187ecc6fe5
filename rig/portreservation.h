#pragma once

#include <QtGlobal>

namespace rig {

/// A port of 127.0.0.1 that the system has given to us alone. Nobody answers there until listen().
class PortReservation
{
public:
    /// Port 0: any free one. Throws Error when the port stays taken for two seconds.
    explicit PortReservation(quint16 port = 0);
    ~PortReservation();
    PortReservation(const PortReservation &) = delete;

    quint16 port() const;
    /// Callers are accepted from now on; the result is a descriptor for QTcpServer, which owns it.
    int listen();
    /// Callers are refused again; the port stays ours.
    void refuse();
    /// Lets one other process listen on the port, while it still is given to nobody else.
    void lend();

private:
    int descriptor = -1;
    quint16 port_ = 0;
};

} // namespace rig
