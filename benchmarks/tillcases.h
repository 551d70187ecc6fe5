#pragma once

#include "benchmarks/inserttimes.h"
#include "benchmarks/report.h"
#include "benchmarks/scene.h"

#include <QString>

/// The till's INSERT every 50 ms while types drain, with several commit times. SQLite only.
class TillCases
{
public:
    TillCases(Scene &scene, Report &report);

    /// Runs the chosen cases, or all.
    void run();

private:
    enum class Program
    {
        BareLoops,
        GatedBareLoops,
        Former,
        Service
    };

    /// The till's times while a program drains, and the program's throughput.
    struct Figures
    {
        InsertTimes inserts;
        /// Failed deletions of the program; each message is delivered again.
        int failedRemovals = 0;
        double deliveries = 0;
    };

    void compare(const TillCase &with);
    void write(const TillCase &with, const QString &program, const Figures &seen);
    void judge(const TillCase &with, const Figures &seen, double gain);
    Figures measure(const TillCase &with, Program program);
    std::unique_ptr<Process> start(const TillCase &with, Program program, const QStringList &names,
                                   int each, const Scene::Variables &disk);

    Scene &scene;
    Report &report;
};
