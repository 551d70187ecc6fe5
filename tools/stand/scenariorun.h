#pragma once

#include "rig/messagetable.h"
#include "rig/scriptedpeer.h"
#include "rig/serviceprocess.h"
#include "rig/till.h"
#include "tools/stand/scenariocheck.h"
#include "tools/stand/scenariofile.h"

#include <QStringList>

#include <functional>
#include <map>
#include <memory>

namespace stand {

/// What a run needs besides the scenario.
struct RunOptions
{
    /// The service's program.
    QString program;
    /// A database server that is up and has the schema; without a socket each run has an SQLite
    /// file.
    rig::DatabasePlace server;
    /// The settings that lead the service there.
    QString serverSettings;
    /// Empties the server's tables and lets their numbers begin at 1 again.
    std::function<void()> clearServer;
};

struct RunResult
{
    /// What was not as the scenario tells it; empty when all was.
    QStringList findings;
    /// The service's log and standard error.
    QString log;
    /// The same log, each record whole.
    QList<rig::LogRecord> records;
    /// All that its delivery journal holds, a text for each row.
    QStringList journal;
};

/// Runs one scenario against the real service in a folder of its own: peers first, then rows and
/// settings, then the service, the scenario's steps, and an orderly stop.
///
/// The service polls only once, at its start; every further pass of a worker is asked for through
/// the control interface. So the requests of a scenario can be counted exactly. Nothing is waited
/// for but the service's own log lines, the peers and the end of the process.
/// Thread: the one that has the application's event loop.
class ScenarioRun
{
public:
    ScenarioRun(const ScenarioSource &source, const RunOptions &options);
    ~ScenarioRun();

    RunResult run();

private:
    void setUp();
    void writeSettings();
    void put(const QueuedMessage &message);
    bool startService();
    bool performSteps();
    bool perform(const Step &step);
    bool pass(const QString &type);
    bool ask(const QString &path, const QJsonValue &expected);
    bool restart(const Step &step);
    bool stopService();
    bool settle();
    bool fail(const QString &what);

    bool isReplyHeld() const;
    void compare();

    const ScenarioSource &source;
    RunOptions options;
    rig::Till till;
    rig::PortReservation nobody;
    std::map<QString, std::unique_ptr<rig::ScriptedPeer>> peers;
    Scenario scenario;
    std::unique_ptr<rig::MessageTable> table;
    std::unique_ptr<rig::ServiceProcess> service;
    QList<WrittenMessage> written;
    /// The signal to end has been sent and is not to be sent twice.
    bool isTerminated = false;
    QStringList findings;
    QStringList journal;
};

} // namespace stand
