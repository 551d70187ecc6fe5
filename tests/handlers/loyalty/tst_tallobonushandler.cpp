#include "handlers/loyalty/tallobonushandler.h"
#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

const QString type = u"tallobonus"_s;
const QByteArray success = R"({"result":0})";

/// The rest of a message, which every method understands.
const QString rest = uR"("sessionId":"s-1","parentSessionId":"p-1","cardNumber":"2200",
    "amount":"12.5","additionalCardStatus":"GOLD","cardStatus":"PAY_ONLY","terminalId":"T-7",
    "hosts":["bonus.test"],"additionalInfo":{"cheque":42},"assetGroup":{"id":"9","weight":3},
    "nonConfirm":true,"fullReturn":true,"user":"till","password":"secret","reason":"отмена",
    "source":"pos","endPoint":"shop")"_s;

QString body(const QString &method, const QString &more = QString())
{
    return uR"({"method":")"_s + method + uR"(",)"_s + (more.isEmpty() ? u""_s : more + u","_s)
           + rest + u"}"_s;
}

Message messageOf(const QString &json)
{
    QJsonParseError error;
    Message message;
    message.id = 7;
    message.body = QJsonDocument::fromJson(json.toUtf8(), &error).object().toVariantMap();
    if (error.error != QJsonParseError::NoError)
        qFatal("%s: %s", qPrintable(json), qPrintable(error.errorString()));
    return message;
}

QString shown(bool flag)
{
    return flag ? u"true"_s : u"false"_s;
}

QString shown(const BonusCard &card)
{
    return u"card(%1 %2)"_s.arg(card.number, QString::number(card.amount));
}

QString shown(const SessionInfo &info)
{
    return u"info(%1 %2)"_s.arg(info.getSessionId(),
                                info.getDetails().value(u"cheque"_s).toString());
}

QString shown(const BonusAssetGroup &group)
{
    return u"group(%1 %2)"_s.arg(group.id, QString::number(group.weight));
}

/// Records each call, and throws at the chosen one.
class RecordingClient : public TalloBonusClient
{
public:
    void setTimeout(int seconds) override { note({u"setTimeout"_s, QString::number(seconds)}); }
    void setTerminalId(const QString &id) override { note({u"setTerminalId"_s, id}); }
    void setHosts(const QList<QUrl> &addresses) override
    {
        QStringList line{u"setHosts"_s};
        for (const QUrl &address : addresses)
            line.append(address.toString());
        note(line);
    }
    void checkAssets(const QString &parentSessionId) override
    {
        note({u"checkAssets"_s, parentSessionId});
    }
    void back(const BonusCard &card, const SessionInfo &sessionInfo,
              const BonusAssetGroup &assetGroup, const QString &parentSessionId, bool fullReturn,
              bool isFinal) override
    {
        note({u"back"_s, shown(card), shown(sessionInfo), shown(assetGroup), parentSessionId,
              shown(fullReturn), shown(isFinal)});
    }
    void add(const QString &sessionId, const BonusCard &card, const SessionInfo &sessionInfo,
             const BonusAssetGroup &assetGroup, bool nonConfirm, bool isFinal) override
    {
        note({u"add"_s, sessionId, shown(card), shown(sessionInfo), shown(assetGroup),
              shown(nonConfirm), shown(isFinal)});
    }
    void sub(const QString &sessionId, const BonusCard &card, const SessionInfo &sessionInfo,
             const BonusAssetGroup &assetGroup, bool nonConfirm, bool isFinal) override
    {
        note({u"sub"_s, sessionId, shown(card), shown(sessionInfo), shown(assetGroup),
              shown(nonConfirm), shown(isFinal)});
    }
    void rollback(const QString &sessionId, bool flag, const QString &reason,
                  const QString &source) override
    {
        note({u"rollback"_s, sessionId, shown(flag), reason, source});
    }
    void commit(const QString &sessionId, bool flag, const QString &reason,
                const QString &source) override
    {
        note({u"commit"_s, sessionId, shown(flag), reason, source});
    }
    void setAdditionalCardStatus(const BonusCard &card, const QString &additionalCardStatus,
                                 int cardStatus) override
    {
        note({u"setAdditionalCardStatus"_s, shown(card), additionalCardStatus,
              QString::number(cardStatus)});
    }
    void setEndPoint(const QString &path) override { note({u"setEndPoint"_s, path}); }

    QStringList calls;
    QString thrower;
    std::function<void()> fault;

private:
    void note(const QStringList &line)
    {
        calls.append(line.join(u' '));
        if (line.first() == thrower)
            fault();
    }
};

/// A handler with access to its client.
class TestedHandler : public TalloBonusHandler
{
public:
    TestedHandler()
        : TalloBonusHandler(::type)
        , recorder(std::make_shared<RecordingClient>())
    {
        QVERIFY(client);
        client = recorder;
    }

    using TalloBonusHandler::methods;

    std::shared_ptr<RecordingClient> recorder;
};

/// Overrides one method.
class OwnSubHandler : public TestedHandler
{
public:
    void sub(const TalloBonusMessage &message) override
    {
        recorder->calls.append(u"own sub of "_s + message.sessionId);
    }
};

const QStringList preparation{u"setTerminalId T-7"_s, u"setEndPoint shop"_s, u"setTimeout 180"_s,
                              u"setHosts http://bonus.test"_s};

} // namespace

using Fault = std::function<void()>;
Q_DECLARE_METATYPE(Fault)

class TestTalloBonusHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void methodNames();
    void methods_data();
    void methods();
    void unknownMethod_data();
    void unknownMethod();
    void preparesTheClient_data();
    void preparesTheClient();
    void operationCanBeOverridden();
    void exceptions_data();
    void exceptions();
    void refusedCardStatusEndsTheCommit_data();
    void refusedCardStatusEndsTheCommit();
    void exceptionsBeforeTheMethodPassOn();
    void typesDifferByTheirNamesOnly_data();
    void typesDifferByTheirNamesOnly();
    void wholeDelivery();
    void clientServesAllMessages();
    void outcome_data();
    void outcome();
};

void TestTalloBonusHandler::operationsKeepTheirPlaces()
{
    const QList<int> places = {
        slotOf(&BasicHandler::onQueueEmpty),
        slotOf(&TalloBonusHandler::add),
        slotOf(&TalloBonusHandler::sub),
        slotOf(&TalloBonusHandler::back),
        slotOf(&TalloBonusHandler::commit),
        slotOf(&TalloBonusHandler::rollback),
        slotOf(&TalloBonusHandler::setAdditionalCardStatus),
        slotOf(&TalloBonusHandler::revertEarnBySessionId),
        slotOf(&TalloBonusHandler::prepareClient),
    };
    for (int i = 1; i < places.size(); ++i)
        QCOMPARE(places.at(i), places.first() + i);
}

void TestTalloBonusHandler::methodNames()
{
    QCOMPARE(TestedHandler().methods.keys(),
             (QStringList{u"add"_s, u"back"_s, u"commit"_s, u"revertEarnBySessionId"_s,
                          u"rollback"_s, u"setAdditionalCardStatus"_s, u"sub"_s}));
}

void TestTalloBonusHandler::methods_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<QStringList>("calls");

    const QString what = u"card(2200 12.5) info(s-1 42) group(9 3) "_s;
    const QString check = uR"("checkAssets":true)"_s;
    const QString status = u"setAdditionalCardStatus card(2200 12.5) GOLD 4"_s;
    const QString noCard = uR"("card":{"x":1})"_s;
    // clang-format off
    QTest::newRow("add")               << body(u"add"_s)             << QStringList{u"add s-1 "_s + what + u"true false"_s};
    QTest::newRow("sub")               << body(u"sub"_s)             << QStringList{u"sub s-1 "_s + what + u"true false"_s};
    QTest::newRow("back")              << body(u"back"_s)            << QStringList{u"back "_s + what + u"p-1 true true"_s};
    QTest::newRow("back with a check") << body(u"back"_s, check)     << QStringList{u"checkAssets p-1"_s, u"back "_s + what + u"p-1 true true"_s};
    QTest::newRow("commit")            << body(u"commit"_s)          << QStringList{status, u"commit s-1 true отмена pos"_s};
    QTest::newRow("commit without a card") << body(u"commit"_s, noCard) << QStringList{u"commit s-1 true отмена pos"_s};
    QTest::newRow("rollback")          << body(u"rollback"_s)        << QStringList{u"rollback s-1 true отмена pos"_s};
    QTest::newRow("setAdditionalCardStatus") << body(u"setAdditionalCardStatus"_s) << QStringList{status};
    QTest::newRow("unknown card status is passed on") << body(u"setAdditionalCardStatus"_s).replace(u"PAY_ONLY"_s, u""_s) << QStringList{u"setAdditionalCardStatus card(2200 12.5) GOLD -1"_s};
    QTest::newRow("revertEarnBySessionId") << body(u"revertEarnBySessionId"_s) << QStringList{u"back "_s + what + u"p-1 true false"_s};
    QTest::newRow("revertEarnBySessionId never checks") << body(u"revertEarnBySessionId"_s, check) << QStringList{u"back "_s + what + u"p-1 true false"_s};
    QTest::newRow("add never checks")  << body(u"add"_s, check)      << QStringList{u"add s-1 "_s + what + u"true false"_s};
    // clang-format on
}

void TestTalloBonusHandler::methods()
{
    QFETCH(QString, json);
    QFETCH(QStringList, calls);

    const LogCapture log(type);
    TestedHandler handler;
    QVERIFY(handler.sendMessage(messageOf(json)));
    QCOMPARE(handler.recorder->calls, preparation + calls);
    QCOMPARE(log.lines(), QStringList());
}

void TestTalloBonusHandler::unknownMethod_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<QString>("name");
    QTest::newRow("absent") << u"{}"_s << u""_s;
    QTest::newRow("empty") << body(u""_s) << u""_s;
    QTest::newRow("another") << body(u"transfer"_s) << u"transfer"_s;
    QTest::newRow("other case") << body(u"Add"_s) << u"Add"_s;
    QTest::newRow("with a blank") << body(u"add "_s) << u"add "_s;
    QTest::newRow("not a method of its own") << body(u"checkAssets"_s) << u"checkAssets"_s;
    QTest::newRow("placeholder") << body(u"%1"_s) << u"%1"_s;
    QTest::newRow("number") << uR"({"method":5})"_s << u"5"_s;
    QTest::newRow("object") << uR"({"method":{"a":1}})"_s << u""_s;
}

void TestTalloBonusHandler::unknownMethod()
{
    QFETCH(QString, json);
    QFETCH(QString, name);

    const LogCapture log(type);
    TestedHandler handler;
    QVERIFY(!handler.sendMessage(messageOf(json)));
    QCOMPARE(handler.recorder->calls, QStringList());
    QCOMPARE(log.lines(), QStringList{u"WARN Неподдерживаемый метод '"_s + name + u'\''});
}

void TestTalloBonusHandler::preparesTheClient_data()
{
    QTest::addColumn<QString>("members");
    QTest::addColumn<QStringList>("calls");

    // clang-format off
    QTest::newRow("nothing")       << u""_s                                             << QStringList{u"setTerminalId "_s, u"setTimeout 180"_s, u"setHosts"_s};
    QTest::newRow("endpoint")      << uR"(,"endPoint":"shop","terminalId":"T")"_s       << QStringList{u"setTerminalId T"_s, u"setEndPoint shop"_s, u"setTimeout 180"_s, u"setHosts"_s};
    QTest::newRow("empty endpoint") << uR"(,"endPoint":"")"_s                           << QStringList{u"setTerminalId "_s, u"setTimeout 180"_s, u"setHosts"_s};
    QTest::newRow("timeout is not the message's") << uR"(,"timeout":5)"_s               << QStringList{u"setTerminalId "_s, u"setTimeout 180"_s, u"setHosts"_s};
    QTest::newRow("hosts as people write them, in their order")
        << uR"(,"hosts":["b.test","a.test:8080/x","https://c.test","127.0.0.1"])"_s
        << QStringList{u"setTerminalId "_s, u"setTimeout 180"_s, u"setHosts http://b.test http://a.test:8080/x https://c.test http://127.0.0.1"_s};
    // clang-format on
}

void TestTalloBonusHandler::preparesTheClient()
{
    QFETCH(QString, members);
    QFETCH(QStringList, calls);
    TestedHandler handler;
    QVERIFY(handler.sendMessage(messageOf(uR"({"method":"rollback")"_s + members + u'}')));
    QCOMPARE(handler.recorder->calls.mid(0, handler.recorder->calls.size() - 1), calls);
}

void TestTalloBonusHandler::operationCanBeOverridden()
{
    OwnSubHandler handler;
    QVERIFY(handler.sendMessage(messageOf(body(u"sub"_s))));
    QVERIFY(handler.sendMessage(messageOf(body(u"rollback"_s))));
    QCOMPARE(handler.recorder->calls, preparation + QStringList{u"own sub of s-1"_s} + preparation
                                          + QStringList{u"rollback s-1 true отмена pos"_s});
}

void TestTalloBonusHandler::exceptions_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    // clang-format off
    QTest::newRow("uncritical")       << Fault([] { throw BonusUncriticalException(u"Карта %1 закрыта"_s); }) << true  << QStringList{u"WARN Карта %1 закрыта"_s};
    QTest::newRow("uncritical, in two forms") << Fault([] { throw BonusUncriticalException(tr::Tr(u"key"_s, u"Закрыта"_s)); }) << true << QStringList{u"WARN Закрыта"_s};
    QTest::newRow("of the system")    << Fault([] { throw BonusSystemError(u"Сбой"_s); })                     << false << QStringList();
    QTest::newRow("of the till")      << Fault([] { throw BasicException(u"Сбой"_s); })                       << false << QStringList();
    QTest::newRow("of the library")   << Fault([] { throw std::runtime_error("broken"); })                    << false << QStringList();
    QTest::newRow("no memory")        << Fault([] { throw std::bad_alloc(); })                                << false << QStringList();
    QTest::newRow("of no class")      << Fault([] { throw 42; })                                              << false << QStringList();
    // clang-format on
}

void TestTalloBonusHandler::exceptions()
{
    QFETCH(Fault, fault);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);

    const LogCapture log(type);
    for (const QString &method : {u"add"_s, u"sub"_s, u"back"_s, u"commit"_s, u"rollback"_s,
                                  u"setAdditionalCardStatus"_s}) {
        TestedHandler handler;
        handler.recorder->thrower = method;
        handler.recorder->fault = fault;
        QCOMPARE(handler.sendMessage(messageOf(body(method))), finished);
    }
    QStringList expected;
    for (int i = 0; i < 6; ++i)
        expected += lines;
    QCOMPARE(log.lines(), expected);
}

void TestTalloBonusHandler::refusedCardStatusEndsTheCommit_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<QString>("thrower");
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<bool>("finished");
    const Fault uncritical([] { throw BonusUncriticalException(u"Нет"_s); });
    const Fault critical([] { throw BonusSystemError(u"Сбой"_s); });
    const QString checked = body(u"back"_s, uR"("checkAssets":true)"_s);
    const QString status = u"setAdditionalCardStatus"_s;
    QTest::newRow("status: uncritical") << body(u"commit"_s) << status << uncritical << true;
    QTest::newRow("status: critical") << body(u"commit"_s) << status << critical << false;
    QTest::newRow("check: uncritical") << checked << u"checkAssets"_s << uncritical << true;
    QTest::newRow("check: critical") << checked << u"checkAssets"_s << critical << false;
}

void TestTalloBonusHandler::refusedCardStatusEndsTheCommit()
{
    QFETCH(QString, json);
    QFETCH(QString, thrower);
    QFETCH(Fault, fault);
    QFETCH(bool, finished);
    TestedHandler handler;
    handler.recorder->thrower = thrower;
    handler.recorder->fault = fault;
    QCOMPARE(handler.sendMessage(messageOf(json)), finished);
    // The second step is not executed.
    QCOMPARE(handler.recorder->calls.size(), preparation.size() + 1);
    QVERIFY(handler.recorder->calls.last().startsWith(thrower));
}

void TestTalloBonusHandler::exceptionsBeforeTheMethodPassOn()
{
    TestedHandler handler;
    handler.recorder->thrower = u"setTimeout"_s;
    handler.recorder->fault = [] {
        throw BonusSystemError(u"Сбой"_s);
    };
    QVERIFY_THROWS_EXCEPTION(BonusSystemError, handler.sendMessage(messageOf(body(u"add"_s))));
}

void TestTalloBonusHandler::typesDifferByTheirNamesOnly_data()
{
    QTest::addColumn<QString>("name");
    for (const char *name : {"tallobonus", "tallocertificate", "tallocoupon"})
        QTest::newRow(name) << QString::fromLatin1(name);
}

void TestTalloBonusHandler::typesDifferByTheirNamesOnly()
{
    QFETCH(QString, name);
    const LogCapture log(name);
    FakeRestClient net({reply(200, success)});
    QVERIFY(deliver(name, body(u"add"_s)));
    QCOMPARE(net.transcript(), QStringList{u"POST http://bonus.test/shop/add"_s});
    QVERIFY(!deliver(name, body(u"x"_s)));
    QCOMPARE(log.lines(), QStringList{u"WARN Неподдерживаемый метод 'x'"_s});
}

void TestTalloBonusHandler::wholeDelivery()
{
    FakeRestClient net({reply(200, success), reply(200, success)});
    QVERIFY(deliver(type, body(u"commit"_s)));
    QCOMPARE(
        net.steps(),
        (QStringList{u"setTimeout 180"_s, u"POST http://bonus.test/shop/setAdditionalCardStatus"_s,
                     u"setTimeout 180"_s, u"POST http://bonus.test/shop/commit"_s}));
    for (const FakeRestClient::Request &request : net.requests()) {
        QCOMPARE(request.timeoutMs.value_or(-1), 180'000);
        QCOMPARE(request.headers,
                 (QMap<QString, QString>{{u"Authorization"_s, u"Basic dGlsbDpzZWNyZXQ="_s}}));
        QCOMPARE(request.jsonObject().value(u"terminalId"_s), QJsonValue(u"T-7"_s));
    }
    QCOMPARE(net.requestAt(1).jsonObject(), (QJsonObject{{u"sessionId"_s, u"s-1"_s},
                                                         {u"flag"_s, true},
                                                         {u"reason"_s, u"отмена"_s},
                                                         {u"source"_s, u"pos"_s},
                                                         {u"terminalId"_s, u"T-7"_s}}));
}

void TestTalloBonusHandler::clientServesAllMessages()
{
    FakeRestClient net({reply(200, success), reply(200, success), reply(200, success)});
    TalloBonusHandler handler(type);
    QVERIFY(handler.sendMessage(messageOf(body(u"rollback"_s))));
    // Values that a message does not give are empty again, except for the endpoint.
    QVERIFY(handler.sendMessage(messageOf(uR"({"method":"rollback","hosts":["b.test"]})"_s)));
    QVERIFY(handler.sendMessage(
        messageOf(uR"({"method":"rollback","hosts":["b.test"],"endPoint":"other"})"_s)));
    QCOMPARE(net.transcript(), (QStringList{u"POST http://bonus.test/shop/rollback"_s,
                                            u"POST http://b.test/shop/rollback"_s,
                                            u"POST http://b.test/other/rollback"_s}));
    QVERIFY(net.requestAt(0).headers.contains(u"Authorization"_s));
    QVERIFY(net.requestAt(1).headers.isEmpty());
    QCOMPARE(net.requestAt(1).jsonObject().value(u"terminalId"_s), QJsonValue(u""_s));
}

void TestTalloBonusHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const auto row = [](const char *name, const http::Response &answer, bool finished,
                        const QStringList &lines = {}) {
        QTest::newRow(name) << answer << finished << lines;
    };
    row("success", reply(200, success), true);
    row("uncritical", reply(200, R"({"result":5,"critical":false,"message":"Нет %1"})"), true,
        {u"WARN Нет %1"_s});
    row("critical", reply(200, R"({"result":5,"critical":true,"message":"Сбой"})"), false);
    row("empty reply", reply(200), false);
    row("500", reply(500), false);
    row("no connection", noConnection(), false);
    row("no answer in time", timeout(), false);
}

void TestTalloBonusHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);
    compareOutcome(type, body(u"add"_s), answer, finished, lines);
}

QTEST_GUILESS_MAIN(TestTalloBonusHandler)
#include "tst_tallobonushandler.moc"
