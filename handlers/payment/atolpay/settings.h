#pragma once

#include "shared/core/setting.h"

/// Section `atolpay`: read for each message, so that changes take effect.
namespace settings::atolpay {

inline constexpr Setting<QString> url{
    .key = u"atolpay:url",
    .about =
        u"Address of AtolPay. It must end with a slash; otherwise the last part of its path is "
        u"replaced.",
};
inline constexpr Setting<QString> token{
    .key = u"atolpay:token",
    .about = u"Token for that address.",
};
/// The interface keeps the last value that it has read.
inline constexpr Setting<std::chrono::seconds> timeout{
    .key = u"atolpay:timeout",
    .defaultValue = 10,
    .about = u"Timeout of a request.",
};
inline constexpr Setting<QString> currency{
    .key = u"atolpay:currency",
    .defaultValue = u"RUB",
    .about = u"Currency of new payments, which this service does not make.",
};
inline constexpr Setting<QString> rmkId{
    .key = u"atolpay:rmkId",
    .about = u"Till of new payments, which this service does not make.",
};

} // namespace settings::atolpay
