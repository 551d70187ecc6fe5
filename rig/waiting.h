#pragma once

#include <chrono>
#include <functional>

namespace rig {

/// The timeout for conditions that only a fault can keep from becoming true: one minute, or the
/// environment variable STAND_PATIENCE in seconds.
std::chrono::seconds patience();

/// Runs the event loop until the condition holds. False if it does not hold after patience().
bool waitUntil(const std::function<bool()> &condition);

} // namespace rig
