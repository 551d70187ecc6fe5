#pragma once

#include <QByteArray>

#include <chrono>

namespace rig {

/// Asks the control interface on a port of 127.0.0.1 over a connection of its own, and returns the
/// body of the answer; null when there was none in time. Runs the event loop, so that a service
/// whose log this process reads is not held up by it.
QByteArray askControl(quint16 port, const QByteArray &target, std::chrono::milliseconds limit);

} // namespace rig
