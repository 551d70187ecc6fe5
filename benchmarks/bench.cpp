// Measures the service from outside, beside a bare loop that stands for what the machine allows, on both
// databases. ./bench builds and calls it; docs/performance.md explains the figures.

#include "benchmarks/process.h"
#include "benchmarks/receiver.h"
#include "benchmarks/report.h"
#include "benchmarks/statistics.h"
#include "benchmarks/table.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QThread>

#include <cstdio>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr std::chrono::seconds drainTimeout{1200};
constexpr std::chrono::seconds instrumentedTimeout{1200};
constexpr int answerTimeoutMs = 30'000;
constexpr int million = 1'000'000;
constexpr int defaultPeriodSeconds = 20;
constexpr int warmUpSeconds = 1;
/// As many types as queue-plaintypes has.
constexpr int plainTypeCount = 57;

/// Types that differ in nothing that takes time. The first one stands where there is only one.
const QStringList types{u"heineken"_s, u"abmloyalty"_s,    u"smartscales"_s,
                        u"cardlab"_s,  u"waybillnumber"_s, u"customeraddress"_s,
                        u"nochange"_s, u"winelabbonus"_s};
/// Rows of a type that has no handler stay where they are.
const QStringList stayingType{u"bench"_s};

// The three statements that meet a long queue: the poll, /status, and a worker's reading.
const QString pollStatement =
    u"SELECT type, COUNT(*) FROM message GROUP BY type ORDER BY type ASC"_s;
const QString statusStatement = u"SELECT COUNT(messageid), creationtime FROM message LIMIT 1"_s;
const QString readStatement =
    u"SELECT messageid, type, body, cardnumber, statuscode FROM message WHERE type = 'bench' AND messageid > -1 ORDER BY messageid asc LIMIT 1"_s;

/// Types draining, how much longer a commit takes, how long a reply does.
struct TillCase
{
    int types = 0;
    int commitMs = 0;
    int replyMs = 0;
};

struct Options
{
    QString service;
    QString bareLoop;
    QString workerStart;
    QString plainTypes;
    QString tillWriter;
    QString slowSync;
    /// An earlier build of the service, empty for none.
    QString former;
    QString folder;
    /// "SQLite" or "MariaDB", empty for both.
    QString database;
    int messages = 0;
    int rounds = 0;
    int idleSeconds = 0;
    int tillSeconds = 0;
    /// Empty for all of them.
    QList<TillCase> tillCases;
};

/// What one message took, in microseconds.
struct Cost
{
    double time = 0;
    double processor = 0;
};

/// How the till fared while a program drained, and how the program did.
struct TillFigures
{
    double middle = 0;
    double late = 0;
    double longest = 0;
    int inserts = 0;
    int failed = 0;
    /// Statements of the program that have failed, each of which is a delivery more.
    int failedRemovals = 0;
    double deliveries = 0;
};

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

/// The bare loop beside the service, or beside another loop.
struct Comparison
{
    Cost bare;
    Cost other;
};

/// The measurements on one database.
class Bench
{
public:
    Bench(const Options &options, Table &table, Receiver &receiver, Report &report)
        : options(options)
        , table(table)
        , receiver(receiver)
        , report(report)
        , root(options.folder + u"/root"_s)
    {
        QDir(root).removeRecursively();
        for (const char *path : {"/tallocash/cash/conf", "/tallocash/cash/queue/config"})
            QDir().mkpath(root + QLatin1String(path));
        QTcpServer free;
        free.listen(QHostAddress::LocalHost);
        controlPort = free.serverPort();
        QFile settings(settingsPath());
        if (!settings.open(QIODevice::WriteOnly))
            fail(u"%1: %2"_s.arg(settings.fileName(), settings.errorString()));
        settings.write(u"[queue]\nport = %1\n%2"_s.arg(controlPort).arg(table.settings()).toUtf8());
    }

    /// One worker, and what it costs beside the bare loop.
    void oneType()
    {
        compareOneType(Service, u"time per message, one type"_s, u"processor time per message"_s,
                       Target::atMost(table.database() == u"SQLite" ? 1.15 : 1.20),
                       Target::atMost(2.0));
    }

    /// What of the service's time is that of Qt's driver, which the service's statements go through.
    void driver()
    {
        compareOneType(QtBareLoop, u"  the bare loop through Qt's driver"_s,
                       u"  its processor time"_s);
        const int messages = 2 * options.messages;
        const Comparison eight = compare(types, messages, messages, QtBareLoop);
        report.ratio(u"  8 of them, messages per second"_s, table.database(), 1e6 / eight.bare.time,
                     1e6 / eight.other.time, u"1/s"_s, {});
    }

    /// What of the service's time the log is.
    void log()
    {
        QFile quiet(quietLogPath());
        if (!quiet.open(QIODevice::WriteOnly)
            || quiet.write("log4j.rootLogger=ERROR, console\n"
                           "log4j.appender.console=org.apache.log4j.ConsoleAppender\n"
                           "log4j.appender.console.layout=org.apache.log4j.SimpleLayout\n")
                   < 0)
            fail(u"%1: %2"_s.arg(quiet.fileName(), quiet.errorString()));
        quiet.close();
        compareOneType(QuietService, u"  the service with logging at ERROR"_s,
                       u"  its processor time"_s);
    }

    void manyTypes(Series &series, const QList<int> &typeCounts)
    {
        for (int count : typeCounts) {
            // The same number for each type.
            const int messages = options.messages * std::min(count, 2) / count * count;
            const Comparison costs = compare(types.first(count), messages, messages);
            const double bare = 1e6 / costs.bare.time;
            const double service = 1e6 / costs.other.time;
            series.add(table.database(), count, bare, service);
            const double wanted = table.database() == u"SQLite" ? 0.80 : 0.85;
            report.ratio(u"messages per second, types: %1"_s.arg(count), table.database(), bare,
                         service, u"1/s"_s, count == 8 ? Target::atLeast(wanted) : Target{});
        }
    }

    /// The first messages of queues of several lengths.
    void backlogs(Series &series, const QList<int> &lengths)
    {
        double atFirst = 0;
        for (int rows : lengths) {
            const int measured = std::min(options.messages, lengths.first());
            const Comparison costs = compare(types.first(1), rows, measured);
            series.add(table.database(), rows, costs.bare.time, costs.other.time);
            report.ratio(u"time per message, rows waiting: %1"_s.arg(rows), table.database(),
                         costs.bare.time, costs.other.time, u"us"_s, {});
            if (rows == lengths.first())
                atFirst = costs.other.time;
            else
                report.figure(u"  over that with %1 rows"_s.arg(lengths.first()), table.database(),
                              costs.other.time / atFirst, u""_s,
                              rows == million ? Target::atMost(1.10) : Target{});
        }
    }

    /// Messages of one type behind the rows of another, whose service is down.
    void otherBacklog()
    {
        constexpr int others = 100'000;
        std::vector<double> times[2];
        for (int round = 0; round < options.rounds; ++round) {
            for (const int rows : {0, others}) {
                table.clear();
                table.fill(stayingType, rows, receiver.port());
                table.fill(types.first(1), options.messages, receiver.port());
                table.analyze();
                times[rows == 0 ? 0 : 1].push_back(timeOf(options.messages));
            }
        }
        report.figure(u"time per message behind %1 rows of another type"_s.arg(others),
                      table.database(), median(times[1]), u"us"_s);
        report.figure(u"  over that without them"_s, table.database(),
                      median(times[1]) / median(times[0]), u""_s, Target::atMost(1.10));
    }

    void idleMemory()
    {
        table.clear();
        const auto service = startService();
        waitForControl();
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
        report.figure(u"resident memory, idle"_s, table.database(), memory, u"MB"_s,
                      Target::atMost(32));
    }

    void drainMemory()
    {
        constexpr int early = 10'000;
        constexpr int late = 200'000;
        table.clear();
        table.fill(types, million, receiver.port());
        receiver.expect(late);
        const auto service = startService();
        awaitRequests(early);
        const double first = service->residentMb();
        double most = first;
        for (int at = early; at < late; at += early) {
            awaitRequests(at + early);
            most = std::max(most, service->residentMb());
        }
        report.figure(u"resident memory, 8 types, 1000000 rows"_s, table.database(), most, u"MB"_s,
                      Target::atMost(48));
        report.figure(u"  growth, message 10000 to 200000"_s, table.database(),
                      service->residentMb() - first, u"MB"_s, Target::atMost(1));
    }

    void start()
    {
        std::vector<double> times;
        for (int round = 0; round < 11; ++round) {
            table.clear();
            table.fill(types.first(1), 1, receiver.port());
            receiver.expect(1);
            const auto begin = Receiver::Clock::now();
            const auto service = startService();
            awaitRequests(1);
            times.push_back(
                std::chrono::duration<double, std::milli>(receiver.drain().first - begin).count());
        }
        report.figure(u"process start to the first request"_s, table.database(), median(times),
                      u"ms"_s, Target::atMost(100));
    }

    void idleHour()
    {
        table.clear();
        const auto service = startService();
        waitForControl();
        const double before = service->processorMicroseconds();
        QElapsedTimer timer;
        timer.start();
        // Whole periods, so that each has its poll.
        const int periods = std::max(1, options.idleSeconds / defaultPeriodSeconds);
        QThread::sleep(periods * defaultPeriodSeconds);
        const double used = service->processorMicroseconds() - before;
        const double seconds = static_cast<double>(timer.elapsed()) / 1000;
        report.figure(u"processor time of an idle hour"_s, table.database(),
                      used / seconds * 3600 / 1e6, u"s"_s, Target::atMost(1));
        report.note(u"from %1 s, that is %2 polls"_s.arg(QString::number(seconds, 'f', 0),
                                                         QString::number(periods)));
    }

    /// `/status` over a new connection each time, as its callers ask.
    void control()
    {
        // So that in the middle of a drain the table has 10,000 rows.
        const int draining = options.messages;
        const int staying = std::max(0, 10'000 - draining / 2);
        std::vector<double> times;
        for (int round = 0; round < options.rounds; ++round) {
            table.clear();
            table.fill(stayingType, staying, receiver.port());
            table.fill(types, draining, receiver.port());
            receiver.expect(draining);
            const auto service = startService();
            awaitRequests(8);
            while (receiver.drain().requests < draining) {
                times.push_back(askStatus());
                QThread::msleep(2);
            }
        }
        std::sort(times.begin(), times.end());
        report.figure(u"/status, 10000 rows, 8 types draining, p99"_s, table.database(),
                      times.at(times.size() * 99 / 100), u"ms"_s, Target::atMost(10));
        report.note(u"%1 requests, median %2 ms, longest %3 ms"_s.arg(times.size())
                        .arg(times.at(times.size() / 2), 0, 'f', 2)
                        .arg(times.back(), 0, 'f', 2));
    }

    /// The till's INSERT every 50 ms while types drain, with disks of several speeds.
    void tills()
    {
        report.columns(u"the till's INSERT: median, p99, longest, ms"_s,
                       u"types,commit ms,reply ms,program,median,p99,longest,"
                       "inserts,failed,failed removals,per second"_s);
        if (!options.tillCases.isEmpty()) {
            for (const TillCase &chosen : options.tillCases)
                compareTills(chosen);
            return;
        }
        for (const int replyMs : {5, 30}) {
            for (const int commitMs : {0, 5, 20, 50}) {
                for (const int count : {1, 8, plainTypeCount})
                    compareTills({count, commitMs, replyMs});
            }
        }
        compareTills({8, 0, 0});
    }

    /// What the statements that look at the whole table take when it is long.
    void longQueue()
    {
        table.clear();
        table.fill(stayingType, million, receiver.port());
        for (const auto &[what, statement] :
             {std::pair{u"poll"_s, pollStatement}, std::pair{u"/status"_s, statusStatement},
              std::pair{u"read"_s, readStatement}}) {
            report.figure(u"statement of %1, 1000000 rows"_s.arg(what), table.database(),
                          table.milliseconds(statement), u"ms"_s);
            for (const QString &step : table.plan(statement))
                report.note(step);
        }
        const auto service = startService();
        waitForControl();
        askStatus();
        report.figure(u"/status asked, 1000000 rows"_s, table.database(),
                      median(11, [this] { askStatus(); }), u"ms"_s);
    }

    void workerStart()
    {
        table.clear();
        QProcess process;
        process.start(options.workerStart, {settingsPath(), u"500"_s});
        if (!process.waitForFinished(answerTimeoutMs) || process.exitCode() != 0)
            fail(u"%1: %2"_s.arg(options.workerStart,
                                 QString::fromUtf8(process.readAllStandardError())));
        const bool isServer = table.database() != u"SQLite";
        report.figure(u"a worker's start and end"_s, table.database(),
                      process.readAllStandardOutput().trimmed().toDouble(), u"ms"_s,
                      Target::atMost(isServer ? 3 : 1));
    }

    /// Instructions are the same on a busy machine, so these can be compared with those of another day.
    void instructions()
    {
        constexpr int messages = 1000;
        const auto difference = [this](bool isBare) {
            const double start = instructionsOf(1, isBare);
            return instructionsOf(messages, isBare) - start;
        };
        const double bare = difference(true);
        const double service = difference(false);
        report.ratio(u"instructions per message, drain of 1000"_s, table.database(),
                     bare / (messages - 1), service / (messages - 1), u""_s, {});
    }

private:
    enum Program
    {
        Service,
        BareLoop,
        QtBareLoop,
        QuietService
    };

    enum class TillProgram
    {
        BareLoops,
        GatedBareLoops,
        Former,
        Service
    };

    static QStringList plainTypes()
    {
        QStringList names;
        for (int number = 1; number <= plainTypeCount; ++number)
            names.append(u"plain%1"_s.arg(number));
        return names;
    }

    QString settingsPath() const { return root + u"/tallocash/cash/conf/bench.ini"_s; }
    QString logPath() const { return root + u"/queue.log"_s; }
    QString bareLogPath() const { return root + u"/bare.log"_s; }
    QString quietLogPath() const { return root + u"/quiet.properties"_s; }

    std::unique_ptr<Process> startService(Process::Place place = Process::Place::AnyProcessor,
                                          bool isQuiet = false) const
    {
        QStringList environment{u"QUEUE_ROOT="_s + root};
        if (isQuiet)
            environment.append(u"LOG4QT_CONFIGURATION="_s + quietLogPath());
        return std::make_unique<Process>(options.service, QStringList(), logPath(), environment,
                                         place);
    }

    /// `each`: how many messages of each type it sends. A gate is for SQLite alone.
    std::unique_ptr<Process> startBareLoop(const QStringList &names, int each, bool isQt,
                                           bool isGated, Process::Place place,
                                           const QStringList &environment = {}) const
    {
        QStringList arguments = table.bareLoopArguments();
        if (isQt)
            arguments.first().prepend(u"qt-"_s);
        if (isGated && table.database() == u"SQLite")
            arguments.first().prepend(u"gate-"_s);
        arguments += {names.join(u','), QString::number(each)};
        return std::make_unique<Process>(options.bareLoop, arguments, bareLogPath(), environment,
                                         place);
    }

    void awaitRequests(int requests)
    {
        if (!receiver.wait(requests, drainTimeout))
            fail(u"%1 of %2 messages arrived, the log is %3"_s.arg(receiver.drain().requests)
                     .arg(requests)
                     .arg(logPath()));
    }

    void compareOneType(Program program, const QString &time, const QString &processor,
                        const Target &timeTarget = {}, const Target &processorTarget = {})
    {
        const Comparison costs =
            compare(types.first(1), options.messages, options.messages, program);
        report.ratio(time, table.database(), costs.bare.time, costs.other.time, u"us"_s,
                     timeTarget);
        report.ratio(processor, table.database(), costs.bare.processor, costs.other.processor,
                     u"us"_s, processorTarget);
    }

    /// What each of `messages` takes that the service delivers, in microseconds.
    double timeOf(int messages)
    {
        receiver.expect(messages);
        const ProcessorLeft left;
        const auto service = startService(Process::Place::LastProcessor);
        awaitRequests(messages);
        const Receiver::Drain seen = receiver.drain();
        return std::chrono::duration<double, std::micro>(seen.last - seen.first).count()
               / (messages - 1);
    }

    /// The median cost of each of the first `measured` messages of `rows`, the two taking turns.
    Comparison compare(const QStringList &names, int rows, int measured, Program program = Service)
    {
        Costs bare;
        Costs other;
        for (int round = 0; round < options.rounds; ++round) {
            bare.add(drain(names, rows, measured, BareLoop));
            other.add(drain(names, rows, measured, program));
            if (names.size() == 1 && program == Service)
                compareHeads();
        }
        return {bare.middle(), other.middle()};
    }

    Cost drain(const QStringList &names, int rows, int measured, Program program)
    {
        // A long queue is left as it is between rounds: what is taken from it does not count.
        if (rows <= measured || table.count() < rows / 10 * 9) {
            table.clear();
            table.fill(names, rows, receiver.port());
        }
        receiver.expect(measured);
        // Several at once take what processors there are.
        std::optional<ProcessorLeft> left;
        if (names.size() == 1)
            left.emplace();
        const auto place = left ? Process::Place::LastProcessor : Process::Place::AnyProcessor;
        std::vector<std::unique_ptr<Process>> processes;
        if (program == BareLoop || program == QtBareLoop) {
            processes.push_back(startBareLoop(names, measured / static_cast<int>(names.size()),
                                              program == QtBareLoop, names.size() > 1, place));
        } else {
            processes.push_back(startService(place, program == QuietService));
        }
        const auto processor = [&processes] {
            double sum = 0;
            for (const auto &process : processes)
                sum += process->processorMicroseconds();
            return sum;
        };
        awaitRequests(1);
        const double before = processor();
        awaitRequests(measured);
        const double used = processor() - before;
        const Receiver::Drain seen = receiver.drain();
        (program == Service ? serviceHead : bareHead) = seen.head;
        for (const auto &process : processes) {
            if (!process->end())
                fail(u"a program under measurement ended badly, see %1"_s.arg(root));
        }
        if (rows == measured && (table.count() != 0 || receiver.drain().requests != measured))
            fail(u"%1 rows are left after %2 requests for %3 messages"_s.arg(table.count())
                     .arg(receiver.drain().requests)
                     .arg(measured));
        // Between the first and the last arrival lie measured - 1 whole rounds of reading, sending
        // and deleting, and nothing of the start.
        const std::chrono::duration<double, std::micro> time = seen.last - seen.first;
        return {time.count() / (measured - 1), used / (measured - 1)};
    }

    void compareTills(const TillCase &with)
    {
        const bool isMany = with.types > types.size();
        QList<std::pair<QString, TillProgram>> programs{
            {u"bare loops without the gate"_s, TillProgram::BareLoops},
            {u"bare loops with the gate"_s, TillProgram::GatedBareLoops}};
        if (!options.former.isEmpty() && !isMany)
            programs.append({u"the service's former build"_s, TillProgram::Former});
        programs.append({u"the service"_s, TillProgram::Service});
        report.note(
            u"types: %1, commits take %2 ms more, replies come after %3 ms"_s.arg(with.types)
                .arg(with.commitMs)
                .arg(with.replyMs));
        double before = 0;
        for (const auto &[name, program] : programs) {
            const TillFigures seen = till(with, program);
            report.values({name,
                           u"%1 %2 %3"_s.arg(seen.middle, 7, 'f', 1)
                               .arg(seen.late, 7, 'f', 1)
                               .arg(seen.longest, 7, 'f', 1),
                           u"failed: %1 of %2"_s.arg(seen.failed).arg(seen.inserts),
                           u"removals that failed: %1"_s.arg(seen.failedRemovals),
                           u"%1 deliveries/s"_s.arg(seen.deliveries, 0, 'f', 0)},
                          u"%1,%2,%3,%4,%5,%6,%7,%8,%9,%10,%11"_s.arg(with.types)
                              .arg(with.commitMs)
                              .arg(with.replyMs)
                              .arg(name)
                              .arg(seen.middle)
                              .arg(seen.late)
                              .arg(seen.longest)
                              .arg(seen.inserts)
                              .arg(seen.failed)
                              .arg(seen.failedRemovals)
                              .arg(seen.deliveries));
            if (program == TillProgram::BareLoops || program == TillProgram::Former)
                before = seen.deliveries;
            if (program == TillProgram::Service)
                judgeTill(with, seen, seen.deliveries / before);
        }
    }

    void judgeTill(const TillCase &with, const TillFigures &seen, double gain)
    {
        const auto judge = [this](const QString &what, double value, const QString &unit,
                                  Target target) {
            report.figure(u"  "_s + what, table.database(), value, unit, target);
        };
        if (with.types == 8 && with.commitMs == 20) {
            judge(u"the till's INSERT, p99"_s, seen.late, u"ms"_s, Target::atMost(100));
            judge(u"deliveries over those before"_s, gain, u""_s, Target::atLeast(2.5));
        } else if (with.types == plainTypeCount && with.commitMs == 50) {
            judge(u"the till's INSERT, failed"_s, seen.failed, u""_s, Target::atMost(0));
            judge(u"the till's INSERT, p99"_s, seen.late, u"ms"_s, Target::atMost(500));
        } else if (with.replyMs == 0) {
            judge(u"the till's INSERT, p99"_s, seen.late, u"ms"_s, Target::atMost(100));
            judge(u"deliveries over those before"_s, gain, u""_s,
                  options.former.isEmpty() ? Target{} : Target::atLeast(1.15));
        }
    }

    TillFigures till(const TillCase &with, TillProgram program)
    {
        const QStringList names =
            with.types > types.size() ? plainTypes() : types.first(with.types);
        // More than can be delivered, so that no type comes to its end.
        const int seconds = options.tillSeconds + warmUpSeconds + 2;
        const int each = with.replyMs > 0 ? 1000 / with.replyMs * seconds : 3000 * seconds;
        table.clear();
        table.fill(names, each * static_cast<int>(names.size()), receiver.port());
        receiver.setDelay(std::chrono::milliseconds(with.replyMs));
        receiver.expect(0);
        QFile::remove(logPath());
        QFile::remove(bareLogPath());

        const QStringList disk{u"LD_PRELOAD="_s + options.slowSync,
                               u"QUEUE_BENCH_SYNC_MS=%1"_s.arg(with.commitMs)};
        const bool isBare =
            program == TillProgram::BareLoops || program == TillProgram::GatedBareLoops;
        std::unique_ptr<Process> draining;
        if (isBare) {
            draining = startBareLoop(names, each, false, program == TillProgram::GatedBareLoops,
                                     Process::Place::AnyProcessor, disk);
        } else {
            const QString path = program == TillProgram::Former ? options.former
                                 : with.types > types.size()    ? options.plainTypes
                                                                : options.service;
            draining = std::make_unique<Process>(path, QStringList(), logPath(),
                                                 disk + QStringList{u"QUEUE_ROOT="_s + root});
        }
        awaitRequests(static_cast<int>(names.size()));
        QThread::sleep(warmUpSeconds);

        const QString output = root + u"/till.log"_s;
        QFile::remove(output);
        const int first = receiver.drain().requests;
        QElapsedTimer timer;
        timer.start();
        Process writer(options.tillWriter,
                       {table.bareLoopArguments().at(1), stayingType.first(), u"50"_s}, output,
                       disk);
        QThread::sleep(options.tillSeconds);
        const double deliveries = receiver.drain().requests - first;
        const double elapsed = static_cast<double>(timer.nsecsElapsed()) / 1e9;
        if (!writer.end())
            fail(u"the till's program ended badly, see %1"_s.arg(output));
        if (!draining->isRunning() || !draining->end())
            fail(u"a program under measurement ended badly, see %1"_s.arg(root));
        receiver.setDelay({});
        for (const QString &name : names) {
            if (!table.has(name))
                fail(u"no row of type %1 is left"_s.arg(name));
        }

        TillFigures figures = figuresOf(output);
        figures.deliveries = deliveries / elapsed;
        const QByteArray log = contentOf(isBare ? bareLogPath() : logPath());
        figures.failedRemovals =
            static_cast<int>(isBare ? log.trimmed().toInt()
                                    : log.count(u"Ошибка при выполнении запроса: "_s.toUtf8()));
        return figures;
    }

    static QByteArray contentOf(const QString &path)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            fail(u"%1: %2"_s.arg(path, file.errorString()));
        return file.readAll();
    }

    /// Of what the till's program has printed.
    static TillFigures figuresOf(const QString &path)
    {
        TillFigures figures;
        std::vector<double> times;
        const QByteArrayList lines = contentOf(path).trimmed().split('\n');
        for (const QByteArray &line : lines) {
            const QByteArrayList words = line.split(' ');
            times.push_back(words.first().toDouble());
            figures.failed += words.size() > 1 ? 1 : 0;
        }
        std::sort(times.begin(), times.end());
        figures.inserts = static_cast<int>(times.size());
        figures.middle = median(times);
        figures.late = times.at(times.size() * 99 / 100);
        figures.longest = times.back();
        return figures;
    }

    /// Requests that differ in their headers could not be compared.
    void compareHeads() const
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

    void waitForControl()
    {
        QElapsedTimer timer;
        timer.start();
        for (;;) {
            QTcpSocket socket;
            socket.connectToHost(QHostAddress::LocalHost, controlPort);
            if (socket.waitForConnected(1000))
                return;
            if (timer.hasExpired(answerTimeoutMs))
                fail(u"the control interface does not answer, the log is %1"_s.arg(logPath()));
            QThread::msleep(5);
        }
    }

    /// Milliseconds from the connection to the end of the answer.
    double askStatus() const
    {
        QElapsedTimer timer;
        timer.start();
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, controlPort);
        socket.write("GET /status HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
        QByteArray answer;
        while (!answer.contains("messagesCount")) {
            if (!socket.waitForReadyRead(answerTimeoutMs))
                fail(u"/status was not answered: %1"_s.arg(QString::fromUtf8(answer)));
            answer += socket.readAll();
        }
        return static_cast<double>(timer.nsecsElapsed()) / 1e6;
    }

    double instructionsOf(int messages, bool isBare)
    {
        table.clear();
        table.fill(types.first(1), messages, receiver.port());
        receiver.expect(messages);
        const QString counts = root + u"/callgrind.out"_s;
        QFile::remove(counts);
        const QStringList tool{
            u"--tool=callgrind"_s, u"--callgrind-out-file="_s + counts,
            // Comes ten times a second, and so more often the slower the machine.
            u"--toggle-collect=Config::refresh(Config::State&)"_s, u"--collect-atstart=yes"_s};
        const QStringList bareLoop = QStringList{options.bareLoop} + table.bareLoopArguments()
                                     + QStringList{types.first(), QString::number(messages)};
        Process process(u"valgrind"_s, tool + (isBare ? bareLoop : QStringList{options.service}),
                        root + u"/callgrind.log"_s, {u"QUEUE_ROOT="_s + root});
        if (!receiver.wait(messages, instrumentedTimeout))
            fail(u"not every message arrived, see %1"_s.arg(root + u"/callgrind.log"_s));
        while (table.count() > 0)
            QThread::msleep(20);
        process.end();
        QFile file(counts);
        if (!file.open(QIODevice::ReadOnly))
            fail(u"%1: %2, see callgrind.log beside it"_s.arg(counts, file.errorString()));
        static const QRegularExpression total(u"^(?:totals|summary): (\\d+)"_s,
                                              QRegularExpression::MultilineOption);
        return total.match(QString::fromUtf8(file.readAll())).captured(1).toDouble();
    }

    const Options &options;
    Table &table;
    Receiver &receiver;
    Report &report;
    const QString root;
    int controlPort = 0;
    std::string bareHead;
    std::string serviceHead;
};

void measure(const Options &options, const QStringList &groups, bool isQuick)
{
    if (!QDir().mkpath(options.folder))
        fail(u"%1 cannot be made"_s.arg(options.folder));
    Receiver receiver;
    Report report(options.folder + u"/figures.csv"_s);
    std::optional<Series> backlog;
    std::optional<Series> throughput;
    if (groups.contains(u"backlog"_s))
        backlog.emplace(options.folder + u"/backlog.csv"_s);
    if (groups.contains(u"types"_s))
        throughput.emplace(options.folder + u"/types.csv"_s);

    for (const bool isServer : {false, true}) {
        if (!options.database.isEmpty() && isServer != (options.database == u"MariaDB"))
            continue;
        const auto table =
            isServer ? mariaDbTable(options.folder) : sqliteTable(options.folder + u"/sqlite"_s);
        const auto wants = [&](const QString &group) {
            return groups.contains(group);
        };
        Bench bench(options, *table, receiver, report);
        report.heading(
            isServer
                ? u"MariaDB on its socket, the server's own durability"_s
                : u"SQLite, synchronous=FULL; the service logs to a file, as systemd keeps its output"_s);
        if (wants(u"drain"_s))
            bench.oneType();
        if (wants(u"driver"_s))
            bench.driver();
        if (wants(u"log"_s))
            bench.log();
        if (wants(u"types"_s))
            bench.manyTypes(*throughput, isQuick ? QList{8} : QList{1, 2, 4, 6, 8});
        if (wants(u"backlog"_s)) {
            bench.backlogs(*backlog, {1000, 10'000, 100'000, million});
            bench.otherBacklog();
        }
        if (wants(u"start"_s) && !isServer)
            bench.start();
        if (wants(u"worker"_s))
            bench.workerStart();
        if (wants(u"control"_s))
            bench.control();
        if (wants(u"till"_s) && !isServer)
            bench.tills();
        if (wants(u"memory"_s) && !isServer)
            bench.idleMemory();
        if (wants(u"memory"_s) && !isServer && !isQuick)
            bench.drainMemory();
        if (wants(u"long"_s))
            bench.longQueue();
        if (wants(u"idle"_s))
            bench.idleHour();
        if (wants(u"instructions"_s))
            bench.instructions();
    }
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const QStringList all{u"drain"_s, u"driver"_s, u"log"_s,         u"types"_s, u"backlog"_s,
                          u"start"_s, u"worker"_s, u"control"_s,     u"till"_s,  u"memory"_s,
                          u"long"_s,  u"idle"_s,   u"instructions"_s};
    const QStringList quick{u"drain"_s, u"types"_s, u"start"_s, u"worker"_s, u"memory"_s};

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Measures the service beside a bare loop"_s);
    parser.addHelpOption();
    parser.addOptions({
        {u"quick"_s, u"Under a minute: fewer figures, from fewer messages and rounds."_s},
        {u"only"_s, u"One group of figures, may be repeated: "_s + all.join(u", "_s), u"group"_s},
        {u"database"_s, u"SQLite or MariaDB alone."_s, u"name"_s},
        {u"idle-seconds"_s, u"How long to watch the idle service."_s, u"seconds"_s, u"120"_s},
        {u"till-seconds"_s, u"How long the till writes in each case of group till."_s, u"seconds"_s,
         u"10"_s},
        {u"till-case"_s,
         u"One case of group till, may be repeated: how many types, how much longer a commit takes and "
         "how late replies come, in ms, as in 8,20,5."_s,
         u"case"_s},
        {u"former"_s, u"An earlier build of the service, measured beside this one in group till."_s,
         u"program"_s},
        {u"messages"_s, u"How many messages a drain has."_s, u"number"_s},
        {u"rounds"_s, u"How often each drain is repeated."_s, u"number"_s},
        {u"programs"_s, u"The folder of the programs."_s, u"path"_s, u"build/release"_s},
        {u"folder"_s, u"Where databases, logs and figures go."_s, u"path"_s, u"build/bench"_s},
    });
    parser.process(application);
    const bool isQuick = parser.isSet(u"quick"_s);
    const QStringList chosen = parser.values(u"only"_s);
    for (const QString &group : chosen) {
        if (!all.contains(group)) {
            std::fprintf(stderr, "queue-bench: unknown group %s; there are %s\n", qPrintable(group),
                         qPrintable(all.join(u", "_s)));
            return 2;
        }
    }

    const QDir programs(parser.value(u"programs"_s));
    Options options;
    options.service = programs.absoluteFilePath(u"queue"_s);
    options.bareLoop = programs.absoluteFilePath(u"queue-bareloop"_s);
    options.workerStart = programs.absoluteFilePath(u"queue-workerstart"_s);
    options.plainTypes = programs.absoluteFilePath(u"queue-plaintypes"_s);
    options.tillWriter = programs.absoluteFilePath(u"queue-tillwriter"_s);
    options.slowSync = programs.absoluteFilePath(u"libqueue-slowsync.so"_s);
    if (parser.isSet(u"former"_s))
        options.former = QDir().absoluteFilePath(parser.value(u"former"_s));
    options.folder = QDir(parser.value(u"folder"_s)).absolutePath();
    options.database = parser.value(u"database"_s);
    const auto number = [&parser](const QString &option, int usual) {
        return parser.isSet(option) ? std::max(1, parser.value(option).toInt()) : usual;
    };
    options.messages = number(u"messages"_s, isQuick ? 1500 : 3000);
    options.rounds = number(u"rounds"_s, isQuick ? 3 : 11);
    options.idleSeconds = parser.value(u"idle-seconds"_s).toInt();
    const QStringList cases = parser.values(u"till-case"_s);
    for (const QString &text : cases) {
        const QStringList numbers = text.split(u',');
        options.tillCases.append(
            {numbers.value(0).toInt(), numbers.value(1).toInt(), numbers.value(2).toInt()});
        const int count = options.tillCases.last().types;
        if (numbers.size() != 3 || count < 1 || (count > types.size() && count != plainTypeCount)) {
            std::fprintf(stderr, "queue-bench: no case of group till: %s\n", qPrintable(text));
            return 2;
        }
    }
    options.tillSeconds = std::max(1, parser.value(u"till-seconds"_s).toInt());
    try {
        measure(options, chosen.isEmpty() ? (isQuick ? quick : all) : chosen, isQuick);
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "queue-bench: %s\n", exception.what());
        return 1;
    }
    return 0;
}
