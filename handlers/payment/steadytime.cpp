#include "handlers/payment/steadytime.h"

#include "shared/core/inflight.h"

#include <cerrno>
#include <ctime>

SteadyTime::~SteadyTime() = default;

SteadyTime::Moment SteadyTime::now() const
{
    return std::chrono::steady_clock::now();
}

void SteadyTime::sleepUntil(Moment moment) const
{
    const inflight::CallGuard guard{
        std::chrono::duration_cast<std::chrono::milliseconds>(moment - now())};
    // The steady clock is CLOCK_MONOTONIC here. The time is absolute, so that repeated
    // interruptions by signals do not lengthen the sleep.
    const auto sinceBoot = std::chrono::ceil<std::chrono::nanoseconds>(moment.time_since_epoch());
    const auto seconds = std::chrono::floor<std::chrono::seconds>(sinceBoot);
    timespec target = {};
    target.tv_sec = seconds.count();
    target.tv_nsec = (sinceBoot - seconds).count();
    while (now() < moment) {
        if (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &target, nullptr) != EINTR)
            return;
    }
}
