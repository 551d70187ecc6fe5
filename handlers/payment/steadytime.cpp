#include "handlers/payment/steadytime.h"

#include <thread>

SteadyTime::~SteadyTime() = default;

SteadyTime::Moment SteadyTime::now() const
{
    return std::chrono::steady_clock::now();
}

void SteadyTime::sleepUntil(Moment moment) const
{
    // Takes up the sleep again where a signal has broken it off.
    std::this_thread::sleep_until(moment);
}
