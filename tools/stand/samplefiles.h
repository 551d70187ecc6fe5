#pragma once

#include "rig/authority.h"
#include "tools/stand/scenariofile.h"

#include <QList>
#include <QMap>
#include <QString>

#include <memory>

namespace stand {

/// What the stand writes below the root: the ports of the peers, and the settings, files and
/// certificates that direct the service to them; at the end, the result. All operations throw
/// ScenarioError.
class SampleFiles
{
public:
    explicit SampleFiles(const QString &root);

    /// Chooses a free port for each peer of the samples and writes everything that the service
    /// reads when it starts.
    void write(const QList<ScenarioSource> &samples);
    /// Reads the ports that an earlier call of write() chose.
    void readPorts();
    quint16 port(const ScenarioSource &sample, const rig::PeerScript &peer) const;
    /// The addresses of the sample's peers.
    Places places(const ScenarioSource &sample) const;
    /// Created at its first use: most samples need none.
    const rig::Authority &authority();
    /// The result of the show, for the calling program.
    void writeResult(const QString &text) const;

private:
    void choosePorts(const QList<ScenarioSource> &samples);
    QString portsFile() const;

    QString root;
    /// By sample and peer.
    QMap<QString, quint16> ports;
    std::unique_ptr<rig::Authority> authority_;
};

} // namespace stand
