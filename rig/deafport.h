#pragma once

#include <QByteArray>

#include <vector>

namespace rig {

/// A port with a full accept queue: further connection attempts get no answer.
class DeafPort
{
public:
    /// `address` is an IPv4 address of this machine; port 0 means any free one.
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
