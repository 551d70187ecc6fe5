#pragma once

#include "benchmarks/report.h"
#include "benchmarks/scene.h"

#include <QString>
#include <QStringList>

/// The service with its delivery journal beside the same service without it.
class JournalCases
{
public:
    JournalCases(Scene &scene, Report &report);

    void run();

private:
    /// What one drain took.
    struct Figures
    {
        /// Of one message, in microseconds.
        double time = 0;
        double processor = 0;
        /// Bytes that one message had the service write, from its start to its end.
        double written = 0;
        /// When the last message has arrived, in MB.
        double memory = 0;
    };

    /// The medians of the figures without and with the journal, the two taking turns.
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
