#include "tests/faults/shop.h"

#include "engine/basichandler.h"
#include "handlers/handlertable.h"
#include "rig/authority.h"

#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QFileInfo>

#include <thread>

using namespace Qt::StringLiterals;
using rig::PeerScript;
using rig::ScriptedPeer;

namespace faults {

namespace {

/// Ids are unique in a process: nspkec counts its attempts by id.
int lastId = 0;

QString nobodysAddress(quint16 port)
{
    return ScriptedPeer::address(PeerScript::Kind::Http, port);
}

} // namespace

QList<stand::ScenarioSource> scenarios()
{
    return stand::loadScenarios(QStringLiteral(QUEUE_SCENARIOS));
}

stand::Scenario scenarioOf(const stand::ScenarioSource &source)
{
    stand::Places places;
    for (const QString &name : stand::placeNames(source.peers()))
        places.insert(name, name.endsWith(u".port"_s) ? u"1"_s : nobodysAddress(1));
    return source.scenario(places);
}

Shop::Shop(const stand::ScenarioSource &source)
    : factory(handlerTable())
{
    const rig::PortReservation nobody;
    stand::Places places{{u"root"_s, database.root()},
                         {u"nobody"_s, nobodysAddress(nobody.port())},
                         {u"nobody.port"_s, QString::number(nobody.port())}};
    for (const PeerScript &script : source.peers()) {
        auto peer = std::make_unique<ScriptedPeer>();
        places.insert(script.name, ScriptedPeer::address(script.kind, peer->port()));
        places.insert(script.name + u".host"_s, u"127.0.0.1"_s);
        places.insert(script.name + u".port"_s, QString::number(peer->port()));
        peers.emplace(script.name, std::move(peer));
    }
    scenario = source.scenario(places);
    writeFiles();
    writeSettings();
}

void Shop::fill()
{
    database.query(u"DELETE FROM message"_s);
    database.query(u"DELETE FROM queues.documentcard"_s);
    for (const rig::CardRow &card : std::as_const(scenario.cards)) {
        const QStringList columns = card.keys();
        QVariantList values;
        for (const QString &value : card)
            values.append(value.isNull() ? u""_s : value);
        database.query(
            u"INSERT INTO queues.documentcard (%1) VALUES (%2)"_s.arg(
                columns.join(u", "_s), QStringList(columns.size(), u"?"_s).join(u", "_s)),
            values);
    }
    for (const stand::QueuedMessage &message : std::as_const(scenario.messages))
        database.query(u"INSERT INTO message (messageid, type, body, cardnumber, statuscode) "
                       "VALUES (?, ?, ?, ?, '')"_s,
                       {++lastId, message.type, message.body,
                        message.cardNumber.isNull() ? u""_s : message.cardNumber});
    state = std::make_shared<SharedState>();
}

bool Shop::runPass()
{
    for (const PeerScript &script : std::as_const(scenario.peers))
        peers.at(script.name)->play(script, &rig::Authority::shared());
    bool hasThrown = false;
    QEventLoop loop;
    std::thread worker([&] {
        const std::unique_ptr<BasicHandler> handler(factory.create(type()));
        handler->setState(state);
        try {
            handler->run();
        } catch (...) {
            hasThrown = true;
        }
        QMetaObject::invokeMethod(&loop, &QEventLoop::quit, Qt::QueuedConnection);
    });
    loop.exec();
    worker.join();
    for (const auto &[name, peer] : peers)
        peer->drain();
    return hasThrown;
}

int Shop::requestsOfAMessage() const
{
    qsizetype exchanges = 0;
    for (const PeerScript &script : scenario.peers)
        exchanges += script.exchanges.size();
    return static_cast<int>(exchanges) / messages();
}

int Shop::arrived() const
{
    int sum = 0;
    for (const auto &[name, peer] : peers)
        sum += peer->arrived();
    return sum;
}

void Shop::writeFiles()
{
    const auto place = [this](const QString &path) {
        const QString file = database.root() + path;
        QDir().mkpath(QFileInfo(file).path());
        return file;
    };
    QDir().mkpath(database.root() + u"/tmp"_s);
    for (auto entry = scenario.files.cbegin(); entry != scenario.files.cend(); ++entry) {
        QFile file(place(entry.key()));
        if (!file.open(QIODevice::WriteOnly) || file.write(entry->toUtf8()) < 0)
            qFatal("%s: %s", qPrintable(file.fileName()), qPrintable(file.errorString()));
    }
    for (auto entry = scenario.certificates.cbegin(); entry != scenario.certificates.cend();
         ++entry)
        rig::Authority::shared().writeClientCertificate(place(entry.key()), entry.value());
}

void Shop::writeSettings()
{
    rig::Settings settings = scenario.settings;
    if (scenario.hasTls())
        settings[u"network"_s].insert(u"caFile"_s, rig::Authority::shared().file());
    database.setSettings(rig::settingsText(settings));
}

} // namespace faults
