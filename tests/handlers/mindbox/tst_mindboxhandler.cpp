#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/testsettings.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString settings = u"[Mindbox]\nurl = http://mindbox.test/sync\nendpoint = till\n"
                         "pointOfContact = shop-7\n"_s;
const QString address = u"INFO  адрес сервера: http://mindbox.test/sync"_s;
const QString query = u"POST http://mindbox.test/sync?endpointId=till&operation=Offline."_s;
const QString checked = query + u"CheckCustomer"_s;
const QString saved = query + u"SaveOfflineOrder"_s;

QString message(const QString &method, const QString &cardNumber = QString())
{
    QJsonObject body{{u"method"_s, method},
                     {u"payload"_s, QJsonObject{{u"sum"_s, 1990.5}, {u"customer"_s, u"old"_s}}}};
    if (!cardNumber.isNull())
        body.insert(u"cardNumber"_s, cardNumber);
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

http::Response success()
{
    return reply(200, R"({"status":"Success"})");
}

http::Response found()
{
    return reply(200, R"({"status":"Success","customer":{"processingStatus":"Found",
                          "mobilePhone":79990000001}})");
}

QStringList errorLines(const QString &status, const QString &error)
{
    return {u"ERROR Статус: "_s + status, u"ERROR Ошибка: "_s + error};
}

} // namespace

class TestMindboxHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void outcome_data();
    void outcome();
    void body_data();
    void body();
    void pointOfContactIsTheTills_data();
    void pointOfContactIsTheTills();
    void unknownMethod_data();
    void unknownMethod();
    void customerCheck_data();
    void customerCheck();
    void neverTransactionId();
    void settingsAreReadForEachDelivery();
};

void TestMindboxHandler::outcome_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QStringList>("trouble");

    for (const QString &method : {u"commit"_s, u"saveOfflineOrder"_s, u"rollback"_s}) {
        const auto row = [&method](const char *name, const http::Response &answer,
                                   const QString &outcome, const QStringList &trouble = {}) {
            QTest::addRow("%s, %s", qPrintable(method), name)
                << method << answer << outcome << trouble;
        };
        // clang-format off
        row("success",                        success(),                                                u"delivered"_s);
        row("success, order not processed",   reply(200, R"({"status":"Success","order":{"processingStatus":"NotProcessed"}})"), u"delivered"_s);
        row("500 that says success",          reply(500, R"({"status":"Success"})"),                    u"delivered"_s);
        row("400 with an error: dropped",     reply(400, R"({"status":"ProtocolError","errorMessage":"x"})"), u"dropped: платформа отклонила запрос"_s, errorLines(u"ProtocolError"_s, u"x"_s));
        row("400 without an error: dropped",  reply(400, R"({"status":"ProtocolError"})"),              u"dropped: платформа отклонила запрос"_s);
        row("400, empty: dropped",            reply(400),                                               u"dropped: платформа отклонила запрос"_s);
        row("success with an error",          reply(200, R"({"status":"Success","errorMessage":"y"})"), u"kept service: платформа ответила ошибкой"_s, errorLines(u"Success"_s, u"y"_s));
        row("500 with an error",              reply(500, R"({"status":"InternalServerError","errorMessage":"%1"})"), keptBy(reply(500)), errorLines(u"InternalServerError"_s, u"%1"_s));
        row("validation error",               reply(200, R"({"status":"ValidationError"})"),            u"kept service: платформа не приняла данные (ValidationError)"_s);
        row("protocol error",                 reply(200, R"({"status":"ProtocolError"})"),              u"kept service: платформа не приняла запрос (ProtocolError)"_s);
        row("protocol error in a 404",        reply(404, R"({"status":"ProtocolError"})"),              keptBy(reply(404)));
        row("another status",                 reply(200, R"({"status":"Accepted"})"),                   u"kept service: платформа не подтвердила операцию"_s);
        row("order processed, no status",     reply(200, R"({"order":{"processingStatus":"Processed"}})"), u"kept service: платформа не подтвердила операцию"_s);
        row("401",                            reply(401),                                               keptBy(reply(401)));
        row("429",                            reply(429),                                               keptBy(reply(429)));
        row("500, empty",                     reply(500),                                               keptBy(reply(500)));
        row("503, a page",                    reply(503, "<html/>"),                                    keptBy(reply(503)));
        row("200, empty",                     reply(200),                                               u"kept service: платформа не подтвердила операцию"_s);
        row("200, not JSON",                  reply(200, "OK"),                                         u"kept service: платформа не подтвердила операцию"_s);
        row("no connection",                  noConnection(),                                           keptBy(noConnection()));
        row("too late",                       timeout(),                                                keptBy(timeout()));
        // clang-format on
    }
}

void TestMindboxHandler::outcome()
{
    QFETCH(QString, method);
    QFETCH(http::Response, answer);
    QFETCH(QStringList, trouble);
    const TestSettings config(settings);
    const LogCapture log(u"mindbox"_s);
    FakeRestClient net({answer});
    QTEST(outcomeOf(u"mindbox"_s, message(method)), "outcome");

    const QHash<QString, QString> operations{{u"commit"_s, u"CommitOrderTransaction"_s},
                                             {u"saveOfflineOrder"_s, u"SaveOfflineOrder"_s},
                                             {u"rollback"_s, u"RollbackOrderTransaction"_s}};
    QCOMPARE(net.transcript(), QStringList{query + operations[method]});
    QStringList lines{u"INFO Отправка сообщения 7"_s, address};
    if (method == "saveOfflineOrder"_L1)
        lines.append(u"INFO Отложенная обработка чека"_s);
    if (method == "rollback"_L1)
        lines.append(u"INFO Отмена транзакции"_s);
    QCOMPARE(log.lines(), lines + trouble);
}

void TestMindboxHandler::body_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QByteArray>("sent");

    QTest::newRow("unchanged")
        << uR"({"method":"commit","payload":{"order":{"lines":[{"q":1.5,"n":9007199254740993,"t":"«%1»"}],"a":null}}})"_s
        << R"({"order":{"a":null,"lines":[{"n":9007199254740993,"q":1.5,"t":"«%1»"}]},"pointOfContact":"shop-7"})"_ba;
    QTest::newRow("empty") << uR"({"method":"commit","payload":{}})"_s
                           << R"({"pointOfContact":"shop-7"})"_ba;
    QTest::newRow("none") << uR"({"method":"commit"})"_s << R"({"pointOfContact":"shop-7"})"_ba;
    QTest::newRow("not an object")
        << uR"({"method":"commit","payload":"text"})"_s << R"({"pointOfContact":"shop-7"})"_ba;
    QTest::newRow("a list") << uR"({"method":"commit","payload":[1]})"_s
                            << R"({"pointOfContact":"shop-7"})"_ba;
    QTest::newRow("a card is ignored in a commit")
        << uR"({"method":"commit","payload":{"a":1},"cardNumber":"77"})"_s
        << R"({"a":1,"pointOfContact":"shop-7"})"_ba;
    QTest::newRow("nor in a rollback")
        << uR"({"method":"rollback","payload":{"a":1},"cardNumber":"77"})"_s
        << R"({"a":1,"pointOfContact":"shop-7"})"_ba;
}

void TestMindboxHandler::body()
{
    QFETCH(QString, body);
    const TestSettings config(settings);
    FakeRestClient net({success()});
    QVERIFY(deliver(u"mindbox"_s, body));
    QTEST(net.lastRequest().body, "sent");
}

void TestMindboxHandler::pointOfContactIsTheTills_data()
{
    QTest::addColumn<QString>("configured");
    QTest::newRow("another") << u"shop-7"_s;
    QTest::newRow("none") << u""_s;
}

void TestMindboxHandler::pointOfContactIsTheTills()
{
    QFETCH(QString, configured);
    const TestSettings config(u"[Mindbox]\nurl = http://mindbox.test/sync\npointOfContact = "_s
                              + configured);
    FakeRestClient net({success()});
    QVERIFY(deliver(u"mindbox"_s,
                    u"{\"method\":\"rollback\",\"payload\":{\"pointOfContact\":\"elsewhere\"}}"_s));
    QCOMPARE(net.lastRequest().jsonObject(), (QJsonObject{{u"pointOfContact"_s, configured}}));
}

void TestMindboxHandler::unknownMethod_data()
{
    QTest::addColumn<QString>("body");
    QTest::newRow("other case") << uR"({"method":"Commit","payload":{}})"_s;
    QTest::newRow("all small") << uR"({"method":"saveofflineorder","payload":{}})"_s;
    QTest::newRow("a blank") << uR"({"method":"rollback ","payload":{}})"_s;
    QTest::newRow("empty") << uR"({"method":"","payload":{}})"_s;
    QTest::newRow("none") << uR"({"payload":{}})"_s;
    QTest::newRow("not a text") << uR"({"method":["commit"],"payload":{}})"_s;
    QTest::newRow("an empty message") << u"{}"_s;
}

void TestMindboxHandler::unknownMethod()
{
    QFETCH(QString, body);
    const TestSettings config(settings);
    const LogCapture log(u"mindbox"_s);
    const FakeRestClient net;
    QCOMPARE(outcomeOf(u"mindbox"_s, body), u"kept request: неизвестный метод сообщения"_s);
    QCOMPARE(net.transcript(), QStringList());
    QCOMPARE(log.lines(), (QStringList{u"INFO Отправка сообщения 7"_s, address}));
}

void TestMindboxHandler::customerCheck_data()
{
    QTest::addColumn<QString>("cardNumber");
    QTest::addColumn<Script>("replies");
    QTest::addColumn<QStringList>("transcript");
    QTest::addColumn<QJsonValue>("customer");
    QTest::addColumn<QString>("outcome");

    const QString card = u"9643 17"_s;
    const QJsonValue old(u"old"_s);
    const QJsonValue phone(QJsonObject{{u"mobilePhone"_s, u"79990000001"_s}});
    const QJsonValue unsent(QJsonValue::Undefined);
    const QStringList both{checked, saved};
    const auto row = [](const char *name, const QString &cardNumber, const Script &replies,
                        const QStringList &transcript, const QJsonValue &customer,
                        const QString &outcome) {
        QTest::newRow(name) << cardNumber << replies << transcript << customer << outcome;
    };
    // clang-format off
    row("no card: no check",                QString(), Script{success()},                 {saved},   old,    u"delivered"_s);
    row("an empty card: no check",          u""_s,     Script{success()},                 {saved},   old,    u"delivered"_s);
    row("found",                            card,      Script{found(), success()},        both,      phone,  u"delivered"_s);
    row("found, the order is lost",         card,      Script{found(), noConnection()},   both,      phone,  keptBy(noConnection()));
    row("found, the order is refused",      card,      Script{found(), reply(400)},       both,      phone,  u"dropped: платформа отклонила запрос"_s);
    row("found, the order is an error",     card,      Script{found(), reply(200, R"({"status":"ValidationError"})")}, both, phone, u"kept service: платформа не приняла данные (ValidationError)"_s);
    row("found without a phone",            card,      Script{reply(200, R"({"customer":{"processingStatus":"Found"}})"), success()}, both,
        QJsonValue(QJsonObject{{u"mobilePhone"_s, u""_s}}), u"delivered"_s);
    row("found in a reply of 500",          card,      Script{reply(500, R"({"customer":{"processingStatus":"Found","mobilePhone":"79990000001"}})"), success()}, both, phone, u"delivered"_s);
    row("not found: dropped",               card,      Script{reply(200, R"({"status":"Success","customer":{"processingStatus":"NotFound"}})")}, {checked}, unsent, u"dropped: клиент с этой картой не найден, заказ не отправлен"_s);
    row("another status: dropped",          card,      Script{reply(200, R"({"customer":{"processingStatus":"Created"}})")}, {checked}, unsent, u"dropped: клиент с этой картой не найден, заказ не отправлен"_s);
    row("no customer: dropped",             card,      Script{success()},                 {checked}, unsent, u"dropped: клиент с этой картой не найден, заказ не отправлен"_s);
    row("an error of the service: dropped", card,      Script{reply(500, R"({"status":"ProtocolError"})")}, {checked}, unsent, u"dropped: карта клиента не проверена, заказ не отправлен"_s);
    row("200, empty: dropped",              card,      Script{reply(200)},                {checked}, unsent, u"dropped: клиент с этой картой не найден, заказ не отправлен"_s);
    row("lost, the order too",              card,      Script{noConnection(), noConnection()}, both, old,    keptBy(noConnection()));
    row("lost, the order arrives",          card,      Script{timeout(), success()},      both,      old,    u"delivered"_s);
    row("too large: counts as lost",        card,      Script{reply(200, R"({"customer":{"processingStatus":"NotFound"}})" + QByteArray(4 * 1024 * 1024, ' ')), success()}, both, old, u"delivered"_s);
    row("500, empty: counts as lost",       card,      Script{reply(500), reply(500)},    both,      old,    keptBy(reply(500)));
    row("lost, the order is refused",       card,      Script{timeout(), reply(400)},     both,      old,    u"dropped: платформа отклонила запрос"_s);
    row("lost, the order is an error",      card,      Script{timeout(), reply(200, R"({"status":"ValidationError"})")}, both, old, u"kept service: платформа не приняла данные (ValidationError)"_s);
    row("400, empty: counts as lost",       card,      Script{reply(400), success()},     both,      old,    u"delivered"_s);
    // clang-format on
}

void TestMindboxHandler::customerCheck()
{
    QFETCH(QString, cardNumber);
    QFETCH(Script, replies);
    QFETCH(QStringList, transcript);
    QFETCH(QJsonValue, customer);
    const TestSettings config(settings);
    const LogCapture log(u"mindbox"_s);
    FakeRestClient net(replies);
    QTEST(outcomeOf(u"mindbox"_s, message(u"saveOfflineOrder"_s, cardNumber)), "outcome");
    QCOMPARE(net.transcript(), transcript);

    QStringList lines{u"INFO Отправка сообщения 7"_s, address};
    lines.append(customer.isUndefined() ? u"ERROR Клиент не найден"_s
                                        : u"INFO Отложенная обработка чека"_s);
    QCOMPARE(log.lines(), lines);
    if (transcript.contains(checked)) {
        const QJsonObject ids{{u"number"_s, cardNumber}};
        QCOMPARE(net.requestAt(0).jsonObject().value(u"customer"_s).toObject(),
                 (QJsonObject{{u"discountCard"_s, QJsonObject{{u"ids"_s, ids}}}}));
    }
    if (!customer.isUndefined())
        QCOMPARE(net.lastRequest().jsonObject(), (QJsonObject{{u"customer"_s, customer},
                                                              {u"pointOfContact"_s, u"shop-7"_s},
                                                              {u"sum"_s, 1990.5}}));
}

void TestMindboxHandler::neverTransactionId()
{
    const TestSettings config(settings + u"useIdempotencyKey = true\n"_s);
    const QString payload =
        u"{\"order\":{\"transaction\":{\"ids\":{\"externalId\":\"order-1\"}}}}"_s;
    FakeRestClient net({success(), success(), success()});
    for (const QString &method : {u"commit"_s, u"saveOfflineOrder"_s, u"rollback"_s})
        QVERIFY(
            deliver(u"mindbox"_s, u"{\"method\":\"%1\",\"payload\":%2}"_s.arg(method, payload)));
    QCOMPARE(net.requests().size(), 3);
    for (const FakeRestClient::Request &request : net.requests())
        QVERIFY(!request.url.query().contains(u"transactionId"_s));
}

void TestMindboxHandler::settingsAreReadForEachDelivery()
{
    TestSettings config(settings);
    FakeRestClient net({success(), success()});
    QVERIFY(deliver(u"mindbox"_s, message(u"commit"_s)));
    config.set(
        u"[Mindbox]\nurl = http://other.test/\ncommitOrderTransactionOperation = Shop.Commit\n"_s);
    QVERIFY(deliver(u"mindbox"_s, message(u"commit"_s)));
    QCOMPARE(net.transcript(),
             (QStringList{query + u"CommitOrderTransaction"_s,
                          u"POST http://other.test/?endpointId=&operation=Shop.Commit"_s}));
}

QTEST_GUILESS_MAIN(TestMindboxHandler)
#include "tst_mindboxhandler.moc"
