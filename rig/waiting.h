#pragma once

#include <chrono>
#include <functional>

namespace rig {

/// How long to wait for what only a fault can keep from happening: a minute, or what the
/// environment variable STAND_PATIENCE says, in seconds.
std::chrono::seconds patience();

/// Runs the event loop until the condition holds. False when it still does not after patience().
bool waitUntil(const std::function<bool()> &condition);

} // namespace rig
