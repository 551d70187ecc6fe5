#include "benchmarks/bench.h"

#include "benchmarks/journalcases.h"
#include "benchmarks/metricscases.h"
#include "benchmarks/statistics.h"
#include "benchmarks/tillcases.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QThread>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;

namespace {

constexpr int answerTimeoutMs = 30'000;
constexpr int million = 1'000'000;
constexpr int defaultPeriodSeconds = 20;

} // namespace

Bench::Bench(const Options &options, Table &table, Receiver &receiver, Report &report)
    : scene(options, table, receiver)
    , drain(scene)
    , report(report)
{
}

void Bench::tills()
{
    TillCases(scene, report).run();
}

void Bench::journal()
{
    JournalCases(scene, report).run();
}

void Bench::metrics()
{
    MetricsCases(scene, report).run();
}

void Bench::oneType()
{
    compareOneType(Drain::Service, u"time per message, one type"_s, u"processor time per message"_s,
                   Target::atMost(scene.table.database() == u"SQLite" ? 1.15 : 1.20),
                   Target::atMost(2.0));
}

void Bench::driver()
{
    compareOneType(Drain::QtBareLoop, u"  the bare loop through Qt's driver"_s,
                   u"  its processor time"_s);
    const int messages = 2 * scene.options.messages;
    const Comparison eight = drain.compare(types, messages, messages, Drain::QtBareLoop);
    report.ratio(u"  8 of them, messages per second"_s, scene.table.database(),
                 1e6 / eight.bare.time, 1e6 / eight.other.time, u"1/s"_s, {});
}

void Bench::log()
{
    compareOneType(Drain::QuietService, u"  the service with logging at ERROR"_s,
                   u"  its processor time"_s);
}

void Bench::manyTypes(Series &series, const QList<int> &typeCounts)
{
    for (int count : typeCounts) {
        // Equal numbers for all types.
        const int messages = scene.options.messages * std::min(count, 2) / count * count;
        const Comparison costs = drain.compare(types.first(count), messages, messages);
        const double bare = 1e6 / costs.bare.time;
        const double service = 1e6 / costs.other.time;
        series.add(scene.table.database(), count, bare, service);
        const double wanted = scene.table.database() == u"SQLite" ? 0.80 : 0.85;
        report.ratio(u"messages per second, types: %1"_s.arg(count), scene.table.database(), bare,
                     service, u"1/s"_s, count == 8 ? Target::atLeast(wanted) : Target{});
    }
}

void Bench::backlogs(Series &series, const QList<int> &lengths)
{
    double atFirst = 0;
    for (int rows : lengths) {
        const int measured = std::min(scene.options.messages, lengths.first());
        const Comparison costs = drain.compare(types.first(1), rows, measured);
        series.add(scene.table.database(), rows, costs.bare.time, costs.other.time);
        report.ratio(u"time per message, rows waiting: %1"_s.arg(rows), scene.table.database(),
                     costs.bare.time, costs.other.time, u"us"_s, {});
        if (rows == lengths.first())
            atFirst = costs.other.time;
        else
            report.figure(u"  over that with %1 rows"_s.arg(lengths.first()),
                          scene.table.database(), costs.other.time / atFirst, u""_s,
                          rows == million ? Target::atMost(1.10) : Target{});
    }
}

void Bench::otherBacklog()
{
    constexpr int others = 100'000;
    std::vector<double> times[2];
    for (int round = 0; round < scene.options.rounds; ++round) {
        for (const int rows : {0, others}) {
            scene.table.clear();
            scene.table.fill(stayingType, rows, scene.receiver.port());
            scene.table.fill(types.first(1), scene.options.messages, scene.receiver.port());
            scene.table.analyze();
            times[rows == 0 ? 0 : 1].push_back(drain.timeOf(scene.options.messages));
        }
    }
    report.figure(u"time per message behind %1 rows of another type"_s.arg(others),
                  scene.table.database(), median(times[1]), u"us"_s);
    report.figure(u"  over that without them"_s, scene.table.database(),
                  median(times[1]) / median(times[0]), u""_s, Target::atMost(1.10));
}

void Bench::idleMemory()
{
    scene.table.clear();
    const auto service = scene.startService();
    scene.awaitControl();
    double memory = 0;
    QElapsedTimer unchanged;
    unchanged.start();
    while (!unchanged.hasExpired(2000)) {
        const double now = service->residentMb();
        if (now != memory)
            unchanged.restart();
        memory = now;
        QThread::msleep(50);
    }
    report.figure(u"resident memory, idle"_s, scene.table.database(), memory, u"MB"_s,
                  Target::atMost(32));
}

void Bench::drainMemory()
{
    constexpr int early = 10'000;
    constexpr int late = 200'000;
    scene.table.clear();
    scene.table.fill(types, million, scene.receiver.port());
    scene.receiver.expect(late);
    const auto service = scene.startService();
    scene.awaitRequests(early);
    const double first = service->residentMb();
    double most = first;
    for (int at = early; at < late; at += early) {
        scene.awaitRequests(at + early);
        most = std::max(most, service->residentMb());
    }
    report.figure(u"resident memory, 8 types, 1000000 rows"_s, scene.table.database(), most,
                  u"MB"_s, Target::atMost(48));
    report.figure(u"  growth, message 10000 to 200000"_s, scene.table.database(),
                  service->residentMb() - first, u"MB"_s, Target::atMost(1));
}

void Bench::start()
{
    std::vector<double> times;
    for (int round = 0; round < 11; ++round) {
        scene.table.clear();
        scene.table.fill(types.first(1), 1, scene.receiver.port());
        scene.receiver.expect(1);
        const auto begin = Receiver::Clock::now();
        const auto service = scene.startService();
        scene.awaitRequests(1);
        times.push_back(
            std::chrono::duration<double, std::milli>(scene.receiver.drain().first - begin)
                .count());
    }
    report.figure(u"process start to the first request"_s, scene.table.database(), median(times),
                  u"ms"_s, Target::atMost(100));
}

void Bench::idleHour()
{
    scene.table.clear();
    const auto service = scene.startService();
    scene.awaitControl();
    const double before = service->processorMicroseconds();
    QElapsedTimer timer;
    timer.start();
    // Whole periods, each with one poll.
    const int periods = std::max(1, scene.options.idleSeconds / defaultPeriodSeconds);
    QThread::sleep(periods * defaultPeriodSeconds);
    const double used = service->processorMicroseconds() - before;
    const double seconds = static_cast<double>(timer.elapsed()) / 1000;
    report.figure(u"processor time of an idle hour"_s, scene.table.database(),
                  used / seconds * 3600 / 1e6, u"s"_s, Target::atMost(1));
    report.note(u"from %1 s, that is %2 polls"_s.arg(QString::number(seconds, 'f', 0),
                                                     QString::number(periods)));
}

void Bench::control()
{
    // So that the table has 10,000 rows in the middle of a drain.
    const int draining = scene.options.messages;
    const int staying = std::max(0, 10'000 - draining / 2);
    std::vector<double> times;
    for (int round = 0; round < scene.options.rounds; ++round) {
        scene.table.clear();
        scene.table.fill(stayingType, staying, scene.receiver.port());
        scene.table.fill(types, draining, scene.receiver.port());
        scene.receiver.expect(draining);
        const auto service = scene.startService();
        scene.awaitRequests(8);
        while (scene.receiver.drain().requests < draining) {
            times.push_back(scene.askStatus());
            QThread::msleep(2);
        }
    }
    std::sort(times.begin(), times.end());
    report.figure(u"/status, 10000 rows, 8 types draining, p99"_s, scene.table.database(),
                  times.at(times.size() * 99 / 100), u"ms"_s, Target::atMost(10));
    report.note(u"%1 requests, median %2 ms, longest %3 ms"_s.arg(times.size())
                    .arg(times.at(times.size() / 2), 0, 'f', 2)
                    .arg(times.back(), 0, 'f', 2));
}

void Bench::longQueue()
{
    scene.table.clear();
    scene.table.fill(stayingType, million, scene.receiver.port());
    const QList<std::pair<QString, QString>> calls{
        {u"poll"_s, u"poll"_s}, {u"/status"_s, u"status"_s}, {u"read"_s, u"read"_s}};
    for (const auto &[what, call] : calls)
        report.figure(u"statement of %1, 1000000 rows"_s.arg(what), scene.table.database(),
                      storeTime(call, 11), u"ms"_s);
    const auto service = scene.startService();
    scene.awaitControl();
    scene.askStatus();
    report.figure(u"/status asked, 1000000 rows"_s, scene.table.database(),
                  median(11, [this] { scene.askStatus(); }), u"ms"_s);
}

void Bench::workerStart()
{
    scene.table.clear();
    const bool isServer = scene.table.database() != u"SQLite";
    report.figure(u"a worker's start and end"_s, scene.table.database(),
                  storeTime(u"connect"_s, 500), u"ms"_s, Target::atMost(isServer ? 3 : 1));
}

void Bench::instructions()
{
    constexpr int messages = 1000;
    const auto difference = [this](bool isBare) {
        const double start = drain.instructionsOf(1, isBare);
        return drain.instructionsOf(messages, isBare) - start;
    };
    const double bare = difference(true);
    const double service = difference(false);
    report.ratio(u"instructions per message, drain of 1000"_s, scene.table.database(),
                 bare / (messages - 1), service / (messages - 1), u""_s, {});
}

void Bench::compareOneType(Drain::Program program, const QString &time, const QString &processor,
                           const Target &timeTarget, const Target &processorTarget)
{
    const Comparison costs =
        drain.compare(types.first(1), scene.options.messages, scene.options.messages, program);
    report.ratio(time, scene.table.database(), costs.bare.time, costs.other.time, u"us"_s,
                 timeTarget);
    report.ratio(processor, scene.table.database(), costs.bare.processor, costs.other.processor,
                 u"us"_s, processorTarget);
}

double Bench::storeTime(const QString &call, int rounds) const
{
    QProcess process;
    process.start(scene.options.storeTimes, {scene.settingsFile(), call, QString::number(rounds)});
    if (!process.waitForFinished(answerTimeoutMs) || process.exitCode() != 0)
        fail(u"%1: %2"_s.arg(scene.options.storeTimes,
                             QString::fromUtf8(process.readAllStandardError())));
    return process.readAllStandardOutput().trimmed().toDouble();
}
