#include "tools/stand/samplestand.h"

#include "rig/authority.h"
#include "rig/waiting.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/screen.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QSet>
#include <QTime>
#include <QTimer>

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

QString joined(const QSet<QString> &types)
{
    QStringList names(types.cbegin(), types.cend());
    names.sort();
    return names.join(u", "_s);
}

QString portsFile(const QString &root)
{
    return root + u"/stand-ports.json"_s;
}

/// The result of the show, for the calling program.
QString resultFile(const QString &root)
{
    return root + u"/stand-result.txt"_s;
}

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

QString describe(const rig::Failure &failure)
{
    switch (failure.kind) {
    case rig::Failure::Kind::Refuse:
        return say(u"соединения отклоняются"_s, u"connections are refused"_s);
    case rig::Failure::Kind::Status:
        return say(u"ответ на всё: %1"_s, u"everything is answered with %1"_s).arg(failure.status);
    case rig::Failure::Kind::Slow:
        return say(u"ответы опаздывают на %1 с"_s, u"answers are %1 s late"_s).arg(failure.seconds);
    case rig::Failure::Kind::Close:
        break;
    }
    return say(u"соединения обрываются без ответа"_s, u"connections end without an answer"_s);
}

QString peerKey(const ScenarioSource &source, const rig::PeerScript &peer)
{
    return source.title() + u", "_s + peer.name;
}

Places placesOf(const ScenarioSource &source, const QString &root,
                const QMap<QString, quint16> &ports)
{
    Places places{{u"root"_s, root}};
    const QList<rig::PeerScript> peers = source.peers();
    for (const rig::PeerScript &peer : peers) {
        const quint16 port = ports.value(peerKey(source, peer));
        places.insert(peer.name, rig::ScriptedPeer::address(peer.kind, port));
        places.insert(peer.name + u".host"_s, u"127.0.0.1"_s);
        places.insert(peer.name + u".port"_s, QString::number(port));
    }
    return places;
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
    // All ports are held until the last one is chosen, so that no two are the same.
    std::vector<std::unique_ptr<rig::PortReservation>> held;
    QMap<QString, quint16> ports;
    QJsonObject portsObject;
    for (const ScenarioSource &source : std::as_const(sources)) {
        const QList<rig::PeerScript> peers = source.peers();
        for (const rig::PeerScript &peer : peers) {
            held.push_back(std::make_unique<rig::PortReservation>());
            ports.insert(peerKey(source, peer), held.back()->port());
            portsObject.insert(peerKey(source, peer), held.back()->port());
        }
    }

    rig::Settings settings;
    for (const ScenarioSource &source : std::as_const(sources)) {
        Scenario scenario = source.scenario(placesOf(source, root, ports));
        if (scenario.hasTls())
            scenario.settings[u"network"_s].insert(u"caFile"_s, openAuthority().file());
        for (auto section = scenario.settings.begin(); section != scenario.settings.end();
             ++section) {
            for (auto setting = section->begin(); setting != section->end(); ++setting) {
                QString &value = settings[section.key()][setting.key()];
                if (!value.isNull() && value != setting.value())
                    throw ScenarioError(u"%1: another sample sets %2:%3 to '%4'"_s.arg(
                        source.title(), section.key(), setting.key(), value));
                value = setting.value();
            }
        }
        for (auto file = scenario.files.begin(); file != scenario.files.end(); ++file)
            writeFile(root + file.key(), file->toUtf8());
        for (auto entry = scenario.certificates.cbegin(); entry != scenario.certificates.cend();
             ++entry)
            openAuthority().writeClientCertificate(root + entry.key(), entry.value());
    }
    const QString text =
        u"; Where the stand plays the outside services.\n"_s + rig::settingsText(settings);
    writeFile(root + u"/tallocash/cash/conf/10-stand.ini"_s, text.toUtf8());
    writeFile(portsFile(root), QJsonDocument(portsObject).toJson());
}

const rig::Authority &SampleStand::openAuthority()
{
    if (!authority)
        authority = std::make_unique<rig::Authority>(root + u"/stand-authority"_s);
    return *authority;
}

QMap<QString, quint16> SampleStand::readPorts() const
{
    QMap<QString, quint16> result;
    QFile file(portsFile(root));
    if (!file.open(QIODevice::ReadOnly))
        return result;
    const QJsonObject ports = QJsonDocument::fromJson(file.readAll()).object();
    for (auto port = ports.begin(); port != ports.end(); ++port)
        result.insert(port.key(), static_cast<quint16>(port->toInt()));
    return result;
}

void SampleStand::startPeers()
{
    const QMap<QString, quint16> ports = readPorts();
    for (const ScenarioSource &source : std::as_const(sources)) {
        auto sample = std::make_unique<Sample>();
        const QList<rig::PeerScript> peers = source.peers();
        for (const rig::PeerScript &peer : peers) {
            if (!ports.contains(peerKey(source, peer)))
                throw ScenarioError(say(u"%1 не описывает образец '%2', сначала нужен вызов с "
                                        "--write-settings"_s,
                                        u"%1 does not know the sample '%2'; call with "
                                        "--write-settings first"_s)
                                        .arg(portsFile(root), source.title()));
            sample->peers.emplace(
                peer.name, std::make_unique<rig::ScriptedPeer>(ports.value(peerKey(source, peer))));
        }
        sample->scenario = source.scenario(placesOf(source, root, ports));
        if (sample->scenario.messages.isEmpty() || !sample->scenario.steps.isEmpty())
            throw ScenarioError(u"%1: a sample has messages and no steps"_s.arg(source.title()));
        for (const rig::PeerScript &script : std::as_const(sample->scenario.peers)) {
            rig::ScriptedPeer *peer = sample->peers.at(script.name).get();
            Sample *shown = sample.get();
            QObject::connect(peer, &rig::ScriptedPeer::exchanged, peer,
                             [this, shown, script](const rig::Traffic &traffic) {
                                 showExchange(*shown, script, traffic);
                             });
            const bool hasTls = script.kind == rig::PeerScript::Kind::Https;
            peer->play(script, hasTls ? &openAuthority() : nullptr);
        }
        sample->isFailing =
            options.failure.has_value()
            && (options.failingTypes.isEmpty() || options.failingTypes.contains(sample->type()));
        if (sample->isFailing) {
            for (const auto &[name, peer] : sample->peers)
                peer->fail(*options.failure);
        }
        typeWidth = std::max(typeWidth, sample->type().size());
        samples.push_back(std::move(sample));
    }
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
                show(*sample, say(u"осталось в очереди"_s, u"still in the queue"_s), false);
        }
    }
    return sayEnd();
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
            show(*sample, say(u"удалено из-за сбоя"_s, u"removed because of the failure"_s), false);
            continue;
        }
        show(*sample,
             sample->isDelivered ? say(u"удалено из очереди"_s, u"removed"_s)
                                 : say(u"не так, как в образце"_s, u"not as in the sample"_s),
             sample->isDelivered);
        for (const QString &finding : findings)
            print(u"    "_s + QString(finding).replace(u'\n', u"\n    "_s));
    }
}

void SampleStand::showExchange(Sample &sample, const rig::PeerScript &script,
                               const rig::Traffic &traffic)
{
    // One message may need several requests; only the last line says what became of it.
    if (!sample.waitingLine.isEmpty())
        print(sample.waitingLine);
    const QString address =
        rig::ScriptedPeer::address(script.kind, sample.peers.at(script.name)->port());
    QString line =
        u"TCP    %1  %2"_s.arg(address, rig::shortened(QString::fromUtf8(traffic.request.body)));
    if (script.kind != rig::PeerScript::Kind::Tcp) {
        line = u"%1 %2%3  %4"_s
                   .arg(traffic.request.verb.leftJustified(6), address, traffic.request.target)
                   .arg(traffic.status);
    }
    sample.waitingLine = u"%1  %2  %3"_s.arg(QTime::currentTime().toString(u"HH:mm:ss"_s),
                                             sample.type().leftJustified(typeWidth), line);
    if (!traffic.isFailure && !options.isVerbose)
        return;
    // The outcome of the message is still unknown, and its next request may come much later.
    print(traffic.isFailure
              ? sample.waitingLine + u" -> "_s + coloured(say(u"сбой"_s, u"failure"_s), false)
              : sample.waitingLine);
    sample.waitingLine.clear();
    if (options.isVerbose) {
        if (const QString text = quoted(traffic); !text.isEmpty())
            print(text);
    }
}

void SampleStand::show(Sample &sample, const QString &fate, bool isGood)
{
    if (sample.waitingLine.isEmpty()) {
        const bool isShown = options.isVerbose || options.failure;
        sample.waitingLine = u"%1  %2  %3"_s.arg(
            QTime::currentTime().toString(u"HH:mm:ss"_s), sample.type().leftJustified(typeWidth),
            isShown ? say(u"сообщение"_s, u"message"_s)
                    : say(u"(без запроса)"_s, u"(no request)"_s));
    }
    print(sample.waitingLine + u" -> "_s + coloured(fate, isGood));
    sample.waitingLine.clear();
}

bool SampleStand::sayEnd() const
{
    QSet<QString> types;
    QSet<QString> failed;
    QSet<QString> givenUp;
    for (const auto &sample : samples) {
        types.insert(sample->type());
        if (sample->isGivenUp)
            givenUp.insert(sample->type());
        else if (!sample->isDelivered)
            failed.insert(sample->type());
    }
    // A type with several samples is delivered when all of them are.
    givenUp -= failed;
    const QString result =
        say(u"Доставлено типов сообщений: %1 из %2"_s, u"Message types delivered: %1 of %2"_s)
            .arg(types.size() - failed.size() - givenUp.size())
            .arg(types.size());
    writeFile(resultFile(root), result.toUtf8() + '\n');
    print(coloured(result, failed.isEmpty()));
    if (!givenUp.isEmpty())
        print(say(u"Удалены из-за сбоя, который для них окончателен: %1"_s,
                  u"Removed because of the failure, which is final for them: %1"_s)
                  .arg(joined(givenUp)));
    if (!failed.isEmpty())
        print(say(u"Не доставлены: %1"_s, u"Not delivered: %1"_s).arg(joined(failed)));
    return failed.isEmpty();
}

} // namespace stand
