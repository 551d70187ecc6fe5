#include "log4qt/level.h"

#include <array>
#include <utility>

using namespace Qt::StringLiterals;

namespace Log4Qt {

namespace {

constexpr std::array names{
    std::pair{Level::NULL_INT, "NULL"_L1},   std::pair{Level::ALL_INT, "ALL"_L1},
    std::pair{Level::TRACE_INT, "TRACE"_L1}, std::pair{Level::DEBUG_INT, "DEBUG"_L1},
    std::pair{Level::INFO_INT, "INFO"_L1},   std::pair{Level::WARN_INT, "WARN"_L1},
    std::pair{Level::ERROR_INT, "ERROR"_L1}, std::pair{Level::FATAL_INT, "FATAL"_L1},
    std::pair{Level::OFF_INT, "OFF"_L1},
};

} // namespace

QString Level::toString() const
{
    for (const auto &[known, name] : names) {
        if (known == value)
            return name;
    }
    return {};
}

Level Level::fromString(const QString &level, bool *ok)
{
    for (const auto &[known, name] : names) {
        if (level.compare(name, Qt::CaseInsensitive) == 0) {
            if (ok)
                *ok = true;
            return known;
        }
    }
    if (ok)
        *ok = false;
    return NULL_INT;
}

} // namespace Log4Qt
