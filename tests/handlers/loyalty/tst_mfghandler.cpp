#include "handlers/loyalty/mfghandler.h"
#include "shared/core/mockfactory.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/testsettings.h"

#include <log4qt/logger.h>

#include <QTest>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

using Headers = QMap<QString, QString>;

const QString type = u"mfg"_s;
const QString message = uR"({"op":4,"url":"http://mfg.test/api/postOrder",)"_s
                        + uR"("headers":{"X":"1"},"payload":{"basket":"b"}})"_s;
const QString opening = u"INFO Отправка сообщения 7"_s;
const QString fromQueue = u"INFO Отправка сообщения из очереди"_s;

/// A request that cannot be sent.
class BrokenClient : public RestClient
{
public:
    void request(int /*verb*/, const QUrl & /*url*/, const QJsonDocument & /*body*/,
                 const Headers & /*headers*/) override
    {
        throw std::runtime_error("broken");
    }
};

} // namespace

class TestMfgHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void settingsDoNotChangeTheRequest();
    void settingsAreReadForEachMessage();
    void outcome_data();
    void outcome();
    void emptyMessageStays();
    void otherExceptionsPassOn();
};

void TestMfgHandler::request_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("line");
    QTest::addColumn<Headers>("headers");
    QTest::addColumn<QByteArray>("sent");

    const Headers none;
    const auto url = uR"("url":"http://m.test/p")"_s;
    const auto with = [url](const QString &rest) {
        return u"{"_s + url + u","_s + rest + u"}"_s;
    };
    // clang-format off
    QTest::newRow("POST")              << with(uR"("op":4,"headers":{"X":"1"},"payload":{"a":1,"b":"ж"})"_s) << u"POST http://m.test/p"_s << Headers{{u"X"_s, u"1"_s}} << R"({"a":1,"b":"ж"})"_ba;
    QTest::newRow("GET")               << with(uR"("op":2,"payload":{})"_s)            << u"GET http://m.test/p"_s    << none << "{}"_ba;
    QTest::newRow("PUT")               << with(uR"("op":3,"payload":{"a":1})"_s)       << u"PUT http://m.test/p"_s    << none << R"({"a":1})"_ba;
    QTest::newRow("verb as text")      << with(uR"("op":"4","payload":{"a":1})"_s)     << u"POST http://m.test/p"_s   << none << R"({"a":1})"_ba;
    QTest::newRow("verb as decimal")   << with(uR"("op":4.0,"payload":{"a":1})"_s)     << u"POST http://m.test/p"_s   << none << R"({"a":1})"_ba;
    QTest::newRow("verb no number")    << with(uR"("op":"POST","payload":{"a":1})"_s)  << u" http://m.test/p"_s << none << R"({"a":1})"_ba;
    QTest::newRow("no verb")           << with(uR"("payload":{"a":1})"_s)              << u" http://m.test/p"_s << none << R"({"a":1})"_ba;
    QTest::newRow("no payload")        << with(uR"("op":4)"_s)                         << u"POST http://m.test/p"_s   << none << "{}"_ba;
    QTest::newRow("payload null")      << with(uR"("op":4,"payload":null)"_s)          << u"POST http://m.test/p"_s   << none << "{}"_ba;
    QTest::newRow("payload a text")    << with(uR"("op":4,"payload":"{\"a\":1}")"_s)   << u"POST http://m.test/p"_s   << none << "{}"_ba;
    QTest::newRow("payload a list")    << with(uR"("op":4,"payload":[1])"_s)           << u"POST http://m.test/p"_s   << none << "{}"_ba;
    QTest::newRow("numbers stay")      << with(uR"("op":4,"payload":{"a":9007199254740993,"b":0.1,"c":[{"d":null}]})"_s) << u"POST http://m.test/p"_s << none << R"({"a":9007199254740993,"b":0.1,"c":[{"d":null}]})"_ba;
    QTest::newRow("headers become texts") << with(uR"("op":4,"headers":{"N":5,"F":1.5,"B":true,"Z":null,"L":[1]})"_s) << u"POST http://m.test/p"_s
                                          << Headers{{u"N"_s, u"5"_s}, {u"F"_s, u"1.5"_s}, {u"B"_s, u"true"_s}, {u"Z"_s, u""_s}, {u"L"_s, u""_s}} << "{}"_ba;
    QTest::newRow("headers no object") << with(uR"("op":4,"headers":"X: 1")"_s)        << u"POST http://m.test/p"_s   << none << "{}"_ba;
    QTest::newRow("address put right") << uR"({"op":4,"url":"http://m.test/a b/ж?q=1 2"})"_s << u"POST http://m.test/a%20b/%D0%B6?q=1%202"_s << none << "{}"_ba;
    QTest::newRow("encoded address")   << uR"({"op":4,"url":"http://m.test/a%2Fb?q=%2B7"})"_s << u"POST http://m.test/a%2Fb?q=%2B7"_s << none << "{}"_ba;
    // clang-format on
}

void TestMfgHandler::request()
{
    QFETCH(QString, body);
    QFETCH(QString, line);
    QFETCH(Headers, headers);
    QFETCH(QByteArray, sent);

    const LogCapture log(type);
    FakeRestClient net({reply(200, R"({"success":true})")});
    QVERIFY(deliver(type, body));
    QCOMPARE(net.transcript(), QStringList{line});
    QCOMPARE(net.lastRequest().headers, headers);
    QCOMPARE(net.lastRequest().body, sent);
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), 10'000);
    QVERIFY(net.lastRequest().logger);
    QCOMPARE(net.lastRequest().logger->name(), type);
    QCOMPARE(log.lines(), (QStringList{opening, fromQueue}));
}

void TestMfgHandler::settingsDoNotChangeTheRequest()
{
    const TestSettings settings(u"[Mfg]\nhost = http://other.test\npath = /other\nuser = till\n"
                                "password = secret\ntimeout = 1500\nbrand = B\n"_s);
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(type, message));
    QCOMPARE(net.steps(),
             (QStringList{u"setTimeoutMs 1500"_s, u"POST http://mfg.test/api/postOrder"_s}));
    QCOMPARE(net.lastRequest().headers, (Headers{{u"X"_s, u"1"_s}}));
    QCOMPARE(net.lastRequest().body, R"({"basket":"b"})");
}

void TestMfgHandler::settingsAreReadForEachMessage()
{
    TestSettings settings(u"[Mfg]\ntimeout = 1500\n"_s);
    FakeRestClient net({reply(200), reply(200)});
    MfgHandler handler;
    Message first;
    first.body = {{u"op"_s, 4}, {u"url"_s, u"http://mfg.test"_s}};
    QVERIFY(handler.sendMessage(first));
    settings.set(u"[Mfg]\ntimeout = 2500\n"_s);
    QVERIFY(handler.sendMessage(first));
    QCOMPARE(net.requestAt(0).timeoutMs.value_or(-1), 1500);
    QCOMPARE(net.requestAt(1).timeoutMs.value_or(-1), 2500);
}

void TestMfgHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("failure");

    const auto row = [](const char *name, const http::Response &answer, const QString &outcome,
                        const QString &failure = QString()) {
        QTest::newRow(name) << answer << outcome << failure;
    };
    const QByteArray no = R"({"success":false,"message":"Карта %1 закрыта"})";
    const QString closed = u"Карта %1 закрыта"_s;
    const http::Response cutOff =
        http::Response::failed(2, tr::Tr(u"Соединение закрыто раньше времени"_s), 200);
    const QString status500 = u"Сервер ответил ошибкой, код состояния HTTP 500"_s;
    // clang-format off
    row("success",                   reply(200, R"({"success":true})"),                  u"delivered"_s);
    row("success absent",            reply(200, "{}"),                                   u"delivered"_s);
    row("not JSON",                  reply(200, "<html/>"),                              u"delivered"_s);
    row("error 0",                   reply(200, R"({"error":{"errorCode":0}})"),         u"delivered"_s);
    row("error below 0",             reply(200, R"({"error":{"errorCode":-1}})"),        u"delivered"_s);
    row("error without code",        reply(200, R"({"error":{}})"),                      u"delivered"_s);
    row("error 5",                   reply(200, R"({"success":true,"error":{"errorCode":5,"description":"Нет %1"}})"), u"kept service: сервис ответил кодом ошибки 5"_s, u"Нет %1"_s);
    row("no success",                reply(200, no),                                     u"dropped: сервис отказал в операции"_s,  closed);
    row("no success under 400",      reply(400, no),                                     u"dropped: сервис отказал в операции"_s,  closed);
    row("no success under 500",      reply(500, no),                                     u"dropped: сервис отказал в операции"_s,  closed);
    row("no success under 201",      reply(201, no),                                     u"kept service: сервис отказал в операции"_s, closed);
    row("no success under 404",      reply(404, no),                                     keptBy(reply(404)), closed);
    row("500",                       reply(500),                                         u"dropped: Сервер ответил ошибкой, код состояния HTTP 500"_s,  status500);
    row("500 with error 5",          reply(500, R"({"error":{"errorCode":5,"description":"x"}})"), u"dropped: Сервер ответил ошибкой, код состояния HTTP 500"_s, status500);
    row("401",                       reply(401),                                         keptBy(reply(401)), u"Сервер ответил ошибкой, код состояния HTTP 401"_s);
    row("200 that breaks off",       cutOff,                                             u"dropped: Соединение закрыто раньше времени"_s,  u"Соединение закрыто раньше времени"_s);
    row("no connection",             noConnection(),                                     keptBy(noConnection()), u"Сервер отклонил соединение"_s);
    row("no answer in time",         timeout(),                                          keptBy(timeout()), u"Сервер не ответил вовремя"_s);
    // clang-format on
}

void TestMfgHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(QString, failure);

    const LogCapture log(type);
    FakeRestClient net({answer});
    QTEST(outcomeOf(type, message), "outcome");
    QStringList expected{opening, fromQueue};
    if (!failure.isEmpty())
        expected.append(u"ERROR "_s + failure);
    QCOMPARE(log.lines(), expected);
}

void TestMfgHandler::emptyMessageStays()
{
    // The real client: there is neither a verb nor an address.
    const LogCapture log(type);
    QVERIFY(!deliver(type, u"{}"_s));
    QCOMPARE(log.lines().filter(u"ERROR "_s), QStringList{u"ERROR Не указан адрес запроса"_s});
}

void TestMfgHandler::otherExceptionsPassOn()
{
    MockFactory<RestClient>::install(std::make_shared<BrokenClient>());
    QVERIFY_THROWS_EXCEPTION(std::runtime_error, deliver(type, message));
    MockFactory<RestClient>::install(nullptr);
}

QTEST_GUILESS_MAIN(TestMfgHandler)
#include "tst_mfghandler.moc"
