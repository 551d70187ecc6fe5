#include "benchmarks/tillcases.h"

#include "benchmarks/statistics.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace {

constexpr int warmUpSeconds = 1;

QStringList plainTypes()
{
    QStringList names;
    for (int number = 1; number <= plainTypeCount; ++number)
        names.append(u"plain%1"_s.arg(number));
    return names;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        fail(u"%1: %2"_s.arg(path, file.errorString()));
    return file.readAll();
}

} // namespace

TillCases::TillCases(Scene &scene, Report &report)
    : scene(scene)
    , report(report)
{
}

void TillCases::run()
{
    report.columns(u"the till's INSERT: median, p99, longest, ms"_s,
                   u"types,commit ms,reply ms,program,median,p99,longest,"
                   "inserts,failed,failed removals,per second"_s);
    if (!scene.options.tillCases.isEmpty()) {
        for (const TillCase &chosen : scene.options.tillCases)
            compare(chosen);
        return;
    }
    for (const int replyMs : {5, 30}) {
        for (const int commitMs : {0, 5, 20, 50}) {
            for (const int count : {1, 8, plainTypeCount})
                compare({count, commitMs, replyMs});
        }
    }
    compare({8, 0, 0});
}

void TillCases::compare(const TillCase &with)
{
    const bool isMany = with.types > types.size();
    QList<std::pair<QString, Program>> programs{
        {u"bare loops without the gate"_s, Program::BareLoops},
        {u"bare loops with the gate"_s, Program::GatedBareLoops}};
    if (!scene.options.former.isEmpty() && !isMany)
        programs.append({u"the service's former build"_s, Program::Former});
    programs.append({u"the service"_s, Program::Service});
    report.note(u"types: %1, commits take %2 ms more, replies come after %3 ms"_s.arg(with.types)
                    .arg(with.commitMs)
                    .arg(with.replyMs));
    double before = 0;
    for (const auto &[name, program] : programs) {
        const Figures seen = measure(with, program);
        write(with, name, seen);
        if (program == Program::BareLoops || program == Program::Former)
            before = seen.deliveries;
        if (program == Program::Service)
            judge(with, seen, seen.deliveries / before);
    }
}

void TillCases::write(const TillCase &with, const QString &program, const Figures &seen)
{
    report.values({program,
                   u"%1 %2 %3"_s.arg(seen.inserts.middle, 7, 'f', 1)
                       .arg(seen.inserts.late, 7, 'f', 1)
                       .arg(seen.inserts.longest, 7, 'f', 1),
                   u"failed: %1 of %2"_s.arg(seen.inserts.failed).arg(seen.inserts.count),
                   u"removals that failed: %1"_s.arg(seen.failedRemovals),
                   u"%1 deliveries/s"_s.arg(seen.deliveries, 0, 'f', 0)},
                  u"%1,%2,%3,%4,%5,%6,%7,%8,%9,%10,%11"_s.arg(with.types)
                      .arg(with.commitMs)
                      .arg(with.replyMs)
                      .arg(program)
                      .arg(seen.inserts.middle)
                      .arg(seen.inserts.late)
                      .arg(seen.inserts.longest)
                      .arg(seen.inserts.count)
                      .arg(seen.inserts.failed)
                      .arg(seen.failedRemovals)
                      .arg(seen.deliveries));
}

void TillCases::judge(const TillCase &with, const Figures &seen, double gain)
{
    const auto figure = [this](const QString &what, double value, const QString &unit,
                               Target target) {
        report.figure(u"  "_s + what, scene.table.database(), value, unit, target);
    };
    if (with.types == 8 && with.commitMs == 20) {
        figure(u"the till's INSERT, p99"_s, seen.inserts.late, u"ms"_s, Target::atMost(100));
        figure(u"deliveries over those before"_s, gain, u""_s, Target::atLeast(2.5));
    } else if (with.types == plainTypeCount && with.commitMs == 50) {
        figure(u"the till's INSERT, failed"_s, seen.inserts.failed, u""_s, Target::atMost(0));
        figure(u"the till's INSERT, p99"_s, seen.inserts.late, u"ms"_s, Target::atMost(500));
    } else if (with.replyMs == 0) {
        figure(u"the till's INSERT, p99"_s, seen.inserts.late, u"ms"_s, Target::atMost(100));
        figure(u"deliveries over those before"_s, gain, u""_s,
               scene.options.former.isEmpty() ? Target{} : Target::atLeast(1.15));
    }
}

TillCases::Figures TillCases::measure(const TillCase &with, Program program)
{
    const QStringList names = with.types > types.size() ? plainTypes() : types.first(with.types);
    // More than can be delivered, so that no type runs out of messages.
    const int seconds = scene.options.tillSeconds + warmUpSeconds + 2;
    const int each = with.replyMs > 0 ? 1000 / with.replyMs * seconds : 5000 * seconds;
    scene.table.clear();
    scene.table.fill(names, each * static_cast<int>(names.size()), scene.receiver.port());
    scene.receiver.setDelay(std::chrono::milliseconds(with.replyMs));
    scene.receiver.expect(0);

    const Scene::Variables disk{{u"LD_PRELOAD"_s, scene.options.slowSync},
                                {u"QUEUE_BENCH_SYNC_MS"_s, QString::number(with.commitMs)}};
    const auto draining = start(with, program, names, each, disk);
    scene.awaitRequests(static_cast<int>(names.size()));
    QThread::sleep(warmUpSeconds);

    const QString output = scene.path(u"till.log"_s);
    const int first = scene.receiver.drain().requests;
    QElapsedTimer timer;
    timer.start();
    const auto writer = scene.start(
        scene.options.tillWriter,
        {scene.table.bareLoopArguments().at(1), stayingType.first(), u"50"_s}, output, disk);
    QThread::sleep(scene.options.tillSeconds);
    const double deliveries = scene.receiver.drain().requests - first;
    const double elapsed = static_cast<double>(timer.nsecsElapsed()) / 1e9;
    if (!writer->end())
        fail(u"the till's program ended badly, see %1"_s.arg(output));
    if (!draining->isRunning() || !draining->end())
        fail(u"a program under measurement ended badly, see %1"_s.arg(scene.path(QString())));
    scene.receiver.setDelay({});
    for (const QString &name : names) {
        if (!scene.table.has(name))
            fail(u"no row of type %1 is left"_s.arg(name));
    }

    Figures figures;
    figures.inserts = InsertTimes::of(output);
    figures.deliveries = deliveries / elapsed;
    const bool isBare = program == Program::BareLoops || program == Program::GatedBareLoops;
    const QByteArray log = contentOf(isBare ? scene.bareLog() : scene.serviceLog());
    figures.failedRemovals = static_cast<int>(
        isBare ? log.trimmed().toInt() : log.count(u"Ошибка при выполнении запроса: "_s.toUtf8()));
    return figures;
}

std::unique_ptr<Process> TillCases::start(const TillCase &with, Program program,
                                          const QStringList &names, int each,
                                          const Scene::Variables &disk)
{
    if (program == Program::BareLoops || program == Program::GatedBareLoops)
        return scene.startBareLoop(names, each, false, program == Program::GatedBareLoops,
                                   Processors::All, disk);
    const QString path = program == Program::Former  ? scene.options.former
                         : with.types > types.size() ? scene.options.plainTypes
                                                     : scene.options.service;
    return scene.startService(Processors::All, disk, path);
}
