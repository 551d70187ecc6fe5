#pragma once

namespace rig {

/// What a commit guarantees.
enum class Durability
{
    /// Survives the end of the process, which is all that a test can cause.
    OfTests,
    /// Survives a power cut, as on a till.
    OfTills,
};

} // namespace rig
