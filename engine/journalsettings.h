#pragma once

#include "shared/core/setting.h"

/// Section `journal`.
namespace settings::journal {

inline constexpr Setting<bool> enabled{
    .key = u"journal:enabled",
    .defaultValue = true,
    .about =
        u"Whether the service records the outcome of each message, for `queuectl history`. Read at the start.",
};
inline constexpr Setting<int> days{
    .key = u"journal:days",
    .defaultValue = 30,
    .smallest = 1,
    .about = u"Days for which an outcome is kept after the last attempt. Read at the start.",
};
inline constexpr Setting<int> rows{
    .key = u"journal:rows",
    .defaultValue = 200'000,
    .smallest = 1000,
    .about = u"Largest number of outcomes; 200,000 take about 30 MB. Read at the start.",
};

} // namespace settings::journal
