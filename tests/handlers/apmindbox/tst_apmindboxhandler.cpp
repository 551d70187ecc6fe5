#include "handlers/apmindbox/interface.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/fixedtime.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"

#include <QJsonDocument>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString settings = u"[ApMindbox]\nurl = https://mind.test/v3/operations/sync\n"
                         "endpoint = Trekraip.Till\nsecretKey = s3cret\n"_s;
const QString createMessage =
    uR"({"method":"create","payload":{"order":{"totalPrice":199.9},"executionDateTimeUtc":"x"}})"_s;
const QString changeMessage =
    uR"({"method":"change","payload":{"order":{"ids":{"till":"42"},"status":"Paid"}}})"_s;

QString requestOf(const QString &operationName)
{
    return u"POST https://mind.test/v3/operations/sync?endpointId=Trekraip.Till&operation="_s
           + operationName;
}

QJsonObject object(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

} // namespace

class TestApMindboxHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void createdOrder();
    void changedStatus();
    void outcome_data();
    void outcome();
    void otherMethod_data();
    void otherMethod();
    void payload_data();
    void payload();
    void settingsAreReadForEachDelivery();
    void orderOfTheTillComesBack();
};

void TestApMindboxHandler::createdOrder()
{
    QueueDatabase till;
    till.setSettings(settings);
    const LogCapture log(u"apmindbox"_s);
    FakeRestClient net({reply(200, R"({"order":{"processingStatus":"Processed"}})")});
    QVERIFY(deliver(u"apmindbox"_s, createMessage));
    QCOMPARE(net.steps(),
             (QStringList{u"setTimeoutMs 5000"_s, requestOf(u"Offline.CreateAuthorizedOrder"_s)}));
    const QJsonObject sent = object(
        R"({"order":{"totalPrice":199.9},"executionDateTimeUtc":"x","pointOfContact":"Offline"})");
    QCOMPARE(net.lastRequest().jsonObject(), sent);
    QCOMPARE(log.lines(),
             (QStringList{u"INFO Отправка сообщения 7"_s,
                          u"INFO  адрес сервера: https://mind.test/v3/operations/sync"_s,
                          u"INFO Создание заказа авторизованного клиента"_s,
                          u"DEBUG  выполнение метода 'Offline.CreateAuthorizedOrder'"_s}));
}

void TestApMindboxHandler::changedStatus()
{
    QueueDatabase till;
    till.setSettings(settings);
    const LogCapture log(u"apmindbox"_s);
    FakeRestClient net({reply(200, R"({"status":"Success"})")});
    QVERIFY(deliver(u"apmindbox"_s, changeMessage));
    QCOMPARE(net.steps(),
             (QStringList{u"setTimeoutMs 5000"_s, requestOf(u"Offline.ChangeStatus"_s)}));
    const QJsonObject sent =
        object(R"({"order":{"ids":{"till":"42"},"status":"Paid"},"pointOfContact":"Offline"})");
    QCOMPARE(net.lastRequest().jsonObject(), sent);
    QCOMPARE(log.lines(),
             (QStringList{u"INFO Отправка сообщения 7"_s,
                          u"INFO  адрес сервера: https://mind.test/v3/operations/sync"_s,
                          u"INFO Изменение статуса заказа"_s,
                          u"DEBUG  выполнение метода 'Offline.ChangeStatus'"_s}));
}

void TestApMindboxHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("created");
    QTest::addColumn<QString>("changed");

    const auto row = [](const char *name, const http::Response &answer, const QString &created,
                        const QString &changed) {
        QTest::newRow(name) << answer << created << changed;
    };
    const auto rowOfBoth = [row](const char *name, const http::Response &answer,
                                 const QString &outcome) {
        row(name, answer, outcome, outcome);
    };
    const QString done = u"delivered"_s;
    const QString error = u"kept service: платформа ответила ошибкой"_s;
    const QString noWord = u"kept service: платформа не подтвердила операцию"_s;
    const QString badRequest = keptBy(reply(400));
    const QByteArray refused = R"({"status":"ProtocolError","errorMessage":"x"})";

    // clang-format off
    row("processed",  reply(200, R"({"order":{"processingStatus":"Processed"}})"),  done, noWord);
    row("calculated", reply(200, R"({"order":{"processingStatus":"Calculated"}})"), done, noWord);
    row("success",    reply(200, R"({"status":"Success"})"), noWord, done);
    row("both",       reply(200, R"({"status":"Success","order":{"processingStatus":"Processed"}})"), done, done);
    row("success, order not processed", reply(200, R"({"status":"Success","order":{"processingStatus":"NotProcessed"}})"), noWord, done);
    row("processed beside an error", reply(200, R"({"errorMessage":"x","order":{"processingStatus":"Processed"}})"), done, error);
    rowOfBoth("success beside an error", reply(200, R"({"status":"Success","errorMessage":"x"})"), error);
    rowOfBoth("validation error",   reply(200, R"({"status":"ValidationError"})"), u"kept service: платформа не приняла данные (ValidationError)"_s);
    rowOfBoth("protocol error",     reply(200, R"({"status":"ProtocolError"})"),   u"kept service: платформа не приняла запрос (ProtocolError)"_s);
    rowOfBoth("400 with an error",  reply(400, refused), badRequest);
    rowOfBoth("400 without a body", reply(400), badRequest);
    rowOfBoth("403",                reply(403, R"({"errorMessage":"x"})"), keptBy(reply(403)));
    rowOfBoth("500",                reply(500), keptBy(reply(500)));
    rowOfBoth("200 without a body", reply(200), noWord);
    rowOfBoth("200 with an array",  reply(200, R"([{"status":"Success"}])"), noWord);
    rowOfBoth("no connection",      noConnection(), keptBy(noConnection()));
    rowOfBoth("no answer in time",  timeout(), keptBy(timeout()));
    // clang-format on
}

void TestApMindboxHandler::outcome()
{
    QFETCH(http::Response, answer);

    QueueDatabase till;
    FakeRestClient net({answer, answer});
    QTEST(outcomeOf(u"apmindbox"_s, createMessage), "created");
    net.nextDelivery();
    QTEST(outcomeOf(u"apmindbox"_s, changeMessage), "changed");
    // The message that stays is the only one.
    QCOMPARE(till.ids(), QList<int>());
}

void TestApMindboxHandler::otherMethod_data()
{
    QTest::addColumn<QString>("body");
    QTest::newRow("Create") << uR"({"method":"Create","payload":{}})"_s;
    QTest::newRow("CHANGE") << uR"({"method":"CHANGE","payload":{}})"_s;
    QTest::newRow("commit") << uR"({"method":"commit","payload":{}})"_s;
    QTest::newRow("empty") << uR"({"method":"","payload":{}})"_s;
    QTest::newRow("none") << uR"({"payload":{}})"_s;
    QTest::newRow("a number") << uR"({"method":1,"payload":{}})"_s;
    QTest::newRow("an array") << uR"({"method":["create"],"payload":{}})"_s;
    QTest::newRow("null") << uR"({"method":null,"payload":{}})"_s;
    QTest::newRow("empty body") << u"{}"_s;
}

void TestApMindboxHandler::otherMethod()
{
    QFETCH(QString, body);

    QueueDatabase till;
    till.setSettings(settings);
    const LogCapture log(u"apmindbox"_s);
    const FakeRestClient net;
    QCOMPARE(outcomeOf(u"apmindbox"_s, body), u"kept request: неизвестный метод сообщения"_s);
    QCOMPARE(net.transcript(), QStringList());
    QCOMPARE(log.lines(),
             (QStringList{u"INFO Отправка сообщения 7"_s,
                          u"INFO  адрес сервера: https://mind.test/v3/operations/sync"_s}));
}

void TestApMindboxHandler::payload_data()
{
    QTest::addColumn<QString>("payload");
    QTest::addColumn<QByteArray>("sent");

    const QByteArray empty = R"({"pointOfContact":"Offline"})";
    QTest::newRow("none") << u""_s << empty;
    QTest::newRow("null") << uR"(,"payload":null)"_s << empty;
    QTest::newRow("a text") << uR"(,"payload":"{}")"_s << empty;
    QTest::newRow("a number") << uR"(,"payload":5)"_s << empty;
    QTest::newRow("an array") << uR"(,"payload":[{"a":1}])"_s << empty;
    QTest::newRow("a point of contact of its own")
        << uR"(,"payload":{"pointOfContact":"Till"})"_s << empty;
    QTest::newRow("values of all kinds")
        << uR"(,"payload":{"a":79001234567,"b":0.1,"c":"%1","d":null,"e":[true],"f":{"g":{}}})"_s
        << QByteArray(R"({"pointOfContact":"Offline","a":79001234567,"b":0.1,"c":"%1","d":null,)"
                      R"("e":[true],"f":{"g":{}}})");
}

void TestApMindboxHandler::payload()
{
    QFETCH(QString, payload);
    QFETCH(QByteArray, sent);

    const QueueDatabase till;
    for (const QString &method : {u"create"_s, u"change"_s}) {
        FakeRestClient net({reply(200)});
        QVERIFY(!deliver(u"apmindbox"_s, u"{\"method\":\"%1\"%2}"_s.arg(method, payload)));
        QCOMPARE(net.lastRequest().jsonObject(), object(sent));
    }
}

void TestApMindboxHandler::settingsAreReadForEachDelivery()
{
    QueueDatabase till;
    FakeRestClient net({noConnection(), noConnection()});
    for (const QString &host : {u"one.test"_s, u"two.test"_s}) {
        till.setSettings(u"[ApMindbox]\nurl = http://%1/\n"_s.arg(host));
        net.nextDelivery();
        QVERIFY(!deliver(u"apmindbox"_s, changeMessage));
    }
    QCOMPARE(net.transcript(),
             (QStringList{u"POST http://one.test/?endpointId=&operation=Offline.ChangeStatus"_s,
                          u"POST http://two.test/?endpointId=&operation=Offline.ChangeStatus"_s}));
}

void TestApMindboxHandler::orderOfTheTillComesBack()
{
    QueueDatabase till;
    till.setSettings(settings);
    FixedTime clock(1'767'225'599);
    FakeRestClient net({noConnection(), noConnection(),
                        reply(200, R"({"order":{"processingStatus":"Processed"}})"),
                        reply(200, R"({"status":"Success"})")});
    apmindbox::Interface client;
    client.createAuthorizedOrder(object(R"({"order":{"totalPrice":199.9}})"), false);
    client.changeOrderStatus(object(R"({"order":{"status":"Paid"}})"), false);
    QCOMPARE(till.ids(u"apmindbox"_s), (QList<int>{1, 2}));
    clock.set(1'767'300'000);

    const auto delivered = [&till, &net](int id) {
        net.nextDelivery();
        const QString body = till.query(u"SELECT body FROM message WHERE messageid = ?"_s, {id})
                                 .at(0)
                                 .at(0)
                                 .toString();
        return deliver(u"apmindbox"_s, body);
    };
    QVERIFY(!delivered(1));
    QVERIFY(delivered(1));
    QVERIFY(delivered(2));
    QCOMPARE(till.ids(), (QList<int>{1, 2}));
    const QString create = requestOf(u"Offline.CreateAuthorizedOrder"_s);
    QCOMPARE(net.transcript(),
             (QStringList{create, create, create, requestOf(u"Offline.ChangeStatus"_s)}));
    // The time is that of the till's own attempt.
    const QJsonObject order = object(R"({"order":{"totalPrice":199.9},"pointOfContact":"Offline",)"
                                     R"("executionDateTimeUtc":"31.12.2025 23:59:59"})");
    QCOMPARE(net.requestAt(1).jsonObject(), order);
    QCOMPARE(net.requestAt(2).jsonObject(), order);
    const QJsonObject change = object(R"({"order":{"status":"Paid"},"pointOfContact":"Offline"})");
    QCOMPARE(net.requestAt(3).jsonObject(), change);
}

QTEST_GUILESS_MAIN(TestApMindboxHandler)
#include "tst_apmindboxhandler.moc"
