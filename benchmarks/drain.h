#pragma once

#include "benchmarks/scene.h"

#include <QString>
#include <QStringList>

#include <string>
#include <vector>

/// What one message took, in microseconds.
struct Cost
{
    double time = 0;
    double processor = 0;
};

/// The bare loop beside the service, or beside another loop.
struct Comparison
{
    Cost bare;
    Cost other;
};

/// Drains a table with one program after the other and tells what each message took.
class Drain
{
public:
    enum Program
    {
        Service,
        BareLoop,
        QtBareLoop,
        /// The service with logging at ERROR.
        QuietService
    };

    explicit Drain(Scene &scene);

    /// The median cost of each of the first `measured` messages of `rows`, the two taking turns.
    Comparison compare(const QStringList &names, int rows, int measured, Program program = Service);
    /// What each of `messages` takes that the service delivers, in microseconds. The rows are
    /// there.
    double timeOf(int messages);
    /// Instructions of a whole run, as valgrind counts them.
    double instructionsOf(int messages, bool isBare);

private:
    Cost drain(const QStringList &names, int rows, int measured, Program program);
    std::vector<std::unique_ptr<Process>> start(const QStringList &names, int measured,
                                                Program program);
    void writeQuietLogging() const;
    void compareHeads() const;

    Scene &scene;
    std::string bareHead;
    std::string serviceHead;
};
