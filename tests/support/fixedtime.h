#pragma once

#include "shared/core/currenttime.h"
#include "shared/core/mockfactory.h"

/// The clock of one test, installed for its lifetime; only the test moves it.
class FixedTime
{
public:
    explicit FixedTime(qint64 seconds)
        : clock(std::make_shared<Clock>())
    {
        set(seconds);
        MockFactory<CurrentTime>::install(clock);
    }
    ~FixedTime() { MockFactory<CurrentTime>::install(nullptr); }
    FixedTime(const FixedTime &) = delete;

    /// Seconds since the epoch.
    void set(qint64 seconds) { clock->now = QDateTime::fromSecsSinceEpoch(seconds); }

private:
    struct Clock : CurrentTime
    {
        QDateTime now;
        QDateTime currentDateTime() const override { return now; }
    };

    std::shared_ptr<Clock> clock;
};
