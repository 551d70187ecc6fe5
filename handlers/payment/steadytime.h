#pragma once

#include <chrono>

/// The clock and the pause of a poll. Created by MockFactory, so that a test can replace both.
/// Thread: any.
class SteadyTime
{
public:
    using Moment = std::chrono::steady_clock::time_point;

    virtual ~SteadyTime();

    virtual Moment now() const;
    /// Blocks the calling thread until `moment`, also if signals interrupt it; returns at once if
    /// `moment` has passed.
    virtual void sleepUntil(Moment moment) const;
};
