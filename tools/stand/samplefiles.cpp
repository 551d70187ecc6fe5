#include "tools/stand/samplefiles.h"

#include "rig/scriptedpeer.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/screen.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>

#include <vector>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

void writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) < 0 || !file.commit())
        throw ScenarioError(u"%1: %2"_s.arg(path, file.errorString()));
}

QString peerKey(const ScenarioSource &sample, const rig::PeerScript &peer)
{
    return sample.title() + u", "_s + peer.name;
}

/// Adds the settings of the scenario; two samples may not differ in a setting.
void addSettings(rig::Settings &settings, const Scenario &scenario)
{
    for (auto section = scenario.settings.begin(); section != scenario.settings.end(); ++section) {
        for (auto setting = section->begin(); setting != section->end(); ++setting) {
            QString &value = settings[section.key()][setting.key()];
            if (!value.isNull() && value != setting.value())
                throw ScenarioError(u"%1: another sample sets %2:%3 to '%4'"_s.arg(
                    scenario.title, section.key(), setting.key(), value));
            value = setting.value();
        }
    }
}

} // namespace

SampleFiles::SampleFiles(const QString &root)
    : root(root)
{
}

void SampleFiles::write(const QList<ScenarioSource> &samples)
{
    choosePorts(samples);
    rig::Settings settings;
    for (const ScenarioSource &sample : samples) {
        Scenario scenario = sample.scenario(places(sample));
        if (scenario.hasTls())
            scenario.settings[u"network"_s].insert(u"caFile"_s, authority().file());
        addSettings(settings, scenario);
        for (auto file = scenario.files.cbegin(); file != scenario.files.cend(); ++file)
            writeFile(root + file.key(), file->toUtf8());
        for (auto entry = scenario.certificates.cbegin(); entry != scenario.certificates.cend();
             ++entry)
            authority().writeClientCertificate(root + entry.key(), entry.value());
    }
    const QString text =
        u"; Where the stand plays the outside services.\n"_s + rig::settingsText(settings);
    writeFile(root + u"/tallocash/cash/conf/10-stand.ini"_s, text.toUtf8());
    QJsonObject content;
    for (auto port = ports.cbegin(); port != ports.cend(); ++port)
        content.insert(port.key(), port.value());
    writeFile(portsFile(), QJsonDocument(content).toJson());
}

void SampleFiles::choosePorts(const QList<ScenarioSource> &samples)
{
    // All ports are held until the last one is chosen, so that no two are the same.
    std::vector<std::unique_ptr<rig::PortReservation>> held;
    for (const ScenarioSource &sample : samples) {
        const QList<rig::PeerScript> peers = sample.peers();
        for (const rig::PeerScript &peer : peers) {
            held.push_back(std::make_unique<rig::PortReservation>());
            ports.insert(peerKey(sample, peer), held.back()->port());
        }
    }
}

void SampleFiles::readPorts()
{
    QFile file(portsFile());
    if (!file.open(QIODevice::ReadOnly))
        return;
    const QJsonObject content = QJsonDocument::fromJson(file.readAll()).object();
    for (auto port = content.begin(); port != content.end(); ++port)
        ports.insert(port.key(), static_cast<quint16>(port->toInt()));
}

quint16 SampleFiles::port(const ScenarioSource &sample, const rig::PeerScript &peer) const
{
    const auto port = ports.constFind(peerKey(sample, peer));
    if (port == ports.cend())
        throw ScenarioError(say(u"%1 не описывает образец '%2', сначала нужен вызов с "
                                "--write-settings"_s,
                                u"%1 does not know the sample '%2'; call with "
                                "--write-settings first"_s)
                                .arg(portsFile(), sample.title()));
    return *port;
}

Places SampleFiles::places(const ScenarioSource &sample) const
{
    Places places{{u"root"_s, root}};
    const QList<rig::PeerScript> peers = sample.peers();
    for (const rig::PeerScript &peer : peers) {
        const quint16 number = port(sample, peer);
        places.insert(peer.name, rig::ScriptedPeer::address(peer.kind, number));
        places.insert(peer.name + u".host"_s, u"127.0.0.1"_s);
        places.insert(peer.name + u".port"_s, QString::number(number));
    }
    return places;
}

const rig::Authority &SampleFiles::authority()
{
    if (!authority_)
        authority_ = std::make_unique<rig::Authority>(root + u"/stand-authority"_s);
    return *authority_;
}

void SampleFiles::writeResult(const QString &text) const
{
    writeFile(root + u"/stand-result.txt"_s, text.toUtf8() + '\n');
}

QString SampleFiles::portsFile() const
{
    return root + u"/stand-ports.json"_s;
}

} // namespace stand
