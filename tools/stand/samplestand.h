#pragma once

#include "tools/stand/messagetable.h"
#include "tools/stand/peer.h"
#include "tools/stand/scenario.h"

#include <QMap>
#include <QString>

#include <memory>
#include <vector>

namespace stand {

/// Shows the service at work: plays the outside services of all sample scenarios at once, puts their
/// messages into the table of a service that runs below `root`, and prints every exchange.
/// All operations throw ScenarioError. Thread: the one that has the application's event loop.
class SampleStand
{
public:
    SampleStand(const QString &root, const QString &scenarios);
    ~SampleStand();

    /// Chooses the peers' ports and writes them, the samples' files and their settings below the
    /// root, where a service that starts afterwards finds them.
    void writeSettings();
    /// Delivers everything. True when all messages have left the table as their scenarios tell.
    bool run();

private:
    struct Sample
    {
        Scenario scenario;
        std::map<QString, std::unique_ptr<Peer>> peers;
        /// Rows of this sample that are still in the table.
        QList<int> ids;
        /// An exchange whose line waits for the fate of its message.
        QString waitingLine;
        bool isDone = false;
        bool isDelivered = false;

        QString type() const;
        QStringList findings() const;
    };

    QMap<QString, quint16> readPorts() const;
    /// Made at its first use: most samples need none.
    const Authority &openAuthority();
    void startPeers();
    void putMessages();
    void look();
    void show(Sample &sample, const QString &fate, bool isGood);
    void showExchange(Sample &sample, const PeerScript &script, const QString &request, int status);
    bool sayEnd() const;

    QString root;
    QList<ScenarioSource> sources;
    std::unique_ptr<Authority> authority;
    std::vector<std::unique_ptr<Sample>> samples;
    std::unique_ptr<MessageTable> table;
    qsizetype typeWidth = 0;
};

} // namespace stand
