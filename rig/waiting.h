#pragma once

#include <functional>

namespace rig {

/// Runs the event loop until the condition holds. False when it still does not after the patience of
/// a minute (environment variable STAND_PATIENCE, in seconds), which only a fault can use up.
bool waitUntil(const std::function<bool()> &condition);

} // namespace rig
