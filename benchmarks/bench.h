#pragma once

#include "benchmarks/drain.h"
#include "benchmarks/report.h"
#include "benchmarks/scene.h"

#include <QList>
#include <QString>

/// The groups of figures on one database.
class Bench
{
public:
    Bench(const Options &options, Table &table, Receiver &receiver, Report &report);

    /// One worker, and what it costs beside the bare loop.
    void oneType();
    /// What of the service's time is that of Qt's driver, which the service's statements go
    /// through.
    void driver();
    /// What of the service's time the log is.
    void log();
    void manyTypes(Series &series, const QList<int> &typeCounts);
    /// The first messages of queues of several lengths.
    void backlogs(Series &series, const QList<int> &lengths);
    /// Messages of one type after the rows of another, whose service is down.
    void otherBacklog();
    void idleMemory();
    void drainMemory();
    void start();
    void idleHour();
    /// `/status` over a new connection each time, as its callers ask.
    void control();
    /// What the calls of the store that look at the whole table take when it is long.
    void longQueue();
    void workerStart();
    /// Instructions are the same on a busy machine, so these can be compared with those of another
    /// day.
    void instructions();
    /// What the delivery journal costs.
    void journal();
    /// The till beside a program that drains.
    void tills();

private:
    void compareOneType(Drain::Program program, const QString &time, const QString &processor,
                        const Target &timeTarget = {}, const Target &processorTarget = {});
    /// The median of that many calls of the service's store, in milliseconds.
    double storeTime(const QString &call, int rounds) const;

    Scene scene;
    Drain drain;
    Report &report;
};
