#pragma once

#include "shared/core/setting.h"

namespace settings {

/// Read once in each pass.
inline constexpr SettingPattern processing{
    .section = u"processing",
    .names = u"currency, by its code",
    .example = u"643 = https://processing.example/operations",
    .about = u"Addresses to which messages of type `processing` are posted. Read by each pass.",
};

} // namespace settings
