#pragma once

#include "shared/core/setting.h"

/// Section `queue`.
namespace settings::queue {

inline constexpr Setting<std::chrono::seconds> timeout{
    .key = u"queue:timeout",
    .defaultValue = 20,
    .smallest = 1,
    .about = u"Time between two polls of the table `message`. Read at the start.",
};
inline constexpr Setting<int> port{
    .key = u"queue:port",
    .defaultValue = 28085,
    .about = u"Port of the control interface on 127.0.0.1. Read at the start.",
};

} // namespace settings::queue
