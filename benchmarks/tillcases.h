#pragma once

#include "benchmarks/report.h"
#include "benchmarks/scene.h"

#include <QString>

/// The till's INSERT every 50 ms while types drain, with disks of several speeds. SQLite alone.
class TillCases
{
public:
    TillCases(Scene &scene, Report &report);

    /// The chosen cases, or all.
    void run();

private:
    enum class Program
    {
        BareLoops,
        GatedBareLoops,
        Former,
        Service
    };

    /// How the till fared while a program drained, and how the program did.
    struct Figures
    {
        double middle = 0;
        double late = 0;
        double longest = 0;
        int inserts = 0;
        int failed = 0;
        /// Statements of the program that have failed, each of which is a delivery more.
        int failedRemovals = 0;
        double deliveries = 0;
    };

    void compare(const TillCase &with);
    void write(const TillCase &with, const QString &program, const Figures &seen);
    void judge(const TillCase &with, const Figures &seen, double gain);
    Figures measure(const TillCase &with, Program program);
    std::unique_ptr<Process> start(const TillCase &with, Program program, const QStringList &names,
                                   int each, const Scene::Variables &disk);
    static Figures figuresOf(const QString &path);

    Scene &scene;
    Report &report;
};
