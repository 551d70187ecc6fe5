#pragma once

#include <chrono>

/// The clock and the pause of a poll. Made through MockFactory, so that a test can set both.
/// Thread: any.
class SteadyTime
{
public:
    using Moment = std::chrono::steady_clock::time_point;

    virtual ~SteadyTime();

    virtual Moment now() const;
    /// Blocks the calling thread; returns at once when `moment` is past. A signal does not shorten
    /// it.
    virtual void sleepUntil(Moment moment) const;
};
