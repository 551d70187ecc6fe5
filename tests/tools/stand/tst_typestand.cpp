#include "rig/authority.h"
#include "rig/messagetable.h"
#include "rig/serviceprocess.h"
#include "rig/till.h"
#include "rig/waiting.h"
#include "tools/stand/scenarioerror.h"
#include "tools/stand/typestand.h"

#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace rig;
using namespace stand;

/// The stand with rows of the caller and the real service.
class TestTypeStand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void everyTypeIsTaken();
    void statesDecide_data();
    void statesDecide();
    void rowsOfSeveralAddresses();
    void unknownStates();
    void portInUse();
    void stepsAreDistinguished_data();
    void stepsAreDistinguished();
    void programPrintsWhatArrives();

private:
    void write(const QString &path, const QByteArray &content);
    /// The settings, files and rows of the type's sample, with addresses that no scenario has: all
    /// paths begin with /own/place.
    void putSample(const ScenarioSource &source, quint16 port);
    void put(const QString &type, const QByteArray &body);
    void startService();
    QStringList typesLeft() { return table->types(); }
    /// Waits until no row is left; false when rows stay after every type was tried twice.
    bool isDelivered();

    std::unique_ptr<Till> till;
    std::unique_ptr<MessageTable> table;
    std::unique_ptr<ServiceProcess> service;
    QString settings;
};

namespace {

const QString scenarios = QStringLiteral(SCENARIOS);

} // namespace

void TestTypeStand::init()
{
    // It ends before its till.
    service.reset();
    table.reset();
    till = std::make_unique<Till>();
    settings = till->queueSettings();
    table = std::make_unique<MessageTable>(DatabasePlace{.file = till->databaseFile()});
    table->createTables();
}

void TestTypeStand::putSample(const ScenarioSource &source, quint16 port)
{
    Places places{{u"root"_s, till->root()},
                  {u"nobody"_s, u"http://127.0.0.1:9"_s},
                  {u"nobody.port"_s, u"9"_s}};
    const QList<PeerScript> peers = source.peers();
    for (const PeerScript &peer : peers) {
        const QString host = u"127.0.0.1:%1"_s.arg(port);
        places.insert(peer.name, peer.kind == PeerScript::Kind::Tcp
                                     ? host
                                     : u"http://%1/own/place"_s.arg(host));
        places.insert(peer.name + u".host"_s, u"127.0.0.1"_s);
        places.insert(peer.name + u".port"_s, QString::number(port));
    }
    const Scenario scenario = source.scenario(places);
    settings += settingsText(scenario.settings);
    till->write(scenario.files);
    for (auto entry = scenario.certificates.cbegin(); entry != scenario.certificates.cend();
         ++entry)
        Authority::shared().writeClientCertificate(till->path(entry.key()), entry.value());
    for (const CardRow &card : scenario.cards)
        table->putCard(card);
    for (const QueuedMessage &message : scenario.messages)
        table->put(message.row());
}

void TestTypeStand::put(const QString &type, const QByteArray &body)
{
    TableRow row;
    row.type = type;
    row.body = QString::fromUtf8(body);
    table->put(row);
}

void TestTypeStand::startService()
{
    till->setSettings(settings);
    service = std::make_unique<ServiceProcess>(
        qEnvironmentVariable("QUEUE_PROGRAM", QStringLiteral(QUEUE_PROGRAM)), *till);
    service->start();
}

bool TestTypeStand::isDelivered()
{
    QStringList left;
    waitUntil([&] {
        left = typesLeft();
        return std::all_of(left.cbegin(), left.cend(),
                           [&](const QString &type) { return service->log().ends(type) >= 2; });
    });
    return typesLeft().isEmpty();
}

void TestTypeStand::everyTypeIsTaken()
{
    std::vector<std::unique_ptr<TypeStand>> stands;
    QSet<QString> types;
    const QList<ScenarioSource> sources = loadScenarios(scenarios);
    for (const ScenarioSource &source : sources) {
        if (!source.isSample() || types.contains(source.type()))
            continue;
        types.insert(source.type());
        stands.push_back(
            std::make_unique<TypeStand>(scenarios, TypeOptions{.type = source.type()}));
        stands.back()->start();
        putSample(source, stands.back()->port());
    }
    QVERIFY(types.size() >= 58);
    QVERIFY(typesLeft().size() >= 58);
    startService();
    QVERIFY2(isDelivered(), qPrintable(typesLeft().join(u", "_s) + u'\n' + service->log().text()));
}

void TestTypeStand::statesDecide_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<TypeOptions>("options");
    QTest::addColumn<QString>("inLog");
    QTest::addColumn<bool>("isRemoved");

    // clang-format off
    QTest::newRow("refund declined")    << u"raiffeisensbp"_s << TypeOptions{.state = u"DECLINED"_s}    << u"Получение информации по возврату"_s << true;
    QTest::newRow("refund by place")    << u"raiffeisensbp"_s << TypeOptions{.state = u"refundStatus=IN_PROGRESS"_s} << u"Получение информации по возврату"_s << false;
    QTest::newRow("code still new")     << u"raiffeisensbp"_s << TypeOptions{.state = u"NEW"_s}         << u"Отмена невостребованного"_s << true;
    QTest::newRow("code unknown")       << u"raiffeisensbp"_s << TypeOptions{.state = u"qrStatus=IN_PROGRESS"_s} << u"Получение информации по QR"_s << false;
    QTest::newRow("service away")       << u"raiffeisensbp"_s << TypeOptions{.status = 503}             << u"503"_s << false;
    QTest::newRow("own answer")         << u"raiffeisensbp"_s << TypeOptions{.answer = "{\"qrStatus\":\"EXPIRED\"}"} << u"Получение информации по QR"_s << true;
    QTest::newRow("own refusal")        << u"raiffeisensbp"_s << TypeOptions{.status = 404, .answer = "{\"code\":\"ORDER_NOT_FOUND\"}"} << u"404"_s << true;
    QTest::newRow("no answer")          << u"raiffeisensbp"_s << TypeOptions{.failure = Failure{.kind = Failure::Kind::Close}} << u"Ошибка при отправке"_s << false;
    QTest::newRow("crown refuses")      << u"goldcrown"_s     << TypeOptions{.state = u"code=7"_s}      << u""_s << false;
    QTest::newRow("order to be revoked") << u"platiqr"_s      << TypeOptions{.state = u"CREATED"_s}     << u""_s << true;
    QTest::newRow("one-step, refused")  << u"heineken"_s      << TypeOptions{.status = 500}             << u"500"_s << false;
    // clang-format on
}

void TestTypeStand::statesDecide()
{
    QFETCH(QString, type);
    QFETCH(TypeOptions, options);
    QFETCH(QString, inLog);
    QFETCH(bool, isRemoved);

    options.type = type;
    TypeStand stand(scenarios, options);
    stand.start();
    const QList<ScenarioSource> sources = loadScenarios(scenarios);
    for (const ScenarioSource &source : sources) {
        if (source.isSample() && source.type() == type)
            putSample(source, stand.port());
    }
    startService();
    QVERIFY2(isDelivered() == isRemoved, qPrintable(service->log().text()));
    QVERIFY2(service->log().text().contains(inLog), qPrintable(service->log().text()));
}

void TestTypeStand::rowsOfSeveralAddresses()
{
    // Four requests with the same verb, distinguished by their order: in one row also by their
    // addresses, in the other one only by the order.
    const QString type = u"platiqr"_s;
    TypeStand stand(scenarios, {.type = type});
    stand.start();
    const QList<ScenarioSource> sources = loadScenarios(scenarios);
    for (const ScenarioSource &source : sources) {
        if (source.isSample() && source.type() == type)
            putSample(source, stand.port());
    }
    const TableRow sample = table->rows().first();
    const QString place = u"http://127.0.0.1:%1"_s.arg(stand.port());
    static const QRegularExpression address(u"\"url\":\"[^\"]*\""_s);
    const auto putWith = [&](const std::function<QString()> &path) {
        QString body = sample.body;
        qsizetype from = 0;
        for (auto match = address.match(body, from); match.hasMatch();
             match = address.match(body, from)) {
            const QString text = u"\"url\":\"%1\""_s.arg(place + path());
            body.replace(match.capturedStart(), match.capturedLength(), text);
            from = match.capturedStart() + text.size();
        }
        put(type, body.toUtf8());
    };
    table->remove(sample.id);
    int count = 0;
    putWith([&] { return u"/x/%1"_s.arg(++count); });
    QVERIFY(count >= 4);
    putWith([] { return u"/gate"_s; });
    startService();
    QVERIFY2(isDelivered(), qPrintable(service->log().text()));
    QCOMPARE(service->log().starts(type), 1);
}

void TestTypeStand::unknownStates()
{
    try {
        const TypeStand stand(scenarios, {.type = u"raiffeisensbp"_s, .state = u"LOST"_s});
        QFAIL("a state that no scenario tells was accepted");
    } catch (const UsageError &error) {
        QVERIFY2(error.text().contains(u"refundStatus: COMPLETED DECLINED IN_PROGRESS"_s),
                 qPrintable(error.text()));
    }
    QVERIFY_THROWS_EXCEPTION(UsageError, TypeStand(scenarios, {.type = u"raifeisensbp"_s}));
}

void TestTypeStand::portInUse()
{
    const PortReservation taken;
    QVERIFY_THROWS_EXCEPTION(Error,
                             TypeStand(scenarios, {.type = u"loya"_s, .port = taken.port()}));
}

void TestTypeStand::stepsAreDistinguished_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("state");
    QTest::addColumn<QStringList>("requests");
    QTest::addColumn<QStringList>("answers");

    // clang-format off
    const QString paid = u"{\"qrStatus\":\"PAID\"}"_s, running = u"{\"refundStatus\":\"IN_PROGRESS\"}"_s, done = u"{\"refundStatus\":\"COMPLETED\"}"_s;
    QTest::newRow("by their order")     << u"raiffeisensbp"_s << QString() << QStringList{u"GET /a"_s, u"POST /b"_s, u"GET /c"_s, u"GET /d"_s} << QStringList{paid, running, done, paid};
    QTest::newRow("a second attempt")   << u"raiffeisensbp"_s << QString() << QStringList{u"GET /a"_s, u"POST /b"_s, u"GET /a"_s, u"POST /b"_s, u"GET /c"_s} << QStringList{paid, running, paid, running, done};
    QTest::newRow("asked twice by the scenario") << u"raiffeisensbp"_s << u"NEW"_s << QStringList{u"GET /a"_s, u"DELETE /a"_s, u"GET /a"_s} << QStringList{u"{\"status\":{\"value\":\"NEW\"}}"_s, u""_s, u"{\"qrStatus\":\"NEW\",\"status\":{\"value\":\"CANCELLED\"}}"_s};
    QTest::newRow("by their verbs")     << u"raiffeisensbp"_s << QString() << QStringList{u"POST /b"_s, u"GET /c"_s} << QStringList{running, done};
    QTest::newRow("not in the scenario") << u"raiffeisensbp"_s << QString() << QStringList{u"DELETE /a"_s} << QStringList{u""_s};
    // clang-format on
}

void TestTypeStand::stepsAreDistinguished()
{
    QFETCH(QString, type);
    QFETCH(QString, state);
    QFETCH(QStringList, requests);
    QFETCH(QStringList, answers);
    TypeStand stand(scenarios, {.type = type, .state = state});
    stand.start();
    QStringList found;
    for (const QString &request : std::as_const(requests)) {
        QTcpSocket caller;
        caller.connectToHost(u"127.0.0.1"_s, stand.port());
        caller.write(request.toUtf8() + " HTTP/1.1\r\n\r\n");
        QByteArray answer;
        QVERIFY(waitUntil([&] {
            answer += caller.readAll();
            const qsizetype end = answer.indexOf("\r\n\r\n");
            const qsizetype length = answer.indexOf("Content-Length: ") + 16;
            return end >= 0
                   && (length < 16
                       || answer.size()
                              >= end + 4
                                     + answer.mid(length, answer.indexOf('\r', length) - length)
                                           .toInt());
        }));
        found.append(QString::fromUtf8(answer.mid(answer.indexOf("\r\n\r\n") + 4)));
    }
    QCOMPARE(found, answers);
}

void TestTypeStand::programPrintsWhatArrives()
{
    quint16 port = 0;
    {
        const PortReservation reservation;
        port = reservation.port();
    }
    QProcess program;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    program.setProcessEnvironment(environment);
    program.start(QStringLiteral(STAND_PROGRAM),
                  {u"--port"_s, QString::number(port), u"--type"_s, u"heineken"_s, u"--scenarios"_s,
                   scenarios, u"--status"_s, u"418"_s});
    QByteArray output;
    const auto says = [&](const QByteArray &text) {
        return waitUntil([&] {
                   output += program.readAllStandardOutput();
                   return output.contains(text) || program.state() == QProcess::NotRunning;
               })
               && output.contains(text);
    };
    QVERIFY2(says("Ctrl+C ends it\n"), output + program.readAllStandardError());
    QTcpSocket caller;
    caller.connectToHost(u"127.0.0.1"_s, port);
    caller.write("POST /any/place HTTP/1.1\r\nX-Shop: 42\r\nContent-Length: 9\r\n\r\n{\"sum\":1}");
    QVERIFY2(says("    < 418\n"), output);
    QVERIFY2(output.contains("POST /any/place -> step 1 of 1, 418\n    > X-Shop: 42\n"), output);
    QVERIFY2(output.contains("    > {\"sum\":1}\n"), output);
    program.terminate();
    QVERIFY(program.waitForFinished());
}

QTEST_GUILESS_MAIN(TestTypeStand)
#include "tst_typestand.moc"
