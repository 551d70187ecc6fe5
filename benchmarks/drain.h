#pragma once

#include "benchmarks/scene.h"

#include <QString>
#include <QStringList>

#include <string>
#include <vector>

/// The cost of one message, in microseconds.
struct Cost
{
    double time = 0;
    double processor = 0;
};

/// The costs of the bare loop and of the program that is compared with it.
struct Comparison
{
    Cost bare;
    Cost other;
};

/// Drains a table with one program after the other and measures the cost of a message.
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

    /// The median cost of each of the first `measured` messages of `rows`. The two programs
    /// alternate.
    Comparison compare(const QStringList &names, int rows, int measured, Program program = Service);
    /// The service's time for each of `messages` messages, in microseconds. The rows must exist.
    double timeOf(int messages);
    /// The instructions of a whole run, counted by valgrind.
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
