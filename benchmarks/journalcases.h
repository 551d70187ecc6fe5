#pragma once

#include "benchmarks/report.h"
#include "benchmarks/scene.h"

#include <QString>
#include <QStringList>

/// Compares the service with its delivery journal and without it.
class JournalCases
{
public:
    JournalCases(Scene &scene, Report &report);

    void run();

private:
    /// The costs of one drain.
    struct Figures
    {
        /// Per message, in microseconds.
        double time = 0;
        double processor = 0;
        /// Bytes that the service wrote per message, from its start to its end.
        double written = 0;
        /// Memory when the last message has arrived, in MB.
        double memory = 0;
    };

    /// The median figures without and with the journal. The two alternate.
    struct Pair
    {
        Figures without;
        Figures with;
    };

    Pair compare(const QStringList &names, int messages);
    Figures measure(const QStringList &names, int messages, bool isKept);
    static Figures middle(const QList<Figures> &rounds);

    Scene &scene;
    Report &report;
};
