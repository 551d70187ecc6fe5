#pragma once

#include "shared/core/setting.h"

/// Section `atolpay`: read again before each message, as a file of the till's may have changed.
namespace settings::atolpay {

inline constexpr Setting<QString> url{
    .key = u"atolpay:url",
    .about = u"Address of AtolPay, with a closing slash; without it the last part of the path is "
             u"left out.",
};
inline constexpr Setting<QString> token{
    .key = u"atolpay:token",
    .about = u"Token for that address.",
};
/// The interface holds on to the value that it read last.
inline constexpr Setting<std::chrono::seconds> timeout{
    .key = u"atolpay:timeout",
    .defaultValue = 10,
    .about = u"Time that one request may take.",
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
