#pragma once

#include "engine/handlerfactory.h"
#include "engine/sharedstate.h"
#include "rig/scriptedpeer.h"
#include "tests/support/queuedatabase.h"
#include "tools/stand/scenariofile.h"

#include <map>
#include <memory>

namespace faults {

/// All scenarios of the service.
QList<stand::ScenarioSource> scenarios();
/// A scenario with unreachable addresses.
stand::Scenario scenarioOf(const stand::ScenarioSource &source);

/// The outside services of one scenario, its till, and real handlers between them, in this process.
/// Thread: the one that has the application's event loop.
class Shop
{
public:
    explicit Shop(const stand::ScenarioSource &source);

    /// Resets the tables to what the till has written, without fail ids.
    void fill();
    /// One pass of a worker, with the peers at the start of their scripts. True when it threw.
    bool runPass();

    QString type() const { return scenario.messages.first().type; }
    int messages() const { return static_cast<int>(scenario.messages.size()); }
    /// The rows that are still there.
    int left() { return static_cast<int>(database.ids().size()); }
    /// The requests that one message makes.
    int requestsOfAMessage() const;
    /// The requests so far, in all passes.
    int arrived() const;
    /// The script of the peers from the next pass on.
    QList<rig::PeerScript> &scripts() { return scenario.peers; }

private:
    void writeFiles();
    void writeSettings();

    QueueDatabase database;
    std::map<QString, std::unique_ptr<rig::ScriptedPeer>> peers;
    stand::Scenario scenario;
    HandlerFactory factory;
    std::shared_ptr<SharedState> state;
};

} // namespace faults
