#pragma once

#include <QByteArray>

#include <chrono>

namespace rig {

/// Sends a request to the control interface on a port of 127.0.0.1 over a new connection. Returns
/// the body of the answer; null without one in time. Runs the event loop, so that a service whose
/// log this process reads is not blocked.
QByteArray askControl(quint16 port, const QByteArray &target, std::chrono::milliseconds limit);

} // namespace rig
