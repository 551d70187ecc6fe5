#include "tools/stand/samplestand.h"

#include "rig/waiting.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/screen.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSet>
#include <QTimer>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

QList<ScenarioSource> loadSamples(const QString &scenarios)
{
    QList<ScenarioSource> result;
    const QList<ScenarioSource> all = loadScenarios(scenarios);
    for (const ScenarioSource &source : all) {
        if (source.isSample())
            result.append(source);
    }
    if (result.isEmpty())
        throw ScenarioError(u"%1: no scenario is marked as a sample"_s.arg(scenarios));
    return result;
}

/// Throws UsageError for a type that no sample has.
void checkTypes(const QStringList &types, const QList<ScenarioSource> &samples)
{
    for (const QString &type : types) {
        const bool isThere = std::any_of(samples.begin(), samples.end(),
                                         [&](const auto &sample) { return sample.type() == type; });
        if (!isThere)
            throw UsageError(say(u"Нет образца типа '%1'; --list показывает все"_s,
                                 u"There is no sample of type '%1'; --list shows them all"_s)
                                 .arg(type));
    }
}

} // namespace

QString SampleStand::Sample::type() const
{
    return scenario.messages.first().type;
}

QStringList SampleStand::Sample::findings() const
{
    QStringList result;
    for (const auto &[name, peer] : peers)
        result += peer->findings();
    return result;
}

bool SampleStand::Sample::wasAsked() const
{
    return std::any_of(peers.begin(), peers.end(),
                       [](const auto &peer) { return peer.second->arrived() > 0; });
}

SampleStand::SampleStand(const QString &root, const QString &scenarios, const ShowOptions &options)
    : root(QDir(root).absolutePath())
    , options(options)
    , files(this->root)
    , sources(loadSamples(scenarios))
{
    checkTypes(options.types, sources);
    if (!options.types.isEmpty())
        sources.removeIf(
            [&](const auto &source) { return !options.types.contains(source.type()); });
    checkTypes(options.failingTypes, sources);
}

SampleStand::~SampleStand() = default;

QStringList SampleStand::list(const QString &scenarios)
{
    const QList<ScenarioSource> samples = loadSamples(scenarios);
    qsizetype width = 0;
    for (const ScenarioSource &sample : samples)
        width = std::max(width, sample.type().size());
    QStringList result;
    for (const ScenarioSource &sample : samples) {
        QStringList kinds;
        const QList<rig::PeerScript> peers = sample.peers();
        for (const rig::PeerScript &peer : peers) {
            const QString kind = peer.kind == rig::PeerScript::Kind::Tcp     ? u"TCP"_s
                                 : peer.kind == rig::PeerScript::Kind::Https ? u"HTTPS"_s
                                                                             : u"HTTP"_s;
            if (!kinds.contains(kind))
                kinds.append(kind);
        }
        result.append(u"%1  %2  %3"_s.arg(sample.type().leftJustified(width),
                                          kinds.join(u'+').leftJustified(10), sample.title()));
    }
    result.sort(Qt::CaseInsensitive);
    return result;
}

void SampleStand::writeSettings()
{
    files.write(sources);
}

void SampleStand::startPeers()
{
    qsizetype width = 0;
    for (const ScenarioSource &source : std::as_const(sources))
        width = std::max(width, source.type().size());
    files.readPorts();
    for (const ScenarioSource &source : std::as_const(sources))
        samples.push_back(startSample(source, source.type().leftJustified(width)));
}

std::unique_ptr<SampleStand::Sample> SampleStand::startSample(const ScenarioSource &source,
                                                              const QString &label)
{
    auto sample = std::make_unique<Sample>();
    sample->line = SampleLine(label, options.isVerbose, options.failure.has_value());
    const QList<rig::PeerScript> peers = source.peers();
    for (const rig::PeerScript &peer : peers)
        sample->peers.emplace(peer.name,
                              std::make_unique<rig::ScriptedPeer>(files.port(source, peer)));
    sample->scenario = source.scenario(files.places(source));
    if (sample->scenario.messages.isEmpty() || !sample->scenario.steps.isEmpty())
        throw ScenarioError(u"%1: a sample has messages and no steps"_s.arg(source.title()));
    for (const rig::PeerScript &script : std::as_const(sample->scenario.peers)) {
        rig::ScriptedPeer *peer = sample->peers.at(script.name).get();
        QObject::connect(
            peer, &rig::ScriptedPeer::exchanged, peer,
            [peer, kind = script.kind, sample = sample.get()](const rig::Traffic &traffic) {
                sample->line.showExchange(kind, rig::ScriptedPeer::address(kind, peer->port()),
                                          traffic);
            });
        const bool hasTls = script.kind == rig::PeerScript::Kind::Https;
        peer->play(script, hasTls ? &files.authority() : nullptr);
    }
    sample->isFailing =
        options.failure.has_value()
        && (options.failingTypes.isEmpty() || options.failingTypes.contains(sample->type()));
    if (sample->isFailing) {
        for (const auto &[name, peer] : sample->peers)
            peer->fail(*options.failure);
    }
    return sample;
}

void SampleStand::putMessages()
{
    rig::DatabasePlace place;
    place.file = root + u"/tallocash/cash/queue/queues.db"_s;
    // The service creates the file and its tables at its start.
    const auto isReady = [&] {
        if (!QFile::exists(place.file))
            return false;
        try {
            table = std::make_unique<rig::MessageTable>(place);
            table->rows();
            return true;
        } catch (const rig::Error &) {
            table.reset();
            return false;
        }
    };
    if (!rig::waitUntil(isReady))
        throw ScenarioError(say(u"Служба не создала базу данных %1"_s,
                                u"The service has not created its database %1"_s)
                                .arg(place.file));
    for (const auto &sample : samples) {
        for (const rig::CardRow &card : std::as_const(sample->scenario.cards))
            table->putCard(card);
        for (const QueuedMessage &message : std::as_const(sample->scenario.messages))
            sample->ids.append(table->put(message.row()));
    }
}

bool SampleStand::run()
{
    startPeers();
    print(say(u"Стенд имитирует внешние службы на 127.0.0.1, образцов сообщений: %1"_s,
              u"The stand plays the outside services on 127.0.0.1 for %1 sample messages"_s)
              .arg(samples.size()));
    putMessages();
    if (options.failure)
        playFailure();
    const bool isAllDone = rig::waitUntil([this] {
        look();
        return std::all_of(samples.begin(), samples.end(),
                           [](const auto &sample) { return sample->isDone; });
    });
    if (!isAllDone) {
        for (const auto &sample : samples) {
            if (!sample->isDone)
                sample->line.showFate(say(u"осталось в очереди"_s, u"still in the queue"_s), false);
        }
    }
    const Summary end = summary();
    files.writeResult(end.result());
    print(end);
    return end.failed.isEmpty();
}

void SampleStand::playFailure()
{
    print(say(u"Сбой на %1 с: %2"_s, u"A failure for %1 s: %2"_s)
              .arg(QString::number(options.failingSeconds), describe(*options.failure)));
    QTimer wake;
    wake.start(100);
    bool isOver = false;
    QTimer::singleShot(std::chrono::seconds(options.failingSeconds), &wake, [&] { isOver = true; });
    while (!isOver) {
        look();
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    print(say(u"Сбой окончен"_s, u"The failure is over"_s));
    for (const auto &sample : samples) {
        for (const auto &[name, peer] : sample->peers)
            peer->recover();
    }
}

void SampleStand::look()
{
    QSet<int> left;
    const QList<rig::TableRow> rows = table->rows();
    for (const rig::TableRow &row : rows)
        left.insert(row.id);
    for (const auto &sample : samples) {
        if (sample->isDone)
            continue;
        const bool isGone = std::none_of(sample->ids.cbegin(), sample->ids.cend(),
                                         [&](int id) { return left.contains(id); });
        if (isGone) {
            // Bytes that came over plain TCP may not have been read yet.
            for (const auto &[name, peer] : sample->peers)
                peer->drain();
        }
        const QStringList findings = sample->findings();
        const bool isWrong =
            std::any_of(sample->peers.begin(), sample->peers.end(),
                        [](const auto &peer) {
                            return peer.second->arrived() > 0 && peer.second->isComplete();
                        })
            && !findings.isEmpty();
        if (!isGone && !isWrong)
            continue;
        sample->isDone = true;
        sample->isDelivered = isGone && findings.isEmpty();
        sample->isGivenUp =
            isGone && !sample->isDelivered && sample->isFailing && !sample->wasAsked();
        if (sample->isGivenUp) {
            sample->line.showFate(say(u"удалено из-за сбоя"_s, u"removed because of the failure"_s),
                                  false);
            continue;
        }
        sample->line.showFate(sample->isDelivered
                                  ? say(u"удалено из очереди"_s, u"removed"_s)
                                  : say(u"не так, как в образце"_s, u"not as in the sample"_s),
                              sample->isDelivered);
        for (const QString &finding : findings)
            print(u"    "_s + QString(finding).replace(u'\n', u"\n    "_s));
    }
}

Summary SampleStand::summary() const
{
    Summary result;
    for (const auto &sample : samples) {
        result.shown.insert(sample->type());
        if (sample->isGivenUp)
            result.givenUp.insert(sample->type());
        else if (!sample->isDelivered)
            result.failed.insert(sample->type());
    }
    // A type with several samples is delivered when all of them are.
    result.givenUp -= result.failed;
    return result;
}

} // namespace stand
