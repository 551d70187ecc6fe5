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
    .about = u"Name that the platform knows the till by.",
};
inline constexpr Setting<QString> secretKey{
    .key = u"ApMindbox:secretKey",
    .about = u"Secret key of the endpoint.",
};
inline constexpr Setting<QString> pointOfContact{
    .key = u"ApMindbox:pointOfContact",
    .defaultValue = u"Offline",
    .about = u"Point of contact that every request names.",
};
inline constexpr Setting<QString> brand{
    .key = u"ApMindbox:brand",
    .defaultValue = u"Trekraip",
    .about = u"The brand; no request holds it.",
};
inline constexpr Setting<std::chrono::seconds> timeout{
    .key = u"ApMindbox:timeout",
    .defaultValue = 5,
    .about = u"Time that a request may take.",
};
inline constexpr SettingPattern redirect{
    .section = u"ApMindbox.Redirect",
    .names = u"operation, by its name",
    .example = u"Offline.GetCustomer = Offline.GetCustomer",
    .about = u"Further names of operations, by default their own, for the log at level debug.",
};

} // namespace settings::apmindbox
