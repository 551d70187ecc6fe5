#pragma once

#include "shared/core/setting.h"

/// Section `Spasibo`.
namespace settings::spasibo {

inline constexpr Setting<QStringList> restRetryErrors{
    .key = u"Spasibo:restRetryErrors",
    .defaultValue = u"500,503,504,422 IDENTITY_NOT_FOUND,422 CARD_NOT_FOUND,422 REG_ID_IS_BUSY,"
                    u"422 PURCHASE_STATUS_NOT_VALID",
    .about = u"Answers after which a message of type `spasibo` is sent again, separated by commas: "
             u"a status, or a status, a blank and the reply's error code. Read by each pass.",
};
inline constexpr Setting<int> sendLimit{
    .key = u"Spasibo:sendLimit",
    .defaultValue = 20,
    .about =
        u"Number of answered attempts after which such a message is dropped. Read by each pass.",
};
inline constexpr Setting<std::chrono::seconds> timeout{
    .key = u"Spasibo:timeout",
    .defaultValue = 30,
    .about = u"Timeout of a request whose message has none.",
};

} // namespace settings::spasibo
