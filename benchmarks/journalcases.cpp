#include "benchmarks/journalcases.h"

#include "benchmarks/statistics.h"

#include <QThread>

#include <chrono>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

JournalCases::JournalCases(Scene &scene, Report &report)
    : scene(scene)
    , report(report)
{
}

void JournalCases::run()
{
    report.note(u"Delivery journal: the first figure is without it, the second with it."_s);
    const QString database = scene.table.database();
    const Pair one = compare(types.first(1), scene.options.messages);
    report.ratio(u"journal: time per message, one type"_s, database, one.without.time,
                 one.with.time, u"us"_s, {});
    report.ratio(u"journal: processor time per message"_s, database, one.without.processor,
                 one.with.processor, u"us"_s, {});
    report.ratio(u"journal: bytes written per message"_s, database, one.without.written,
                 one.with.written, u"B"_s, {});
    const Pair eight = compare(types.first(8), 2 * scene.options.messages);
    report.ratio(u"journal: messages per second, 8 types"_s, database, 1e6 / eight.without.time,
                 1e6 / eight.with.time, u"1/s"_s, Target::atLeast(0.97));
    report.ratio(u"journal: bytes written per message, 8 types"_s, database, eight.without.written,
                 eight.with.written, u"B"_s, {});
    report.figure(u"journal: resident memory more, 8 types"_s, database,
                  eight.with.memory - eight.without.memory, u"MB"_s, Target::atMost(2));
}

JournalCases::Pair JournalCases::compare(const QStringList &names, int messages)
{
    QList<Figures> without;
    QList<Figures> with;
    for (int round = 0; round < scene.options.rounds; ++round) {
        without.append(measure(names, messages, false));
        with.append(measure(names, messages, true));
    }
    return {middle(without), middle(with)};
}

JournalCases::Figures JournalCases::measure(const QStringList &names, int messages, bool isKept)
{
    scene.setJournal(isKept);
    scene.table.clear();
    scene.table.fill(names, messages, scene.receiver.port());
    scene.receiver.expect(messages);
    std::optional<ProcessorLeft> left;
    if (names.size() == 1)
        left.emplace();
    const auto service = scene.startService(names.size() == 1 ? Processors::Last : Processors::All);
    scene.awaitRequests(1);
    const double before = service->processorMicroseconds();
    scene.awaitRequests(messages);
    Figures figures;
    figures.processor = (service->processorMicroseconds() - before) / (messages - 1);
    figures.memory = service->residentMb();
    // The journal writes what is in memory within a second; that counts too.
    QThread::msleep(2500);
    figures.written = service->writtenBytes() / messages;
    const Receiver::Drain seen = scene.receiver.drain();
    figures.time =
        std::chrono::duration<double, std::micro>(seen.last - seen.first).count() / (messages - 1);
    scene.setJournal(true);
    return figures;
}

JournalCases::Figures JournalCases::middle(const QList<Figures> &rounds)
{
    const auto of = [&rounds](double Figures::*member) {
        std::vector<double> values;
        for (const Figures &figures : rounds)
            values.push_back(figures.*member);
        return median(values);
    };
    return {of(&Figures::time), of(&Figures::processor), of(&Figures::written),
            of(&Figures::memory)};
}
