#include "benchmarks/drain.h"

#include "benchmarks/statistics.h"

#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds instrumentedTimeout{1200};
const QString quietLogging = u"quiet.properties"_s;

struct Costs
{
    std::vector<double> times;
    std::vector<double> processor;

    void add(const Cost &cost)
    {
        times.push_back(cost.time);
        processor.push_back(cost.processor);
    }
    Cost middle() const { return {median(times), median(processor)}; }
};

} // namespace

Drain::Drain(Scene &scene)
    : scene(scene)
{
}

Comparison Drain::compare(const QStringList &names, int rows, int measured, Program program)
{
    if (program == QuietService)
        writeQuietLogging();
    Costs bare;
    Costs other;
    for (int round = 0; round < scene.options.rounds; ++round) {
        bare.add(drain(names, rows, measured, BareLoop));
        other.add(drain(names, rows, measured, program));
        if (names.size() == 1 && program == Service)
            compareHeads();
    }
    return {bare.middle(), other.middle()};
}

double Drain::timeOf(int messages)
{
    scene.receiver.expect(messages);
    const ProcessorLeft left;
    const auto service = scene.startService(Processors::Last);
    scene.awaitRequests(messages);
    const Receiver::Drain seen = scene.receiver.drain();
    return std::chrono::duration<double, std::micro>(seen.last - seen.first).count()
           / (messages - 1);
}

Cost Drain::drain(const QStringList &names, int rows, int measured, Program program)
{
    // A long queue is not refilled between rounds, since the measured messages are few.
    if (rows <= measured || scene.table.count() < rows / 10 * 9) {
        scene.table.clear();
        scene.table.fill(names, rows, scene.receiver.port());
    }
    scene.receiver.expect(measured);
    // Several types may use all processors.
    std::optional<ProcessorLeft> left;
    if (names.size() == 1)
        left.emplace();
    const auto processes = start(names, measured, program);
    const auto processor = [&processes] {
        double sum = 0;
        for (const auto &process : processes)
            sum += process->processorMicroseconds();
        return sum;
    };
    scene.awaitRequests(1);
    const double before = processor();
    scene.awaitRequests(measured);
    const double used = processor() - before;
    const Receiver::Drain seen = scene.receiver.drain();
    (program == Service ? serviceHead : bareHead) = seen.head;
    for (const auto &process : processes) {
        if (!process->end())
            fail(u"a program under measurement ended badly, see %1"_s.arg(scene.path(QString())));
    }
    if (rows == measured
        && (scene.table.count() != 0 || scene.receiver.drain().requests != measured))
        fail(u"%1 rows are left after %2 requests for %3 messages"_s.arg(scene.table.count())
                 .arg(scene.receiver.drain().requests)
                 .arg(measured));
    // From the first arrival to the last there are measured - 1 rounds of reading, sending and
    // deleting, without the start.
    const std::chrono::duration<double, std::micro> time = seen.last - seen.first;
    return {time.count() / (measured - 1), used / (measured - 1)};
}

std::vector<std::unique_ptr<Process>> Drain::start(const QStringList &names, int measured,
                                                   Program program)
{
    const Processors processors = names.size() == 1 ? Processors::Last : Processors::All;
    std::vector<std::unique_ptr<Process>> processes;
    if (program == BareLoop || program == QtBareLoop) {
        processes.push_back(scene.startBareLoop(names, measured / static_cast<int>(names.size()),
                                                program == QtBareLoop, names.size() > 1,
                                                processors));
        return processes;
    }
    Scene::Variables environment;
    if (program == QuietService)
        environment.insert(u"LOG4QT_CONFIGURATION"_s, scene.path(quietLogging));
    processes.push_back(scene.startService(processors, environment));
    return processes;
}

void Drain::writeQuietLogging() const
{
    QFile quiet(scene.path(quietLogging));
    if (!quiet.open(QIODevice::WriteOnly)
        || quiet.write("log4j.rootLogger=ERROR, console\n"
                       "log4j.appender.console=org.apache.log4j.ConsoleAppender\n"
                       "log4j.appender.console.layout=org.apache.log4j.SimpleLayout\n")
               < 0)
        fail(u"%1: %2"_s.arg(quiet.fileName(), quiet.errorString()));
}

/// Only requests with equal headers can be compared.
void Drain::compareHeads() const
{
    const auto names = [](const std::string &head) {
        QStringList found;
        const QStringList lines = QString::fromStdString(head).split(u"\r\n"_s).mid(1);
        for (const QString &line : lines)
            found.append(line.section(u':', 0, 0).toLower());
        found.sort();
        return found;
    };
    if (names(bareHead) != names(serviceHead))
        fail(u"the requests differ in their headers:\n%1\n\n%2"_s.arg(
            QString::fromStdString(bareHead), QString::fromStdString(serviceHead)));
}

double Drain::instructionsOf(int messages, bool isBare)
{
    scene.table.clear();
    scene.table.fill(types.first(1), messages, scene.receiver.port());
    scene.receiver.expect(messages);
    const QString counts = scene.path(u"callgrind.out"_s);
    QFile::remove(counts);
    const QStringList tool{u"--tool=callgrind"_s, u"--callgrind-out-file="_s + counts,
                           // Excluded: runs ten times a second, so more often per message on a
                           // slower machine.
                           u"--toggle-collect=Config::refresh(Config::State&)"_s,
                           u"--collect-atstart=yes"_s};
    const QStringList bareLoop = QStringList{scene.options.bareLoop}
                                 + scene.table.bareLoopArguments()
                                 + QStringList{types.first(), QString::number(messages)};
    const QString log = scene.path(u"callgrind.log"_s);
    const auto process = scene.start(
        u"valgrind"_s, tool + (isBare ? bareLoop : QStringList{scene.options.service}), log);
    if (!scene.receiver.wait(messages, instrumentedTimeout))
        fail(u"not every message arrived, see %1"_s.arg(log));
    while (scene.table.count() > 0)
        QThread::msleep(20);
    process->end();
    QFile file(counts);
    if (!file.open(QIODevice::ReadOnly))
        fail(u"%1: %2, see callgrind.log beside it"_s.arg(counts, file.errorString()));
    static const QRegularExpression total(u"^(?:totals|summary): (\\d+)"_s,
                                          QRegularExpression::MultilineOption);
    return total.match(QString::fromUtf8(file.readAll())).captured(1).toDouble();
}
