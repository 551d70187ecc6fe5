// Measures the service from outside on both databases, and a bare loop as the lower limit. ./bench
// builds and calls it; docs/performance.md explains the figures.

#include "benchmarks/bench.h"
#include "benchmarks/statistics.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>

#include <cstdio>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int million = 1'000'000;

/// Groups that say nothing of the database.
const QStringList onSqliteAlone{u"start"_s, u"till"_s, u"memory"_s};

/// Tells which group of how many begins, for show_steps of scripts/progress.sh.
class Steps
{
public:
    Steps(const Options &options, const QStringList &groups, bool isWanted)
        : isWanted(isWanted)
    {
        for (const bool isServer : {false, true}) {
            for (const QString &group : groups)
                total += isMeasured(options, group, isServer) ? 1 : 0;
        }
    }

    static bool isMeasured(const Options &options, const QString &group, bool isServer)
    {
        if (!options.database.isEmpty() && isServer != (options.database == u"MariaDB"))
            return false;
        return !isServer || !onSqliteAlone.contains(group);
    }
    void begin(const QString &group, bool isServer)
    {
        ++begun;
        if (!isWanted)
            return;
        std::printf("[%d/%d] %s, %s\n", begun, total, isServer ? "MariaDB" : "SQLite",
                    qPrintable(group));
        std::fflush(stdout);
    }

private:
    bool isWanted;
    int total = 0;
    int begun = 0;
};

void measure(const Options &options, const QStringList &groups, bool isQuick, bool withSteps)
{
    Steps steps(options, groups, withSteps);
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
            if (!groups.contains(group) || !Steps::isMeasured(options, group, isServer))
                return false;
            steps.begin(group, isServer);
            return true;
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
        if (wants(u"start"_s))
            bench.start();
        if (wants(u"worker"_s))
            bench.workerStart();
        if (wants(u"control"_s))
            bench.control();
        if (wants(u"till"_s))
            bench.tills();
        if (wants(u"journal"_s))
            bench.journal();
        if (wants(u"metrics"_s))
            bench.metrics();
        if (wants(u"memory"_s)) {
            bench.idleMemory();
            if (!isQuick)
                bench.drainMemory();
        }
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
    const QStringList all{u"drain"_s, u"driver"_s, u"log"_s,          u"types"_s,   u"backlog"_s,
                          u"start"_s, u"worker"_s, u"control"_s,      u"till"_s,    u"memory"_s,
                          u"long"_s,  u"idle"_s,   u"instructions"_s, u"journal"_s, u"metrics"_s};
    const QStringList quick{u"drain"_s, u"types"_s, u"start"_s, u"worker"_s, u"memory"_s};

    QCommandLineParser parser;
    parser.setApplicationDescription(u"Measures the service beside a bare loop"_s);
    parser.addHelpOption();
    parser.addOptions({
        {u"quick"_s, u"Under a minute: fewer figures, from fewer messages and rounds."_s},
        {u"only"_s, u"One group of figures, may be repeated: "_s + all.join(u", "_s), u"group"_s},
        {u"database"_s, u"SQLite or MariaDB alone."_s, u"name"_s},
        {u"idle-seconds"_s, u"How long to watch the idle service."_s, u"seconds"_s, u"120"_s},
        {u"till-seconds"_s,
         u"How long the till writes in each case of the groups till and metrics."_s, u"seconds"_s,
         u"10"_s},
        {u"till-case"_s,
         u"One case of group till, may be repeated: how many types, how much longer a commit takes and "
         "how late replies come, in ms, as in 8,20,5."_s,
         u"case"_s},
        {u"former"_s, u"An earlier build of the service, measured beside this one in group till."_s,
         u"program"_s},
        {u"steps"_s, u"Tells in a line of its own which group begins."_s},
        {u"messages"_s, u"How many messages a drain has."_s, u"number"_s},
        {u"rounds"_s, u"How often each drain is repeated."_s, u"number"_s},
        {u"programs"_s, u"The folder of the programs."_s, u"path"_s, u"build/release"_s},
        {u"folder"_s, u"Where databases, logs and figures go."_s, u"path"_s, u"build/bench"_s},
    });
    parser.process(application);
    const bool isQuick = parser.isSet(u"quick"_s);
    QStringList chosen = parser.values(u"only"_s);
    chosen.removeDuplicates();
    for (const QString &group : std::as_const(chosen)) {
        if (!all.contains(group)) {
            std::fprintf(stderr, "queue-bench: unknown group %s; there are %s\n", qPrintable(group),
                         qPrintable(all.join(u", "_s)));
            return 2;
        }
    }

    const QDir programs(parser.value(u"programs"_s));
    Options options;
    options.service = programs.absoluteFilePath(u"queue"_s);
    options.queuectl = programs.absoluteFilePath(u"queuectl"_s);
    options.bareLoop = programs.absoluteFilePath(u"queue-bareloop"_s);
    options.storeTimes = programs.absoluteFilePath(u"queue-storetimes"_s);
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
        measure(options, chosen.isEmpty() ? (isQuick ? quick : all) : chosen, isQuick,
                parser.isSet(u"steps"_s));
    } catch (const std::exception &exception) {
        std::fprintf(stderr, "queue-bench: %s\n", exception.what());
        return 1;
    }
    return 0;
}
