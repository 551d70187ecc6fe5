#include "tools/stand/scenarioerror.h"
#include "tools/stand/scenariofile.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace rig;
using namespace stand;

/// Scenario files are written by hand: an error must be reported with its place.
class TestScenario : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void complaints_data();
    void complaints();
    void defaultsAndTemplates();
    void everythingIsRead();
    void recordedOutcomes();
    void filesOfAFolderInOrder();

private:
    QString write(const QString &name, const QByteArray &content);
    Scenario load(const QByteArray &scenario, const QByteArray &defaults = "{}");

    QTemporaryDir folder;
};

QString TestScenario::write(const QString &name, const QByteArray &content)
{
    const QString path = folder.filePath(name);
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) < 0)
        qFatal("%s", qPrintable(file.errorString()));
    return path;
}

Scenario TestScenario::load(const QByteArray &scenario, const QByteArray &defaults)
{
    const QString path =
        write(u"x.json"_s, "{\"defaults\": " + defaults + ", \"scenarios\": [" + scenario + "]}");
    const ScenarioSource source = loadScenarios(path).first();
    Places places;
    const QStringList names = placeNames(source.peers());
    for (const QString &name : names)
        places.insert(name, u'<' + name + u'>');
    return source.scenario(places);
}

void TestScenario::complaints_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("complaint");

    const auto row = [](const char *name, const QByteArray &scenario, const QString &complaint) {
        QTest::newRow(name) << "{\"scenarios\": [{\"name\": \"n\", " + scenario + "}]}"
                            << u"FILE: scenarios[0] \"n\": "_s + complaint;
    };
    // clang-format off
    QTest::newRow("not JSON") << QByteArray("{\n\"scenarios\": 1,}\n") << u"FILE:2: object is missing after a comma"_s;
    QTest::newRow("not an object") << QByteArray("[]") << u"FILE: : an object is expected here, not a list"_s;
    QTest::newRow("no scenarios") << QByteArray("{}") << u"FILE: scenarios: there must be one at least"_s;
    QTest::newRow("unknown key of the file") << QByteArray(R"({"scenarios": [{"name": "n"}], "default": {}})")
                            << u"FILE: default: unknown key; possible keys are about, defaults, scenarios"_s;
    QTest::newRow("no name") << QByteArray(R"({"scenarios": [{}]})") << u"FILE: scenarios[0].name: is missing or empty"_s;
    QTest::newRow("a name twice") << QByteArray(R"({"scenarios": [{"name": "n"}, {"name": "n"}]})")
                            << u"FILE: scenarios[1].name: another scenario of the file has this name"_s;
    // clang-format on
    row("unknown key", R"("expect": 1)",
        u"expect: unknown key; possible keys are about, cards, cardsAfter, certificates, database, "
        "environment, exchange, exchanges, files, log, logNever, message, messages, name, outcome, "
        "peers, sample, settings, steps"_s);
    row("unknown key of a message", R"("message": {"type": "t", "card": "1"})",
        u"message.card: unknown key; possible keys are body, cardnumber, outcome, statuscode, type"_s);
    row("message without type", R"("messages": [{"type": "t"}, {}])",
        u"messages[1].type: is missing or empty"_s);
    row("outcome that does not exist", R"("outcome": "gone")",
        u"outcome: 'gone' is not one of delivered, dropped, kept, waiting, removed"_s);
    row("outcome object that says nothing", R"("outcome": {"kind": "network"})",
        u"outcome.verdict: is missing or empty"_s);
    row("verdict that does not exist", R"("outcome": {"verdict": "lost"})",
        u"outcome.verdict: 'lost' is not one of delivered, dropped, kept"_s);
    row("kind that does not exist", R"("outcome": {"verdict": "kept", "kind": "tls"})",
        u"outcome.kind: 'tls' is not one of none, network, certificate, credentials, request, service"_s);
    row("status code of a message that is gone",
        R"("outcome": {"verdict": "dropped", "keptWithStatuscode": "1"})",
        u"outcome.keptWithStatuscode: only a message that is kept has one"_s);
    row("unknown key of an outcome", R"("outcome": {"verdict": "kept", "text": ""})",
        u"outcome.text: unknown key; possible keys are keptWithStatuscode, kind, reason, reference, "
        "status, verdict"_s);
    row("request without path", R"("exchange": {"request": "POST"})",
        u"exchange.request: verb and path are expected here, as in 'POST /cards'"_s);
    row("reply that does not exist", R"("exchanges": [{"request": "GET /", "reply": "never"}])",
        u"exchanges[0].reply: 'never' is not one of close, reset, silence"_s);
    row("status that is not a number",
        R"("exchange": {"request": "GET /", "reply": {"status": "200"}})",
        u"exchange.reply.status: a whole number is expected here, not a text"_s);
    row("unknown key of a peer", R"("peers": {"tcp": {"kind": "tcp", "port": 5}})",
        u"peers.tcp.port: unknown key; possible keys are anyOrder, exchange, exchanges, greeting, "
        "kind, listening"_s);
    row("two scripts for one peer", R"("peers": {"http": {}}, "exchange": {"request": "GET /"})",
        u"exchanges: the peer 'http' of 'peers' has its own"_s);
    row("step of no kind", R"("steps": [{"sleep": 1}])",
        u"steps[0].(step): one of pass, put, restart, crash, up, down, release, ask, awaitLog, "
        "write, terminate is expected here"_s);
    row("two kinds in one step", R"("steps": [{"pass": "t", "up": "http"}])",
        u"steps[0].up: does not belong to a step 'pass'"_s);
    row("step for a peer that is not there", R"("steps": [{"up": "htpp"}])",
        u"steps: there is no peer 'htpp'"_s);
    row("file without slash", R"("files": {"a.ini": ""})",
        u"files.a.ini: the path of a file begins with a slash"_s);
    row("unknown placeholder", R"("message": {"type": "t", "body": {"url": "{{htpp}}/"}})",
        u": unknown placeholder {{htpp}}; known are http, http.host, http.port, nobody, "
        "nobody.port, root, and the patterns"_s);
}

void TestScenario::complaints()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, complaint);
    const QString path = write(u"wrong.json"_s, content);
    try {
        loadScenarios(path);
        QFAIL("must be refused");
    } catch (const ScenarioError &error) {
        QCOMPARE(error.text().replace(path, u"FILE"_s), complaint);
    }
}

void TestScenario::defaultsAndTemplates()
{
    const Scenario scenario = load(
        R"({"name": "n", "settings": {"a": {"y": "2"}}, "log": ["l"],
            "message": {"body": {"timeout": null}},
            "messages": [{"cardnumber": "1"}, {"body": {"url": "u2"}, "outcome": "kept"}],
            "exchanges": [{"reply": 500}, {"request": "PUT /b", "body": ""}]})",
        R"({"settings": {"a": {"x": 1}}, "log": ["d", "e"],
            "message": {"type": "t", "body": {"url": "{{http}}", "timeout": 5}},
            "exchange": {"request": "GET /a", "body": "b"}})");
    const QMap<QString, QString> section{{u"x"_s, u"1"_s}, {u"y"_s, u"2"_s}};
    QCOMPARE(scenario.settings.value(u"a"_s), section);
    QCOMPARE(scenario.log, QStringList{u"l"_s});
    QCOMPARE(scenario.messages.size(), 2);
    QCOMPARE(scenario.messages[0].type, u"t"_s);
    QCOMPARE(scenario.messages[0].body, u"{\"url\":\"<http>\"}"_s);
    QCOMPARE(scenario.messages[0].cardNumber, u"1"_s);
    QCOMPARE(scenario.messages[0].outcome.fate, Outcome::Fate::Removed);
    QCOMPARE(scenario.messages[1].body, u"{\"url\":\"u2\"}"_s);
    QCOMPARE(scenario.messages[1].outcome.fate, Outcome::Fate::Kept);
    const QList<Exchange> exchanges = scenario.peers.first().exchanges;
    QCOMPARE(exchanges.size(), 2);
    QCOMPARE(exchanges[0].request, u"GET /a"_s);
    QCOMPARE(exchanges[0].body.toString(), u"b"_s);
    QCOMPARE(exchanges[0].reply.status, 500);
    QCOMPARE(exchanges[1].request, u"PUT /b"_s);
    QVERIFY(!exchanges[1].headers.has_value());
}

void TestScenario::everythingIsRead()
{
    const Scenario scenario = load(R"({"name": "n",
        "files": {"/a.ini": ["[a]", "b = {{root}}"], "/b.json": {"c": 1}},
        "certificates": {"/c.p12": {"password": "secret"}},
        "cards": [{"id": 7, "operationinfo": {"a": 1}}], "cardsAfter": [],
        "peers": {
            "feed": {"kind": "tcp", "greeting": "hi", "exchange": {"received": "text"}},
            "bank": {"kind": "https", "clientCertificate": true, "anyOrder": true, "listening": false,
                     "exchange": {"request": "GET /", "headers": {"A": 1},
                                  "reply": {"status": 201, "body": [1], "cutAfter": 1, "delay": 0.5,
                                            "held": true}}}},
        "message": {"type": "t", "outcome": {"verdict": "kept", "keptWithStatuscode": "4"}},
        "steps": [{"put": {"type": "u"}}, {"ask": "/status", "answer": {"a": 1}},
                  {"awaitLog": "x", "count": 2},
                  {"restart": true, "write": {"/ids.json": {}}}]})");
    QCOMPARE(scenario.files.value(u"/a.ini"_s), u"[a]\nb = <root>\n"_s);
    QCOMPARE(scenario.files.value(u"/b.json"_s), u"{\"c\":1}"_s);
    QCOMPARE(scenario.certificates.value(u"/c.p12"_s), u"secret"_s);
    QCOMPARE(scenario.cards.first().value(u"operationinfo"_s), u"{\"a\":1}"_s);
    QVERIFY(scenario.cardsAfter && scenario.cardsAfter->isEmpty());
    QCOMPARE(*scenario.messages.first().outcome.statusCode, u"4"_s);

    QCOMPARE(scenario.peers.size(), 3);
    const PeerScript &bank = scenario.peers[0];
    QVERIFY(bank.kind == PeerScript::Kind::Https && bank.wantsClientCertificate && bank.anyOrder
            && !bank.listening);
    QCOMPARE(bank.exchanges.first().headers->value(u"A"_s), u"1"_s);
    const Reply &reply = bank.exchanges.first().reply;
    QVERIFY(reply.status == 201 && reply.body == "[1]" && reply.cutAfter == 1
            && reply.delaySeconds == 0.5 && reply.held);
    QCOMPARE(reply.headers.value(u"Content-Type"_s), u"application/json"_s);
    QCOMPARE(scenario.peers[1].greeting, "hi");
    QCOMPARE(scenario.peers[1].exchanges.first().body.toString(), u"text"_s);
    QCOMPARE(scenario.peers[2].name, u"http"_s);

    QCOMPARE(scenario.steps.size(), 4);
    QCOMPARE(scenario.steps[0].message.type, u"u"_s);
    QCOMPARE(scenario.steps[1].answer.toObject().value(u"a"_s).toInt(), 1);
    QCOMPARE(scenario.steps[2].count, 2);
    QCOMPARE(scenario.steps[3].kind, Step::Kind::Restart);
    QCOMPARE(scenario.steps[3].files.value(u"/ids.json"_s), u"{}"_s);
}

void TestScenario::recordedOutcomes()
{
    const Scenario scenario = load(R"({"name": "n", "message": {"type": "t"}, "messages": [
        {"outcome": {"verdict": "delivered"}},
        {"outcome": {"verdict": "dropped", "kind": "request", "status": 400, "reason": "r {{any}}",
                     "reference": "4711"}},
        {"outcome": {"verdict": "kept", "keptWithStatuscode": "2"}},
        {"outcome": "kept"}, {"outcome": "waiting"}, {"outcome": "removed"}, {}]})");
    const Outcome delivered = scenario.messages[0].outcome;
    QVERIFY(delivered.fate == Outcome::Fate::Removed && delivered.recorded);
    QCOMPARE(delivered.recorded->verdict, u"delivered"_s);
    QVERIFY(!delivered.recorded->kind && !delivered.recorded->status && !delivered.recorded->reason
            && !delivered.recorded->reference);
    const Outcome dropped = scenario.messages[1].outcome;
    QVERIFY(dropped.fate == Outcome::Fate::Removed && dropped.recorded);
    QCOMPARE(*dropped.recorded->kind, u"request"_s);
    QCOMPARE(*dropped.recorded->status, 400);
    QCOMPARE(*dropped.recorded->reason, u"r {{any}}"_s);
    QCOMPARE(*dropped.recorded->reference, u"4711"_s);
    const Outcome kept = scenario.messages[2].outcome;
    QVERIFY(kept.fate == Outcome::Fate::Kept && kept.recorded);
    QCOMPARE(*kept.statusCode, u"2"_s);
    const Outcome keptAlone = scenario.messages[3].outcome;
    QVERIFY(keptAlone.fate == Outcome::Fate::Kept && keptAlone.recorded);
    QCOMPARE(keptAlone.recorded->verdict, u"kept"_s);
    const Outcome waiting = scenario.messages[4].outcome;
    QVERIFY(waiting.fate == Outcome::Fate::Kept && !waiting.recorded);
    const Outcome removed = scenario.messages[5].outcome;
    QVERIFY(removed.fate == Outcome::Fate::Removed && !removed.recorded);
    const Outcome untold = scenario.messages[6].outcome;
    QVERIFY(untold.fate == Outcome::Fate::Removed && untold.recorded);
    QCOMPARE(untold.recorded->verdict, u"delivered"_s);
}

void TestScenario::filesOfAFolderInOrder()
{
    write(u"folder/b.json"_s, R"({"scenarios": [{"name": "1"}, {"name": "2", "sample": true}]})");
    write(u"folder/a/c.json"_s, R"({"scenarios": [{"name": "3", "database": "sqlite"}]})");
    write(u"folder/README.md"_s, "no scenarios");
    const QList<ScenarioSource> sources = loadScenarios(folder.filePath(u"folder"_s));
    QStringList titles;
    for (const ScenarioSource &source : sources)
        titles.append(source.title());
    QCOMPARE(titles, (QStringList{u"a/c: 3"_s, u"folder/b: 1"_s, u"folder/b: 2"_s}));
    QVERIFY(sources[0].isFor(u"sqlite"_s) && !sources[0].isFor(u"mariadb"_s));
    QVERIFY(sources[1].isFor(u"sqlite"_s) && sources[1].isFor(u"mariadb"_s));
    QVERIFY(!sources[1].isSample() && sources[2].isSample());
}

QTEST_GUILESS_MAIN(TestScenario)
#include "tst_scenario.moc"
