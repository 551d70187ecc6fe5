#include "handlers/payment/iturupsbphandler.h"

#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QTranslator>

using namespace Qt::StringLiterals;

namespace {

QJsonObject description(const QString &name, const QString &data)
{
    return {{u"url"_s, u"http://iturup.test/"_s + name},
            {u"headers"_s, QJsonObject{{u"X-Step"_s, name}}},
            {u"data"_s, data}};
}

QString message()
{
    const QJsonObject body{
        {u"timeout"_s, 11},
        {u"qrOperationStatus"_s, description(u"status"_s, u"{ \"qrc\" : \"A1\" }"_s)},
        {u"refundPrepare"_s, description(u"prepare"_s, u"{\"amount\": 1990.50, \"tax\": 0.1,"
                                                       "\"big\": 9223372036854775807}"_s)},
        {u"refundCommit"_s, description(u"commit"_s, u"{\"operId\":\"old\"}"_s)},
        {u"refundStatus"_s, description(u"refund"_s, u"{\"a\":\"%1\"}"_s)},
    };
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

const QStringList chain{u"POST http://iturup.test/status"_s, u"POST http://iturup.test/prepare"_s,
                        u"POST http://iturup.test/commit"_s, u"POST http://iturup.test/refund"_s};

http::Response operation(const QString &status)
{
    return json(200, {{u"responseCode"_s, 0},
                      {u"data"_s, QJsonObject{{u"status"_s, status}, {u"operId"_s, u"op-1"_s}}}});
}

http::Response prepared()
{
    return json(200, {{u"responseCode"_s, 0}, {u"data"_s, QJsonObject{{u"operId"_s, u"op-2"_s}}}});
}

http::Response code(int value)
{
    return json(200, {{u"responseCode"_s, value}});
}

/// Interface language of the operator: every text by its key.
struct KeysAsTexts : QTranslator
{
    KeysAsTexts() { QCoreApplication::installTranslator(this); }
    ~KeysAsTexts() override { QCoreApplication::removeTranslator(this); }
    bool isEmpty() const override { return false; }
    QString translate(const char *, const char *key, const char *, int) const override
    {
        return u"translated "_s + QString::fromUtf8(key);
    }
};

} // namespace

class TestIturupSbpHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void responseCode_data();
    void responseCode();
    void fill_data();
    void fill();
    void failureIsLoggedInTheInterfaceLanguage();
    void requests();
    void outcome_data();
    void outcome();
    void identifiers_data();
    void identifiers();
    void emptyMessage();
    void everyReplyLostOnce_data();
    void everyReplyLostOnce();
};

void TestIturupSbpHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&IturupSbpHandler::sendMessage), 5);
    QCOMPARE(slotOf(&IturupSbpHandler::sendDescription), 9);
    QCOMPARE(slotOf(&IturupSbpHandler::responseCodeFromReply), 10);
    QCOMPARE(slotOf(&IturupSbpHandler::fillDescription), -1);
}

void TestIturupSbpHandler::responseCode_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("expected");
    QTest::newRow("2") << QByteArray(R"({"responseCode":2})") << 2;
    QTest::newRow("-5") << QByteArray(R"({"responseCode":-5})") << -5;
    QTest::newRow("as a text") << QByteArray(R"({"responseCode":"2"})") << 2;
    QTest::newRow("not a number") << QByteArray(R"({"responseCode":"x"})") << 0;
    QTest::newRow("null member") << QByteArray(R"({"responseCode":null})") << 0;
    // An absent code lets the chain continue; a missing reply stops it where 0 is required.
    QTest::newRow("absent") << QByteArray(R"({"data":{}})") << 0;
    QTest::newRow("empty object") << QByteArray("{}") << 0;
    QTest::newRow("array") << QByteArray("[]") << 0;
    QTest::newRow("not JSON") << QByteArray("ok") << -1;
    QTest::newRow("empty") << QByteArray() << -1;
    QTest::newRow("null") << QByteArray("null") << -1;
}

void TestIturupSbpHandler::responseCode()
{
    QFETCH(QByteArray, body);
    QFETCH(int, expected);
    FakeRestClient net({reply(200, body)});
    net.post(QUrl(), QByteArray(), {});
    QCOMPARE(IturupSbpHandler().responseCodeFromReply(net.responseVariant()), expected);
}

void TestIturupSbpHandler::fill_data()
{
    QTest::addColumn<QVariant>("data");
    QTest::addColumn<QString>("filled");
    const auto row = [](const char *name, const QVariant &data, const QString &filled) {
        QTest::newRow(name) << data << filled;
    };
    row("added", u"{\"a\": 1}"_s, u"{\"a\":1,\"k\":\"7\"}"_s);
    row("replaced", u"{\"k\":5,\"z\":[]}"_s, u"{\"k\":\"7\",\"z\":[]}"_s);
    row("amounts keep their value",
        u"{\"a\":1990.50,\"b\":0.1,\"c\":9223372036854775807,\"d\":100}"_s,
        u"{\"a\":1990.5,\"b\":0.1,\"c\":9223372036854775807,\"d\":100,\"k\":\"7\"}"_s);
    row("other letters", u"{\"a\":\"чек %1\"}"_s, u"{\"a\":\"чек %1\",\"k\":\"7\"}"_s);
    row("empty", QString(), u"{\"k\":\"7\"}"_s);
    row("not JSON", u"amount=5"_s, u"{\"k\":\"7\"}"_s);
    row("an array", u"[1]"_s, u"{\"k\":\"7\"}"_s);
    row("absent", QVariant(), u"{\"k\":\"7\"}"_s);
}

void TestIturupSbpHandler::fill()
{
    QFETCH(QVariant, data);
    QFETCH(QString, filled);
    Message message;
    QVariantMap before{{u"url"_s, u"http://a/b"_s}, {u"headers"_s, QVariantMap{{u"x"_s, u"y"_s}}}};
    if (data.isValid())
        before.insert(u"data"_s, data);
    message.body = {{u"refundCommit"_s, before}};
    QVariantMap after = before;
    after.insert(u"data"_s, filled);
    const IturupSbpHandler handler;
    QCOMPARE(handler.fillDescription(u"k"_s, u"7"_s, u"refundCommit"_s, message), after);
    QCOMPARE(message.body.value(u"refundCommit"_s).toMap(), before);
}

void TestIturupSbpHandler::failureIsLoggedInTheInterfaceLanguage()
{
    // All other types log the Russian text; this type logs in the operator's language.
    const KeysAsTexts translator;
    const LogCapture log(u"iturupsbp"_s);
    FakeRestClient net({reply(500)});
    QCOMPARE(reply(500).errorText.ru(), u"Сервер ответил ошибкой, код состояния HTTP 500"_s);
    QVERIFY(!deliver(u"iturupsbp"_s, message()));
    QCOMPARE(
        log.lines(),
        (QStringList{u"INFO Отправка сообщения"_s,
                     u"ERROR Ошибка при отправке сообщения: translated networkErrorStatus"_s}));
}

void TestIturupSbpHandler::requests()
{
    const LogCapture log(u"iturupsbp"_s);
    FakeRestClient net({operation(u"ACCEPTED"_s), prepared(), code(2), code(0)});
    QVERIFY(deliver(u"iturupsbp"_s, message()));
    QCOMPARE(net.steps(), QStringList{u"setTimeout 11"_s} + chain);
    // The first request is sent as the till has written it.
    QCOMPARE(net.requestAt(0).body, QByteArray("{ \"qrc\" : \"A1\" }"));
    QCOMPARE(net.requestAt(1).body,
             QByteArray(R"({"amount":1990.5,"big":9223372036854775807,"refId":"op-1","tax":0.1})"));
    QCOMPARE(net.requestAt(2).body, QByteArray(R"({"operId":"op-2"})"));
    QCOMPARE(net.requestAt(3).body, QByteArray(R"({"a":"%1","operId":"op-2"})"));
    for (const FakeRestClient::Request &made : net.requests()) {
        QCOMPARE(made.headers, (QMap<QString, QString>{{u"X-Step"_s, made.url.path().mid(1)}}));
        QCOMPARE(made.logger, IturupSbpHandler().logger());
        QCOMPARE(made.timeoutMs.value_or(-1), 11000);
    }
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения"_s});
}

void TestIturupSbpHandler::outcome_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<QString>("outcome");

    const auto row = [](const char *name, const Script &script, const QString &outcome) {
        QTest::newRow(name) << script << outcome;
    };
    const http::Response accepted = operation(u"ACCEPTED"_s);
    const http::Response noReply = reply(200);
    const http::Response running = code(2);

    row("status: no connection", {noConnection()}, keptBy(noConnection()));
    row("status: 500", {reply(500, R"({"data":{"status":"REJECTED"}})")}, keptBy(reply(500)));
    row("status: code 1", {code(1)}, u"kept service: код ответа 1"_s);
    row("status: code 1 with a state",
        {json(200,
              {{u"responseCode"_s, 1}, {u"data"_s, QJsonObject{{u"status"_s, u"REJECTED"_s}}}})},
        u"kept service: код ответа 1"_s);
    // A null reply is -1, and 0 is required here.
    row("status: null", {noReply}, u"kept service: ответ не прочитан"_s);
    row("status: no state", {code(0)}, u"kept service: состояние операции: не указано"_s);
    row("rejected: dropped", {operation(u"REJECTED"_s)}, u"dropped: операция отклонена"_s);
    row("not started: done", {operation(u"NOT_STARTED"_s)},
        u"delivered: операция не начата, возвращать нечего"_s);
    row("rejected, code absent: dropped",
        {json(200, {{u"data"_s, QJsonObject{{u"status"_s, u"REJECTED"_s}}}})},
        u"dropped: операция отклонена"_s);
    row("received: later", {operation(u"RECEIVED"_s)},
        u"kept service: состояние операции: RECEIVED"_s);
    row("in progress: later", {operation(u"IN_PROGRESS"_s)},
        u"kept service: состояние операции: IN_PROGRESS"_s);
    row("unknown state: later", {operation(u"REFUNDED"_s)},
        u"kept service: состояние операции: REFUNDED"_s);
    row("another case: later", {operation(u"rejected"_s)},
        u"kept service: состояние операции: rejected"_s);

    row("prepare: no connection", {accepted, noConnection()}, keptBy(noConnection()));
    row("prepare: 400", {accepted, reply(400)}, keptBy(reply(400)));
    row("prepare: code 2", {accepted, running}, u"kept service: код ответа 2"_s);
    row("prepare: null", {accepted, noReply}, u"kept service: ответ не прочитан"_s);

    row("commit: no connection", {accepted, prepared(), noConnection()}, keptBy(noConnection()));
    row("commit: 500", {accepted, prepared(), reply(500, R"({"responseCode":0})")},
        keptBy(reply(500)));
    row("commit: 0", {accepted, prepared(), code(0)}, u"delivered"_s);
    // Every answer except 2 ends the refund, also an error and an unreadable answer: the commit has
    // reached the partner, and the till relies on it that it is not sent again.
    row("commit: 1", {accepted, prepared(), code(1)}, u"dropped: возврат завершён с кодом 1"_s);
    row("commit: -7", {accepted, prepared(), code(-7)}, u"dropped: возврат завершён с кодом -7"_s);
    row("commit: absent", {accepted, prepared(), json(200, {})}, u"delivered"_s);
    row("commit: null", {accepted, prepared(), noReply},
        u"dropped: ответ на возврат не прочитан"_s);

    row("running: 0", {accepted, prepared(), running, code(0)}, u"delivered"_s);
    row("running: 1", {accepted, prepared(), running, code(1)},
        u"dropped: возврат завершён с кодом 1"_s);
    row("running: null", {accepted, prepared(), running, noReply},
        u"dropped: ответ на возврат не прочитан"_s);
    row("running: asked until it ends",
        {accepted, prepared(), running, running, running, running, code(0)}, u"delivered"_s);
    row("running: no connection", {accepted, prepared(), running, running, noConnection()},
        keptBy(noConnection()));
    row("running: 500", {accepted, prepared(), running, reply(500)}, keptBy(reply(500)));
}

void TestIturupSbpHandler::outcome()
{
    QFETCH(Script, script);
    const LogCapture log(u"iturupsbp"_s);
    FakeRestClient net(script);
    QTEST(outcomeOf(u"iturupsbp"_s, message()), "outcome");
    QStringList expected = chain.first(std::min(script.size(), chain.size()));
    while (expected.size() < script.size())
        expected.append(chain.last());
    QCOMPARE(net.transcript(), expected);
    QStringList lines{u"INFO Отправка сообщения"_s};
    if (script.last().errorCode > 0)
        lines.append(u"ERROR Ошибка при отправке сообщения: "_s + script.last().errorText.ru());
    QCOMPARE(log.lines(), lines);
    for (qsizetype i = 3; i < script.size(); ++i)
        QCOMPARE(net.requestAt(static_cast<int>(i)).body,
                 QByteArray(R"({"a":"%1","operId":"op-2"})"));
}

void TestIturupSbpHandler::identifiers_data()
{
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<QByteArray>("filled");
    QTest::newRow("text") << QByteArray(R"("a %1")") << QByteArray(R"("a %1")");
    QTest::newRow("number") << QByteArray("9007199254740993")
                            << QByteArray(R"("9007199254740993")");
    QTest::newRow("null") << QByteArray("null") << QByteArray(R"("")");
}

void TestIturupSbpHandler::identifiers()
{
    QFETCH(QByteArray, id);
    QFETCH(QByteArray, filled);
    FakeRestClient net({reply(200, R"({"data":{"status":"ACCEPTED","operId":)" + id + "}}"),
                        reply(200, R"({"data":{"operId":)" + id + "}}"), code(0)});
    QVERIFY(deliver(u"iturupsbp"_s, message()));
    QVERIFY(net.requestAt(1).body.contains(R"("refId":)" + filled));
    QCOMPARE(net.requestAt(2).body, R"({"operId":)" + filled + '}');
}

void TestIturupSbpHandler::emptyMessage()
{
    FakeRestClient net({http::Response::failed(301, tr::Tr(u"Не указан адрес запроса"_s))});
    QVERIFY(!deliver(u"iturupsbp"_s, u"{}"_s));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 0"_s, u"POST "_s}));
}

void TestIturupSbpHandler::everyReplyLostOnce_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<Script>("nextScript");

    const http::Response lost = http::Response::failed(2, tr::Tr(u"Обрыв"_s));
    const http::Response accepted = operation(u"ACCEPTED"_s);
    // Each attempt begins with the state, so a payment that was refunded meanwhile is not refunded
    // again.
    QTest::newRow("state") << Script{lost} << Script{operation(u"REJECTED"_s)};
    QTest::newRow("prepare") << Script{accepted, lost} << Script{accepted, prepared(), code(0)};
    QTest::newRow("commit, undone by now")
        << Script{accepted, prepared(), lost} << Script{operation(u"REJECTED"_s)};
    QTest::newRow("commit, not undone")
        << Script{accepted, prepared(), lost} << Script{accepted, prepared(), code(2), code(0)};
    QTest::newRow("state of the refund")
        << Script{accepted, prepared(), code(2), lost} << Script{operation(u"REJECTED"_s)};
}

void TestIturupSbpHandler::everyReplyLostOnce()
{
    QFETCH(Script, script);
    QFETCH(Script, nextScript);
    FakeRestClient net(script);
    QVERIFY(!deliver(u"iturupsbp"_s, message()));
    net.nextDelivery();
    net.play(nextScript);
    QVERIFY(deliver(u"iturupsbp"_s, message()));
    QCOMPARE(net.transcript(), chain.first(script.size()) + chain.first(nextScript.size()));
}

QTEST_GUILESS_MAIN(TestIturupSbpHandler)
#include "tst_iturupsbphandler.moc"
