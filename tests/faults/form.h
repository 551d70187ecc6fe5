#pragma once

#include <QtGlobal>

namespace faults {

/// True when the long form of the tests is requested: `./test --faults=long` sets
/// QUEUE_FAULTS=long.
inline bool longForm()
{
    return qgetenv("QUEUE_FAULTS") == "long";
}

/// The number of repetitions: `inShort` inside `./test`, `inLong` in the long form.
inline int count(int inShort, int inLong)
{
    return longForm() ? inLong : inShort;
}

} // namespace faults
