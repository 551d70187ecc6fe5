#pragma once

#include "shared/core/setting.h"

/// Section `Loymax`.
namespace settings::loymax {

inline constexpr Setting<std::chrono::seconds> timeout{
    .key = u"Loymax:timeout",
    .defaultValue = 20,
    .about = u"Timeout of an exchange. Read by each pass.",
};
/// Read for each reply.
inline constexpr Setting<QStringList> uncriticalErrors{
    .key = u"Loymax:uncriticalErrors",
    .defaultValue = u"2, 101, 102, 103, 110, 111, 201, 202, 203, 204, 205, 206, 208, 209, 210, "
                    u"211, 214, 215, 216, 218, 220,221, 222, 223, 224, 225",
    .about = u"Codes that finish a message although the service did not carry it out.",
};

} // namespace settings::loymax
