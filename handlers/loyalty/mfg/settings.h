#pragma once

#include "shared/core/setting.h"

/// Section `Mfg`: read by the constructor of each client.
namespace settings::mfg {

inline constexpr Setting<QString> host{
    .key = u"Mfg:host",
    .defaultValue = u"http://localhost",
    .about = u"Address of the Mfg service.",
};
inline constexpr Setting<QString> path{
    .key = u"Mfg:path",
    .defaultValue = u"/api/ax/xpp/v1",
    .about = u"Path of the service's operations.",
};
inline constexpr Setting<QString> verificationPath{
    .key = u"Mfg:verificationPath",
    .defaultValue = u"/api/twofa/msg/v1",
    .about = u"Path of the verification by SMS.",
};
inline constexpr Setting<QString> user{
    .key = u"Mfg:user",
    .about = u"Account at the service.",
};
inline constexpr Setting<QString> password{
    .key = u"Mfg:password",
    .about = u"Password of the account.",
};
inline constexpr Setting<std::chrono::milliseconds> timeout{
    .key = u"Mfg:timeout",
    .defaultValue = 10'000,
    .about = u"Timeout of an exchange.",
};
inline constexpr Setting<QString> brand{
    .key = u"Mfg:brand",
    .about = u"Brand of the shop at the service.",
};
inline constexpr Setting<QString> verificationBrand{
    .key = u"Mfg:verificationBrand",
    .about = u"Brand for verifications; by default `brand`. Not sent in any request.",
};
inline constexpr Setting<QString> onlineStore{
    .key = u"Mfg:onlineStore",
    .about = u"Name of the shop at the service.",
};
inline constexpr Setting<QString> terminal{
    .key = u"Mfg:terminal",
    .about = u"Name of the till at the service.",
};

} // namespace settings::mfg
