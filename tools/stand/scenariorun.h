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
    /// The settings that direct the service to it.
    QString serverSettings;
    /// Empties the server's tables and resets their ids to 1.
    std::function<void()> clearServer;
};

struct RunResult
{
    /// The differences from the scenario; empty when there are none.
    QStringList findings;
    /// The service's log and standard error.
    QString log;
    /// The same log as records.
    QList<rig::LogRecord> records;
    /// The contents of its delivery journal, one text for each row.
    QStringList journal;
    /// Its messages.
    QList<rig::JournalRow> outcomes;
};

/// Runs one scenario against the real service in a folder of its own: peers first, then rows and
/// settings, then the service, the scenario's steps, and an orderly stop.
///
/// The service polls only once, at its start; every further pass of a worker is started through the
/// control interface. So the requests of a scenario can be counted exactly. It waits only for log
/// lines of the service, the peers and the end of the process. Thread: the one that has the
/// application's event loop.
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
    /// The signal to end has been sent; it must not be sent twice.
    bool isTerminated = false;
    QStringList findings;
    QStringList journal;
    QList<rig::JournalRow> outcomes;
};

} // namespace stand
