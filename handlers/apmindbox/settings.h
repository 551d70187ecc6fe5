#pragma once

#include "shared/core/setting.h"

/// Section `ApMindbox`: read by the constructor of each client.
namespace settings::apmindbox {

inline constexpr Setting<QString> url{
    .key = u"ApMindbox:url",
    .defaultValue = u"https://api.mindbox.ru/v3/operations/sync",
    .about = u"Address of the Mindbox operations, for messages of type `apmindbox`.",
};
inline constexpr Setting<QString> endpoint{
    .key = u"ApMindbox:endpoint",
    .about = u"The till's name at the platform.",
};
inline constexpr Setting<QString> secretKey{
    .key = u"ApMindbox:secretKey",
    .about = u"Secret key of the endpoint.",
};
inline constexpr Setting<QString> pointOfContact{
    .key = u"ApMindbox:pointOfContact",
    .defaultValue = u"Offline",
    .about = u"Point of contact, sent in every request.",
};
inline constexpr Setting<QString> brand{
    .key = u"ApMindbox:brand",
    .defaultValue = u"Trekraip",
    .about = u"The brand. Not sent in any request.",
};
inline constexpr Setting<std::chrono::seconds> timeout{
    .key = u"ApMindbox:timeout",
    .defaultValue = 5,
    .about = u"Timeout of a request.",
};
inline constexpr SettingPattern redirect{
    .section = u"ApMindbox.Redirect",
    .names = u"operation, by its name",
    .example = u"Offline.GetCustomer = Offline.GetCustomer",
    .about = u"Other names of operations for the log at level debug; by default their own names.",
};

} // namespace settings::apmindbox
