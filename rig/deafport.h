#pragma once

#include <QByteArray>

#include <vector>

namespace rig {

/// A port whose queue of connections is full: the handshake of a further one gets no answer.
class DeafPort
{
public:
    /// `address` is one of this machine, IPv4; port 0 means a free one.
    explicit DeafPort(const QByteArray &address = "127.0.0.1", int port = 0);
    ~DeafPort();
    DeafPort(const DeafPort &) = delete;
    DeafPort &operator=(const DeafPort &) = delete;

    int port() const { return port_; }

private:
    int port_ = 0;
    std::vector<int> sockets;
};

} // namespace rig
