#include "tools/stand/scenariorun.h"

#include "rig/authority.h"
#include "rig/controlport.h"
#include "rig/error.h"
#include "rig/textpattern.h"
#include "rig/waiting.h"

#include <QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace stand {

namespace {

/// Once a day is never within a scenario.
constexpr int noPollSeconds = 86400;

} // namespace

ScenarioRun::ScenarioRun(const ScenarioSource &source, const RunOptions &options)
    : source(source)
    , options(options)
{
}

ScenarioRun::~ScenarioRun() = default;

RunResult ScenarioRun::run()
{
    try {
        setUp();
        // A fault in the middle makes everything behind it meaningless, except the peers' view of
        // it.
        if (startService() && performSteps() && stopService())
            compare();
        else
            for (const auto &[name, peer] : peers)
                findings += peer->findings();
    } catch (const rig::Error &error) {
        findings.append(error.text());
    }
    RunResult result;
    result.findings = findings;
    result.journal = journal;
    result.outcomes = outcomes;
    if (service) {
        result.log = service->log().text();
        result.records = service->log().records();
        if (!service->errors().isEmpty())
            result.log += u"standard error:\n"_s + service->errors();
    }
    return result;
}

void ScenarioRun::setUp()
{
    Places places{
        {u"root"_s, till.root()},
        {u"nobody"_s, rig::ScriptedPeer::address(rig::PeerScript::Kind::Http, nobody.port())},
        {u"nobody.port"_s, QString::number(nobody.port())}};
    const QList<rig::PeerScript> scripts = source.peers();
    for (const rig::PeerScript &script : scripts) {
        auto peer = std::make_unique<rig::ScriptedPeer>();
        places.insert(script.name, rig::ScriptedPeer::address(script.kind, peer->port()));
        places.insert(script.name + u".host"_s, u"127.0.0.1"_s);
        places.insert(script.name + u".port"_s, QString::number(peer->port()));
        peers.emplace(script.name, std::move(peer));
    }
    scenario = source.scenario(places);
    const rig::Authority *authority = nullptr;
    if (scenario.hasTls() || !scenario.certificates.isEmpty())
        authority = &rig::Authority::shared();
    if (scenario.hasTls() && !scenario.settings[u"network"_s].contains(u"caFile"_s))
        scenario.settings[u"network"_s].insert(u"caFile"_s, authority->file());
    for (const rig::PeerScript &script : std::as_const(scenario.peers))
        peers.at(script.name)->play(script, authority);

    writeSettings();
    till.write(scenario.files);
    for (auto entry = scenario.certificates.cbegin(); entry != scenario.certificates.cend();
         ++entry)
        authority->writeClientCertificate(till.path(entry.key()), entry.value());

    rig::DatabasePlace place = options.server;
    if (place.socket.isEmpty())
        place.file = till.databaseFile();
    table = std::make_unique<rig::MessageTable>(place);
    if (place.socket.isEmpty())
        table->createTables();
    else
        options.clearServer();
    for (const rig::CardRow &card : std::as_const(scenario.cards))
        table->putCard(card);
    for (const QueuedMessage &message : std::as_const(scenario.messages))
        put(message);
    service = std::make_unique<rig::ServiceProcess>(options.program, till, scenario.environment);
}

void ScenarioRun::writeSettings()
{
    rig::Settings settings = scenario.settings;
    QMap<QString, QString> &queue = settings[u"queue"_s];
    if (!queue.contains(u"timeout"_s))
        queue.insert(u"timeout"_s, QString::number(noPollSeconds));
    if (!queue.contains(u"port"_s))
        queue.insert(u"port"_s, QString::number(till.controlPort()));
    till.setSettings(options.serverSettings + rig::settingsText(settings));
}

void ScenarioRun::put(const QueuedMessage &message)
{
    written.append({table->put(message.row()), message});
}

bool ScenarioRun::startService()
{
    const QStringList types = table->types();
    const qsizetype formerRecords = service->log().records().size();
    service->start();
    const bool isSettled = rig::waitUntil([&] {
        if (service->hasEnded() || isReplyHeld())
            return true;
        if (types.isEmpty()) {
            const QList<rig::LogRecord> &log = service->log().records();
            return std::any_of(
                log.cbegin() + formerRecords, log.cend(),
                [](const rig::LogRecord &it) { return it.text == u"В очереди нет сообщений"; });
        }
        return service->log().isIdle()
               && std::all_of(types.cbegin(), types.cend(), [&](const QString &type) {
                      return service->log().ends(type) > 0 || service->log().refusals(type) > 0;
                  });
    });
    if (!isSettled)
        return fail(u"the service did not end its first pass"_s);
    if (service->hasEnded())
        return fail(u"%1 right after its start"_s.arg(service->endFault()));
    return true;
}

bool ScenarioRun::performSteps()
{
    for (qsizetype index = 0; index < scenario.steps.size(); ++index) {
        const qsizetype formerFindings = findings.size();
        const bool isDone = perform(scenario.steps[index]) && settle();
        for (qsizetype at = formerFindings; at < findings.size(); ++at)
            findings[at].prepend(u"steps[%1]: "_s.arg(index));
        if (!isDone)
            return false;
    }
    return true;
}

bool ScenarioRun::perform(const Step &step)
{
    switch (step.kind) {
    case Step::Kind::Pass:
        return pass(step.subject);
    case Step::Kind::Put:
        put(step.message);
        return true;
    case Step::Kind::Restart:
    case Step::Kind::Crash:
        return restart(step);
    case Step::Kind::Up:
        peers.at(step.subject)->up();
        return true;
    case Step::Kind::Down:
        peers.at(step.subject)->down();
        return true;
    case Step::Kind::Release:
        if (peers.at(step.subject)->heldReplies() == 0)
            return fail(u"no request waits at peer %1"_s.arg(step.subject));
        peers.at(step.subject)->release();
        return true;
    case Step::Kind::Ask:
        return ask(step.subject, step.answer);
    case Step::Kind::AwaitLog: {
        const rig::TextPattern wanted(step.subject);
        const auto hasCome = [&] {
            const QList<rig::LogRecord> &log = service->log().records();
            return std::count_if(
                       log.cbegin(), log.cend(),
                       [&](const rig::LogRecord &it) { return wanted.matches(it.line()); })
                   >= step.count;
        };
        rig::waitUntil([&] { return service->hasEnded() || hasCome(); });
        return hasCome() || fail(u"the log never had the line: %1"_s.arg(step.subject));
    }
    case Step::Kind::Write:
        till.write(step.files);
        return true;
    case Step::Kind::Terminate: {
        service->terminate();
        isTerminated = true;
        const auto isSeen = [&] {
            const QList<rig::LogRecord> &log = service->log().records();
            return std::any_of(log.cbegin(), log.cend(), [](const rig::LogRecord &it) {
                return it.category == u"queue" && it.text == stopText;
            });
        };
        rig::waitUntil([&] { return service->hasEnded() || isSeen(); });
        return isSeen() || fail(u"the service did not notice the signal"_s);
    }
    }
    return false;
}

bool ScenarioRun::pass(const QString &type)
{
    const int formerEnds = service->log().ends(type);
    const QString path = u"/start/%1/0"_s.arg(type);
    // A worker that has said its last word still counts as running for a moment.
    QString answer;
    const bool isAnswered = rig::waitUntil([&] {
        answer = service->ask(path).value(u"description"_s).toString();
        return service->hasEnded() || answer != u"Обработчик уже запущен";
    });
    if (!isAnswered || answer != u"Обработчик успешно запущен")
        return fail(u"%1 was answered: %2"_s.arg(path, answer));
    const bool isDone = rig::waitUntil([&] {
        return service->hasEnded() || isReplyHeld() || service->log().ends(type) > formerEnds;
    });
    return isDone || fail(u"the worker of type %1 did not end"_s.arg(type));
}

bool ScenarioRun::ask(const QString &path, const QJsonValue &expected)
{
    const QByteArray body = rig::askControl(till.controlPort(), path.toUtf8(), rig::patience());
    if (body.isNull())
        return fail(u"the control interface did not answer %1"_s.arg(path));
    if (expected.isUndefined())
        return true;
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return fail(u"%1 was answered: %2"_s.arg(path, rig::shortened(QString::fromUtf8(body))));
    findings += rig::differences(expected, document.object(), path);
    return true;
}

bool ScenarioRun::restart(const Step &step)
{
    if (step.kind == Step::Kind::Restart) {
        if (!stopService())
            return false;
    } else {
        service->kill();
        rig::waitUntil([&] { return service->hasEnded(); });
        for (const auto &[name, peer] : peers) {
            peer->drain();
            peer->dropCallers();
        }
    }
    // The service writes files of its own after its first poll, so only now nothing overwrites
    // these.
    till.write(step.files);
    return startService();
}

bool ScenarioRun::stopService()
{
    if (!service->hasEnded() && !isTerminated)
        service->terminate();
    isTerminated = false;
    if (!rig::waitUntil([&] { return service->hasEnded(); }))
        return fail(u"the service did not end after the signal to do so"_s);
    const QString fault = service->endFault();
    return fault.isEmpty() || fail(fault);
}

bool ScenarioRun::settle()
{
    const bool isSettled = rig::waitUntil(
        [&] { return service->hasEnded() || isReplyHeld() || service->log().isIdle(); });
    return isSettled || fail(u"the workers did not end"_s);
}

bool ScenarioRun::fail(const QString &what)
{
    findings.append(what);
    return false;
}

bool ScenarioRun::isReplyHeld() const
{
    return std::any_of(peers.begin(), peers.end(),
                       [](const auto &peer) { return peer.second->heldReplies() > 0; });
}

void ScenarioRun::compare()
{
    for (const auto &[name, peer] : peers) {
        peer->drain();
        findings += peer->findings();
    }
    findings += tableFindings(written, table->rows());
    const QString journalPath = till.path(u"/tallocash/cash/queue/journal.db"_s);
    outcomes = rig::readJournal(journalPath);
    findings += journalFindings(written, outcomes);
    journal = rig::journalTexts(journalPath);
    findings += cardFindings(scenario, table->cards());
    findings += logFindings(scenario, service->log().records());
    if (!service->errors().isEmpty())
        findings.append(u"the service wrote to standard error:\n"_s + service->errors());
}

} // namespace stand
