#pragma once

#include "rig/messagetable.h"
#include "rig/scriptedpeer.h"
#include "tools/stand/samplefiles.h"
#include "tools/stand/samplescreen.h"
#include "tools/stand/scenariofile.h"

#include <QList>
#include <QString>

#include <map>
#include <memory>
#include <optional>
#include <vector>

namespace stand {

/// What a caller may choose. Everything by default: all types, and nobody fails.
struct ShowOptions
{
    /// Message types to show; empty: all.
    QStringList types = {};
    /// How the services fail at first.
    std::optional<rig::Failure> failure = {};
    /// The types whose services fail; empty: all that are shown.
    QStringList failingTypes = {};
    int failingSeconds = 10;
    /// Shows headers and bodies.
    bool isVerbose = false;
};

/// Shows the service at work: plays the outside services of all sample scenarios at once, puts
/// their messages into the table of a service that runs below `root`, and prints every exchange.
/// All operations throw ScenarioError. Thread: the one that has the application's event loop.
class SampleStand
{
public:
    SampleStand(const QString &root, const QString &scenarios, const ShowOptions &options = {});
    ~SampleStand();

    /// Chooses the peers' ports and writes them, the samples' files and their settings below the
    /// root, where a service that starts afterwards finds them.
    void writeSettings();
    /// Delivers everything. With a failure, the services fail first, for the time in the options,
    /// and then answer; a type that takes the failure for a final answer counts as done. True when
    /// all messages have left the table as their scenarios or the failure require.
    bool run();

    /// A line for each sample: type, kinds of its services, scenario.
    static QStringList list(const QString &scenarios);

private:
    struct Sample
    {
        Scenario scenario;
        std::map<QString, std::unique_ptr<rig::ScriptedPeer>> peers;
        /// Rows of this sample that are still in the table.
        QList<int> ids;
        SampleLine line;
        bool isDone = false;
        bool isDelivered = false;
        bool isFailing = false;
        /// The rows left the table because of the failure.
        bool isGivenUp = false;

        QString type() const;
        QStringList findings() const;
        /// A request was answered by the script, not by a failure.
        bool wasAsked() const;
    };

    void startPeers();
    std::unique_ptr<Sample> startSample(const ScenarioSource &source, const QString &label);
    void putMessages();
    void playFailure();
    void look();
    Summary summary() const;

    QString root;
    ShowOptions options;
    SampleFiles files;
    QList<ScenarioSource> sources;
    std::vector<std::unique_ptr<Sample>> samples;
    std::unique_ptr<rig::MessageTable> table;
};

} // namespace stand
