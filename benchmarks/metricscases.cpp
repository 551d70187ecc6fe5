#include "benchmarks/metricscases.h"

#include "benchmarks/statistics.h"
#include "rig/error.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <algorithm>
#include <chrono>

using namespace Qt::StringLiterals;

namespace {

constexpr int million = 1'000'000;
constexpr int callsAlone = 11;
constexpr auto replyDelay = std::chrono::milliseconds(5);
constexpr int askEveryMs = 1000;
constexpr int warmUpSeconds = 2;

/// The last line that a whole text has.
bool isWhole(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) && file.readAll().contains("\nqueue_database_up 1\n");
}

} // namespace

MetricsCases::MetricsCases(Scene &scene, Report &report)
    : scene(scene)
    , report(report)
{
}

void MetricsCases::run()
{
    // Types that are delivered, so that the oldest row of each is looked for.
    scene.table.clear();
    scene.table.fill(types, million, scene.receiver.port());
    scene.table.analyze();
    alone();
    beside();
}

/// The service does not run, or it would deliver the rows.
void MetricsCases::alone()
{
    std::vector<double> times;
    double most = 0;
    for (int round = 0; round < callsAlone; ++round) {
        const Call one = call();
        times.push_back(one.milliseconds);
        most = std::max(most, one.residentMb);
    }
    const QString database = scene.table.database();
    report.figure(u"queuectl metrics, 1000000 rows"_s, database, median(times), u"ms"_s,
                  Target::atMost(500));
    report.figure(u"  the longest of %1"_s.arg(callsAlone), database,
                  *std::max_element(times.cbegin(), times.cend()), u"ms"_s);
    report.figure(u"  its resident memory"_s, database, most, u"MB"_s, Target::atMost(60));
}

void MetricsCases::beside()
{
    const QString database = scene.table.database();
    report.note(u"8 types draining, replies after 5 ms; the first figure is without metrics, the "
                "second with a call each second"_s);
    const Pace without = pace(false);
    const Pace with = pace(true);
    report.ratio(u"metrics: messages per second"_s, database, without.deliveries, with.deliveries,
                 u"1/s"_s, Target::atLeast(0.90));
    if (database != u"SQLite")
        return;
    report.ratio(u"metrics: the till's INSERT, median"_s, database, without.inserts.middle,
                 with.inserts.middle, u"ms"_s, {});
    report.ratio(u"metrics: the till's INSERT, p99"_s, database, without.inserts.late,
                 with.inserts.late, u"ms"_s, {});
    report.figure(u"  with the calls"_s, database, with.inserts.late, u"ms"_s, Target::atMost(100));
    report.figure(u"  that failed"_s, database, with.inserts.failed, u""_s, Target::atMost(0));
}

MetricsCases::Call MetricsCases::call() const
{
    const QString output = scene.path(u"metrics.txt"_s);
    QElapsedTimer timer;
    timer.start();
    const auto program = scene.start(scene.options.queuectl, {u"metrics"_s}, output);
    Call result;
    try {
        while (program->isRunning()) {
            result.residentMb = std::max(result.residentMb, program->peakMb());
            QThread::msleep(1);
        }
    } catch (const rig::Error &) {
        // It has ended since.
    }
    result.milliseconds = static_cast<double>(timer.nsecsElapsed()) / 1e6;
    program->end();
    if (!isWhole(output))
        fail(u"queuectl metrics has not read the table, see %1"_s.arg(output));
    return result;
}

MetricsCases::Pace MetricsCases::pace(bool isAsked)
{
    scene.receiver.setDelay(replyDelay);
    scene.receiver.expect(0);
    const auto service = scene.startService();
    scene.awaitRequests(static_cast<int>(types.size()));
    QThread::sleep(warmUpSeconds);
    const QString output = scene.path(u"till.log"_s);
    std::unique_ptr<Process> writer;
    if (scene.table.database() == u"SQLite")
        writer = scene.start(scene.options.tillWriter,
                             {scene.table.bareLoopArguments().at(1), stayingType.first(), u"50"_s},
                             output);
    const int first = scene.receiver.drain().requests;
    QElapsedTimer timer;
    timer.start();
    const int limitMs = scene.options.tillSeconds * 1000;
    while (!timer.hasExpired(limitMs)) {
        QElapsedTimer turn;
        turn.start();
        if (isAsked)
            call();
        QThread::msleep(
            static_cast<unsigned long>(std::max<qint64>(0, askEveryMs - turn.elapsed())));
    }
    Pace result;
    result.deliveries =
        (scene.receiver.drain().requests - first) * 1000.0 / static_cast<double>(timer.elapsed());
    if (writer && !writer->end())
        fail(u"the till's program ended badly, see %1"_s.arg(output));
    if (!service->isRunning() || !service->end())
        fail(u"the service ended badly, see %1"_s.arg(scene.serviceLog()));
    scene.receiver.setDelay({});
    for (const QString &type : types) {
        if (!scene.table.has(type))
            fail(u"no row of type %1 is left"_s.arg(type));
    }
    if (writer)
        result.inserts = InsertTimes::of(output);
    return result;
}
