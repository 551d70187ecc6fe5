#pragma once

#include "rig/error.h"

namespace stand {

/// A scenario file that cannot be used. The text names the file, the place in it and what is wrong.
class ScenarioError : public rig::Error
{
    using rig::Error::Error;
};

/// A wrong option of the caller of the stand.
class UsageError : public ScenarioError
{
    using ScenarioError::ScenarioError;
};

} // namespace stand
