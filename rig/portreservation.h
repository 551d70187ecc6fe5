#pragma once

#include <QtGlobal>

namespace rig {

/// Reserves a port of 127.0.0.1 for this process. Connections are refused until listen().
class PortReservation
{
public:
    /// Port 0: any free one. Throws Error if the port is in use for two seconds.
    explicit PortReservation(quint16 port = 0);
    ~PortReservation();
    PortReservation(const PortReservation &) = delete;

    quint16 port() const;
    /// From now on connections are accepted. Returns a descriptor for QTcpServer, which owns it.
    int listen();
    /// Refuses connections again; the port stays reserved.
    void refuse();
    /// Lets one other process listen on the port while it stays reserved.
    void lend();

private:
    int descriptor = -1;
    quint16 port_ = 0;
};

} // namespace rig
