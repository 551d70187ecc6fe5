#pragma once

namespace rig {

/// What a database does before a commit returns.
enum class Durability
{
    /// What was committed outlives the process, which is all that a test can end.
    OfTests,
    /// As a till runs it: what was committed outlives a power cut.
    OfTills,
};

} // namespace rig
