#include "rig/mariadbserver.h"
#include "tests/scenarios/rules.h"
#include "tests/scenarios/secrets.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/scenariorun.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFileInfo>

#include <cstdio>
#include <memory>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;

namespace {

void print(const QString &text)
{
    std::fputs(qPrintable(text + u'\n'), stdout);
    std::fflush(stdout);
}

QString indented(const QString &text, const QString &indent)
{
    QString result = indent + text.trimmed();
    return result.replace(u'\n', u'\n' + indent);
}

/// The secrets of the scenario. The addresses of its peers are not secrets.
Secrets secretsOf(const stand::ScenarioSource &source)
{
    stand::Places places;
    const QStringList names = stand::placeNames(source.peers());
    for (const QString &name : names)
        places.insert(name, u"http://127.0.0.1"_s);
    return Secrets(source.scenario(places));
}

/// Exit code of a run in which no scenario could run.
constexpr int cannotRun = 2;

} // namespace

/// Runs scenarios against the real service. Exit code 0: all passed; 1: some failed; 2: a scenario
/// file is wrong, or there is nothing to run.
int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Runs scenarios against the service."_s);
    parser.addHelpOption();
    const QCommandLineOption program({u"service"_s}, u"The service's program."_s, u"file"_s);
    const QCommandLineOption mariaDb({u"mariadb"_s},
                                     u"Keep the messages on a MariaDB server of the run's own."_s);
    const QCommandLineOption only({u"only"_s}, u"Run scenarios whose title has this text."_s,
                                  u"text"_s);
    const QCommandLineOption showLog({u"log"_s}, u"Show the service's log in any case."_s);
    parser.addOptions({program, mariaDb, only, showLog});
    parser.addPositionalArgument(u"paths"_s, u"Scenario files, or folders of them."_s);
    parser.process(application);

    stand::RunOptions options;
    // The environment takes precedence over the build.
    options.program =
        QFileInfo(qEnvironmentVariable("QUEUE_PROGRAM", parser.value(program))).absoluteFilePath();
    QList<stand::ScenarioSource> sources;
    try {
        const QStringList paths = parser.positionalArguments();
        for (const QString &path : paths)
            sources += stand::loadScenarios(path);
    } catch (const stand::ScenarioError &error) {
        print(error.text());
        return cannotRun;
    }
    if (!QFileInfo::exists(options.program)) {
        print(u"there is no service '%1'"_s.arg(options.program));
        return cannotRun;
    }

    std::unique_ptr<MariaDbServer> server;
    if (parser.isSet(mariaDb)) {
        server = std::make_unique<MariaDbServer>();
        options.server.driver = u"QMYSQL"_s;
        options.server.socket = server->socket();
        options.server.user = server->user();
        options.server.password = server->password();
        options.serverSettings = server->settings();
        options.clearServer = [&server] {
            server->run(u"TRUNCATE queues.message; TRUNCATE queues.documentcard"_s);
        };
    }
    const QString database = server ? u"mariadb"_s : u"sqlite"_s;

    int passed = 0;
    qsizetype secretCount = 0;
    QStringList failed;
    for (const stand::ScenarioSource &source : std::as_const(sources)) {
        if (!source.title().contains(parser.value(only)) || !source.isFor(database))
            continue;
        QElapsedTimer timer;
        timer.start();
        stand::RunResult result = stand::ScenarioRun(source, options).run();
        const Secrets secrets = secretsOf(source);
        secretCount += secrets.values().size();
        result.findings += secrets.leaks(result.records);
        result.findings += secrets.journalLeaks(result.journal);
        result.findings += ruleFindings(source.title(), result.outcomes);
        const bool isPassed = result.findings.isEmpty();
        print(u"%1  %2 (%3 ms)"_s.arg(isPassed ? u"PASS"_s : u"FAIL"_s, source.title())
                  .arg(timer.elapsed()));
        for (const QString &finding : result.findings)
            print(indented(finding, u"      "_s));
        if (!isPassed || parser.isSet(showLog))
            print(u"      the service's log:\n"_s + indented(result.log, u"      | "_s));
        if (isPassed)
            ++passed;
        else
            failed.append(source.title());
    }
    print(u"%1 scenarios on %2: %3 passed, %4 failed"_s.arg(passed + failed.size())
              .arg(database)
              .arg(passed)
              .arg(failed.size()));
    print(u"%1 secrets looked for in the logs and the journals"_s.arg(secretCount));
    for (const QString &title : std::as_const(failed))
        print(u"failed: "_s + title);
    if (passed + failed.size() == 0)
        return cannotRun;
    return failed.isEmpty() ? 0 : 1;
}
