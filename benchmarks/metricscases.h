#pragma once

#include "benchmarks/inserttimes.h"
#include "benchmarks/report.h"
#include "benchmarks/scene.h"

/// What `queuectl metrics` takes of a till with a long queue, and what till and service notice of
/// it.
class MetricsCases
{
public:
    MetricsCases(Scene &scene, Report &report);

    void run();

private:
    /// One call.
    struct Call
    {
        double milliseconds = 0;
        /// At its highest.
        double residentMb = 0;
    };

    /// Till and service for some seconds.
    struct Pace
    {
        double deliveries = 0;
        /// On SQLite alone.
        InsertTimes inserts;
    };

    void alone();
    void beside();
    Call call() const;
    /// With `isAsked`, `queuectl metrics` runs once a second meanwhile.
    Pace pace(bool isAsked);

    Scene &scene;
    Report &report;
};
