#pragma once

#include "benchmarks/drain.h"
#include "benchmarks/report.h"
#include "benchmarks/scene.h"

#include <QList>
#include <QString>

/// The groups of measurements on one database.
class Bench
{
public:
    Bench(const Options &options, Table &table, Receiver &receiver, Report &report);

    /// One worker, compared with the bare loop.
    void oneType();
    /// The share of Qt's database driver in the service's time.
    void driver();
    /// The share of the log in the service's time.
    void log();
    void manyTypes(Series &series, const QList<int> &typeCounts);
    /// The first messages of queues of several lengths.
    void backlogs(Series &series, const QList<int> &lengths);
    /// Messages of one type that come after many rows of another type, whose service is down.
    void otherBacklog();
    void idleMemory();
    void drainMemory();
    void start();
    void idleHour();
    /// `/status` over a new connection each time, as its callers use it.
    void control();
    /// The time of store calls that count or search the whole table, with a long table.
    void longQueue();
    void workerStart();
    /// Counts of instructions do not depend on the machine's load, so they can be compared between
    /// days.
    void instructions();
    /// The cost of the delivery journal.
    void journal();
    /// `queuectl metrics` with a long queue.
    void metrics();
    /// The till's INSERTs while a program drains.
    void tills();

private:
    void compareOneType(Drain::Program program, const QString &time, const QString &processor,
                        const Target &timeTarget = {}, const Target &processorTarget = {});
    /// The median time of the call over `rounds` calls of the service's store, in milliseconds.
    double storeTime(const QString &call, int rounds) const;

    Scene scene;
    Drain drain;
    Report &report;
};
