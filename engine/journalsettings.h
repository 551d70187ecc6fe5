#pragma once

#include "shared/core/setting.h"

/// Section `journal`.
namespace settings::journal {

inline constexpr Setting<bool> enabled{
    .key = u"journal:enabled",
    .defaultValue = true,
    .about =
        u"Whether the service keeps what became of each message, for `queuectl history`. Read at the start.",
};
inline constexpr Setting<int> days{
    .key = u"journal:days",
    .defaultValue = 30,
    .smallest = 1,
    .about =
        u"For how many days after its last attempt a message is kept there. Read at the start.",
};
inline constexpr Setting<int> rows{
    .key = u"journal:rows",
    .defaultValue = 200'000,
    .smallest = 1000,
    .about =
        u"How many messages are kept there at most; 200,000 take about 30 MB. Read at the start.",
};

} // namespace settings::journal
