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
/// What a scenario tells, with places that nobody can reach.
stand::Scenario scenarioOf(const stand::ScenarioSource &source);

/// The outside services of one scenario, its till, and real handlers between them, in this process.
/// Thread: the one that has the application's event loop.
class Shop
{
public:
    explicit Shop(const stand::ScenarioSource &source);

    /// The tables as the till has written them, and no fail id.
    void fill();
    /// One worker's pass, with the peers at the beginning of their scripts. True when it threw.
    bool runPass();

    QString type() const { return scenario.messages.first().type; }
    int messages() const { return static_cast<int>(scenario.messages.size()); }
    /// The rows that are still there.
    int left() { return static_cast<int>(database.ids().size()); }
    /// The requests that one message makes.
    int requestsOfAMessage() const;
    /// The requests so far, in all passes.
    int arrived() const;
    /// What the peers play from the next pass on.
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
