#pragma once

#include <QtGlobal>

namespace faults {

/// True where the long form of the tests is asked for: `./test --faults=long` sets
/// QUEUE_FAULTS=long.
inline bool longForm()
{
    return qgetenv("QUEUE_FAULTS") == "long";
}

/// The count to run: `inShort` inside `./test`, `inLong` where the long form is asked for.
inline int count(int inShort, int inLong)
{
    return longForm() ? inLong : inShort;
}

} // namespace faults
