#include "handlers/payment/rsbsbphandler.h"

#include "handlers/payment/steadytime.h"
#include "rig/loopbackserver.h"
#include "shared/core/mockfactory.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;
using rig::LoopbackServer;

namespace {

const QString opening = u"INFO Отправка сообщения"_s;
const QString polling = u"INFO Запрашиваем статус возврата"_s;
const QString block = u"MIIB+/09az\nAQAB==\n"_s;

const QString refundUrl = u"https://rsb.test/refund"_s;
const QString statusUrl = u"https://rsb.test/status"_s;
const QString refundLine = u"POST "_s + refundUrl;
const QString statusLine = u"POST "_s + statusUrl;

/// No floating-point number holds it.
constexpr qint64 largeId = 9223372036854775807;

QString message(const QString &signature, int duration = 0, int interval = 0)
{
    const QJsonObject body{
        {u"timeout"_s, 6},
        {u"certificatePath"_s, u"/certs/till.pem"_s},
        {u"privateKeyPath"_s, u"/certs/till.key"_s},
        {u"headers"_s, QJsonObject{{u"X-Till"_s, u"7"_s}}},
        {u"bodyRefund"_s, QJsonObject{{u"amount"_s, 1990.50},
                                      {u"tax"_s, 0.1},
                                      {u"id"_s, largeId},
                                      {u"msgSign"_s, signature}}},
        {u"urlRefund"_s, refundUrl},
        {u"urlStatus"_s, statusUrl},
        {u"bodyStatus"_s, QJsonObject{{u"id"_s, largeId}}},
        {u"duration"_s, duration},
        {u"interval"_s, interval},
    };
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

http::Response code(int value)
{
    return json(200, {{u"code"_s, QString::number(value)}});
}

/// A clock that moves only by sleeps and by the duration of requests, and records both.
class FakeTime : public SteadyTime
{
public:
    explicit FakeTime(QStringList &events)
        : events(events)
    {
    }

    Moment now() const override { return Moment(std::chrono::milliseconds(bootTime + elapsed)); }
    void sleepUntil(Moment moment) const override
    {
        const qint64 target = (moment - Moment()) / std::chrono::milliseconds(1) - bootTime;
        events.append(u"%1 sleep until %2"_s.arg(elapsed).arg(target));
        elapsed = std::max(elapsed, target);
    }

    /// Milliseconds since the start.
    mutable qint64 elapsed = 0;

private:
    static constexpr qint64 bootTime = 777'000;
    QStringList &events;
};

/// Plays status replies with a duration.
class SlowPartner : public FakeRestClient
{
public:
    SlowPartner(const Script &script, const QList<int> &durations)
        : FakeRestClient(script)
        , durations(durations)
        , time(std::make_shared<FakeTime>(events))
    {
        MockFactory<SteadyTime>::install(time);
    }
    ~SlowPartner() override { MockFactory<SteadyTime>::install(nullptr); }

    using FakeRestClient::post;
    void post(const QUrl &url, const QJsonDocument &body, const Headers &headers) override
    {
        events.append(u"%1 ask"_s.arg(time->elapsed));
        // A poll beyond the script ends and fails the test.
        if (!repliesLeft())
            time->elapsed += 3'600'000;
        FakeRestClient::post(url, body, headers);
        time->elapsed += durations.isEmpty() ? 0 : durations.takeFirst();
    }

    QStringList events;

private:
    QList<int> durations;
    std::shared_ptr<FakeTime> time;
};

bool poll(SlowPartner &partner, int duration, int interval)
{
    return RsbSbpHandler().pollRefundStatus(partner, QUrl(statusUrl), {}, {}, duration, interval);
}

} // namespace

class TestRsbSbpHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void requests();
    void emptyMessage();
    void statusBody_data();
    void statusBody();
    void signature_data();
    void signature();
    void missingSignatureIsNotAdded();
    void outcome_data();
    void outcome();
    void pollOutcome_data();
    void pollOutcome();
    void pollSteps_data();
    void pollSteps();
    void pollOverRealConnections();
    void everyReplyLostOnce_data();
    void everyReplyLostOnce();
};

void TestRsbSbpHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&RsbSbpHandler::sendMessage), 5);
    QCOMPARE(slotOf(&RsbSbpHandler::pollRefundStatus), 9);
}

void TestRsbSbpHandler::requests()
{
    const LogCapture log(u"rsbsbp"_s);
    SlowPartner net({timeout(), code(0)}, {});
    QVERIFY(deliver(u"rsbsbp"_s, message(block)));
    QCOMPARE(net.steps(),
             (QStringList{u"setTimeout 6"_s, u"setCertificatePath /certs/till.pem"_s,
                          u"setPrivateKeyPath /certs/till.key"_s, refundLine, statusLine}));
    QCOMPARE(net.requestAt(0).body, QByteArray(R"({"amount":1990.5,"id":9223372036854775807,)"
                                               R"("msgSign":"MIIB+/09az\nAQAB==\n","tax":0.1})"));
    QCOMPARE(net.requestAt(1).body, QByteArray(R"({"id":9223372036854775807})"));
    for (const FakeRestClient::Request &made : net.requests()) {
        QCOMPARE(made.headers, (QMap<QString, QString>{{u"X-Till"_s, u"7"_s}}));
        // The exchange with the bank is not logged, not even at debug level.
        QVERIFY(!made.logger);
    }
    QCOMPARE(log.lines(), (QStringList{opening, polling}));
}

void TestRsbSbpHandler::emptyMessage()
{
    FakeRestClient net({http::Response::failed(301, tr::Tr(u"Не указан адрес запроса"_s))});
    QVERIFY(!deliver(u"rsbsbp"_s, u"{}"_s));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 0"_s, u"setCertificatePath "_s,
                                       u"setPrivateKeyPath "_s, u"POST "_s}));
    QCOMPARE(net.lastRequest().body, QByteArray("{}"));
}

void TestRsbSbpHandler::statusBody_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("object") << u"{\"bodyStatus\":{\"a\":1990.50}}"_s
                            << QByteArray(R"({"a":1990.5})");
    QTest::newRow("array") << u"{\"bodyStatus\":[1,\"b\"]}"_s << QByteArray(R"([1,"b"])");
    QTest::newRow("null") << u"{\"bodyStatus\":null}"_s << QByteArray();
    QTest::newRow("absent") << u"{}"_s << QByteArray();
}

void TestRsbSbpHandler::statusBody()
{
    QFETCH(QString, body);
    QFETCH(QByteArray, sent);
    SlowPartner net({timeout(), code(0)}, {});
    QVERIFY(deliver(u"rsbsbp"_s, body));
    QCOMPARE(net.lastRequest().body, sent);
}

void TestRsbSbpHandler::signature_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<QString>("after");

    const auto same = [](const char *name, const QString &text) {
        QTest::newRow(name) << text << text;
    };
    const auto cut = [](const char *name, const QString &before, const QString &after) {
        QTest::newRow(name) << before << after;
    };
    const QString large = (QString(64, u'A') + u'\n').repeated(1600);
    const QString largeLine = QString(100'000, u'A');

    same("one block", block);
    same("one line", u"AAAA\n"_s);
    same("one pad", u"AAA=\n"_s);
    same("two pads", u"AA==\n"_s);
    same("line feeds within", u"AA\nBB\n\nCC=\n"_s);
    cut("text after it", block + u"-----END PKCS7-----\n"_s, block);
    cut("text after an unpadded block", u"AAAA\nBB\n-----END"_s, u"AAAA\nBB\n"_s);
    cut("second block after the padding", u"AA==\nBB==\n"_s, u"AA==\n"_s);
    cut("line feed after the padding", u"AA==\n\n"_s, u"AA==\n"_s);
    cut("broken last line", u"AAAA\nBB"_s, u"AAAA\n"_s);
    cut("padding without its line feed", u"AAAA\nBB=="_s, u"AAAA\n"_s);
    cut("too much padding", u"AAAA\nB===\n"_s, u"AAAA\n"_s);
    cut("carriage return in a later line", u"AAAA\nBBBB\r\n"_s, u"AAAA\n"_s);
    cut("placeholders after it", u"AA==\n%1 %2\n"_s, u"AA==\n"_s);
    cut("Cyrillic after it", u"AA==\nподпись"_s, u"AA==\n"_s);
    cut("zero character after it", u"AA==\n"_s + QChar(u'\0'), u"AA==\n"_s);
    // None of these is a block that ends in a line feed; other texts are not changed.
    same("lines end in CRLF", u"AAAA\r\nBBBB==\r\n"_s);
    same("no line feed", u"AAAA=="_s);
    same("begins with other text", u"-----BEGIN\nAAAA\n"_s);
    same("begins with a blank", u" AAAA\n"_s);
    same("begins with Cyrillic letters", u"АААА\n"_s);
    same("padding in the middle", u"AA==BB\n"_s);
    same("three pads", u"A===\n"_s);
    same("padding alone", u"==\n"_s);
    same("one line feed", u"\n"_s);
    same("empty", QString());
    // Longer than the step limit of the regular expression.
    same("100 kB", large);
    cut("100 kB, text after it", large + u"-----END"_s, large);
    cut("100 kB, carriage return at the end", large + u"AA==\r\n"_s, large);
    same("100 kB in one line", largeLine + u"==\n"_s);
    cut("100 kB in one line, text after it", largeLine + u"==\nx-"_s, largeLine + u"==\n"_s);
    cut("100 kB without an end after one line", u"AA\n"_s + largeLine, u"AA\n"_s);
    same("100 kB without a line feed", largeLine);
    same("100 kB with a wrong end", largeLine + u"===\n"_s);
    cut("100 kB of other text after it", u"AA==\n"_s + QString(100'000, u'-'), u"AA==\n"_s);
    same("100 kB of line feeds", QString(100'000, u'\n'));
}

void TestRsbSbpHandler::signature()
{
    QFETCH(QString, before);
    QFETCH(QString, after);
    const LogCapture log(u"rsbsbp"_s);
    FakeRestClient net({code(0)});
    QVERIFY(deliver(u"rsbsbp"_s, message(before)));
    const QJsonObject sent = net.lastRequest().jsonObject();
    QCOMPARE(sent.value(u"msgSign"_s).toString(), after);
    QCOMPARE(sent.value(u"amount"_s).toDouble(), 1990.5);
    QStringList lines{opening};
    if (before != after)
        lines.append(u"WARN Подменяем подпись\n"_s + before + u"\n\n===>\n\n"_s + after);
    QCOMPARE(log.lines(), lines);
}

void TestRsbSbpHandler::missingSignatureIsNotAdded()
{
    FakeRestClient net({code(0)});
    QVERIFY(deliver(u"rsbsbp"_s, u"{\"bodyRefund\":{\"a\":1}}"_s));
    QCOMPARE(net.lastRequest().body, QByteArray(R"({"a":1})"));

    net.nextDelivery();
    net.play({code(0)});
    QVERIFY(deliver(u"rsbsbp"_s, u"{\"bodyRefund\":{\"msgSign\":12}}"_s));
    QCOMPARE(net.lastRequest().body, QByteArray(R"({"msgSign":12})"));
}

void TestRsbSbpHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("logged");

    const QString nothing;
    const QString noCode = u"kept service: в ответе банка нет кода"_s;
    const QString unknown = u"ERROR Неизвестная ошибка"_s;
    const QString http500 = u"Сервер ответил ошибкой, код состояния HTTP 500"_s;

    QTest::newRow("0") << code(0) << u"delivered"_s << nothing;
    QTest::newRow("0 as a number") << reply(200, R"({"code":0})") << u"delivered"_s << nothing;
    QTest::newRow("0 with a text")
        << reply(200, R"({"code":"0","message":"m"})") << u"delivered"_s << nothing;
    // A value that is not an integer reads as 0, and 0 is success.
    QTest::newRow("not an integer") << reply(200, R"({"code":"ok"})") << u"delivered"_s << nothing;
    QTest::newRow("a fraction") << reply(200, R"({"code":"5.5"})") << u"delivered"_s << nothing;
    QTest::newRow("hexadecimal") << reply(200, R"({"code":"0x5"})") << u"delivered"_s << nothing;
    QTest::newRow("null") << reply(200, R"({"code":null})") << u"delivered"_s << nothing;

    // A reply needs its code to be a success.
    QTest::newRow("no code") << json(200, {}) << noCode << unknown;
    QTest::newRow("no code, a text")
        << reply(200, R"({"message":"m %1"})") << noCode << u"ERROR m %1"_s;
    QTest::newRow("empty") << reply(200) << noCode << unknown;
    QTest::newRow("not JSON") << reply(200, "0") << noCode << unknown;
    QTest::newRow("array") << reply(200, R"([{"code":"0"}])") << noCode << unknown;

    for (const int final : {-54, -33, -32, -31, -30, -24, -23, -13, -5, 1}) {
        QTest::addRow("final code %d", final)
            << json(200, {{u"code"_s, QString::number(final)}, {u"message"_s, u"m %1"_s}})
            << u"dropped: окончательный код банка %1, возврат не подтверждён"_s.arg(final)
            << u"WARN m %1"_s;
    }
    for (const int other : {-999, -55, -53, -34, -29, -25, -22, -14, -12, -6, -4, -1, 2, 5}) {
        QTest::addRow("code %d", other)
            << json(200, {{u"code"_s, QString::number(other)}, {u"message"_s, u"m"_s}})
            << (other == -999 ? noCode
                              : u"kept service: банк не сделал возврат, код %1"_s.arg(other))
            << u"ERROR m"_s;
    }
    QTest::newRow("final code as a number")
        << reply(200, R"({"code":-13})")
        << u"dropped: окончательный код банка -13, возврат не подтверждён"_s
        << u"WARN Неизвестная ошибка"_s;
    QTest::newRow("code as a number")
        << reply(200, R"({"code":7})") << u"kept service: банк не сделал возврат, код 7"_s
        << unknown;
    QTest::newRow("empty text") << reply(200, R"({"code":"7","message":""})")
                                << u"kept service: банк не сделал возврат, код 7"_s << u"ERROR "_s;

    QTest::newRow("500 with 0") << reply(500, R"({"code":"0"})") << keptBy(reply(500))
                                << u"ERROR "_s + http500;
    QTest::newRow("500 with 0 and a text")
        << reply(500, R"({"code":"0","message":"m"})") << keptBy(reply(500)) << u"ERROR m"_s;
    QTest::newRow("500 with a final code")
        << reply(500, R"({"code":"-5"})")
        << u"dropped: окончательный код банка -5, возврат не подтверждён"_s << u"WARN "_s + http500;
    QTest::newRow("500 with another code")
        << reply(500, R"({"code":"9","message":"m"})") << keptBy(reply(500)) << u"ERROR m"_s;
    QTest::newRow("500, empty") << reply(500) << keptBy(reply(500)) << u"ERROR "_s + http500;
    QTest::newRow("no connection")
        << noConnection() << keptBy(noConnection()) << u"ERROR Сервер отклонил соединение"_s;
    QTest::newRow("cut off") << http::Response::failed(2, tr::Tr(u"Обрыв %1"_s), 200)
                             << u"kept network: Обрыв %1"_s << u"ERROR Обрыв %1"_s;
}

void TestRsbSbpHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(QString, logged);
    const LogCapture log(u"rsbsbp"_s);
    FakeRestClient net({answer});
    QTEST(outcomeOf(u"rsbsbp"_s, message(block, 1000, 100)), "outcome");
    QCOMPARE(net.transcript(), QStringList{refundLine});
    QStringList lines{opening};
    if (!logged.isNull())
        lines.append(logged);
    QCOMPARE(log.lines(), lines);
}

void TestRsbSbpHandler::pollOutcome_data()
{
    QTest::addColumn<http::Response>("last");
    QTest::addColumn<QString>("outcome");
    QTest::newRow("0") << code(0) << u"delivered"_s;
    // 1 and -24 do not end the poll, but the till counts them as success when they come last: the
    // refund is in progress, or was made before.
    QTest::newRow("1") << code(1) << u"delivered"_s;
    QTest::newRow("-24") << code(-24) << u"delivered"_s;
    // As an answer to the refund itself, -23 drops the message, but not here: the refund is then
    // sent again, and that answer decides.
    QTest::newRow("-23") << code(-23) << u"kept service: банк не сделал возврат, код -23"_s;
    QTest::newRow("-5") << code(-5) << u"kept service: банк не сделал возврат, код -5"_s;
    QTest::newRow("5") << code(5) << u"kept service: банк не сделал возврат, код 5"_s;
    QTest::newRow("0 with 500") << reply(500, R"({"code":"0"})") << u"delivered"_s;
    QTest::newRow("no code") << json(200, {}) << u"kept service: в ответе банка нет кода"_s;
    QTest::newRow("no connection") << noConnection() << keptBy(noConnection());
    QTest::newRow("timeout") << timeout() << keptBy(timeout());
}

void TestRsbSbpHandler::pollOutcome()
{
    QFETCH(http::Response, last);
    const LogCapture log(u"rsbsbp"_s);
    // With a duration of 0 the state is requested exactly once.
    SlowPartner net({timeout(), last}, {});
    QTEST(outcomeOf(u"rsbsbp"_s, message(block)), "outcome");
    QCOMPARE(net.transcript(), (QStringList{refundLine, statusLine}));
    QCOMPARE(log.lines(), (QStringList{opening, polling}));
}

void TestRsbSbpHandler::pollSteps_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<QList<int>>("durations");
    QTest::addColumn<int>("duration");
    QTest::addColumn<int>("interval");
    QTest::addColumn<QStringList>("events");
    QTest::addColumn<bool>("finished");

    const http::Response open = code(5);
    QTest::newRow("no duration: one request")
        << Script{open} << QList<int>{100} << 0 << 0
        << QStringList{u"0 ask"_s, u"100 sleep until 0"_s} << false;
    QTest::newRow("no duration, an interval: one request, no pause")
        << Script{open} << QList<int>{100} << 0 << 5000
        << QStringList{u"0 ask"_s, u"100 sleep until 0"_s} << false;
    QTest::newRow("negative duration and interval: one request")
        << Script{open} << QList<int>{0} << -1 << -1
        << QStringList{u"0 ask"_s, u"0 sleep until 0"_s} << false;
    // The second request follows at once; the first pause is before the third. The duration of a
    // request is part of the interval. The time is checked after the pause.
    QTest::newRow("until the time is over")
        << Script{open, open, open, open} << QList<int>{100, 100, 100, 100} << 1000 << 400
        << QStringList{u"0 ask"_s,   u"100 sleep until 0"_s,
                       u"100 ask"_s, u"200 sleep until 500"_s,
                       u"500 ask"_s, u"600 sleep until 900"_s,
                       u"900 ask"_s, u"1000 sleep until 1300"_s}
        << false;
    QTest::newRow("exactly the duration ends it")
        << Script{open, open} << QList<int>{0, 0} << 400 << 400
        << QStringList{u"0 ask"_s, u"0 sleep until 0"_s, u"0 ask"_s, u"0 sleep until 400"_s}
        << false;
    QTest::newRow("a request longer than the interval: no pause")
        << Script{open, open, open} << QList<int>{300, 300, 300} << 900 << 200
        << QStringList{u"0 ask"_s,   u"300 sleep until 0"_s,
                       u"300 ask"_s, u"600 sleep until 500"_s,
                       u"600 ask"_s, u"900 sleep until 800"_s}
        << false;
    QTest::newRow("a request longer than the duration is the only one")
        << Script{open} << QList<int>{700} << 500 << 200
        << QStringList{u"0 ask"_s, u"700 sleep until 0"_s} << false;
    QTest::newRow("0 ends it without a pause")
        << Script{open, open, code(0)} << QList<int>{10, 10, 10} << 1000 << 100
        << QStringList{u"0 ask"_s, u"10 sleep until 0"_s, u"10 ask"_s, u"20 sleep until 110"_s,
                       u"110 ask"_s}
        << true;
    // -23 ends it at once, and as a failure.
    QTest::newRow("-23 ends it without a pause")
        << Script{open, code(-23)} << QList<int>{10, 10} << 1000 << 100
        << QStringList{u"0 ask"_s, u"10 sleep until 0"_s, u"10 ask"_s} << false;
    // 1 and -24 do not end it, so a later answer still counts.
    QTest::newRow("1 may still become a refusal")
        << Script{code(1), code(-23)} << QList<int>{10, 10} << 1000 << 100
        << QStringList{u"0 ask"_s, u"10 sleep until 0"_s, u"10 ask"_s} << false;
    QTest::newRow("-24 may still become an open one")
        << Script{code(-24), open} << QList<int>{10, 10} << 100 << 100
        << QStringList{u"0 ask"_s, u"10 sleep until 0"_s, u"10 ask"_s, u"20 sleep until 110"_s}
        << false;
    QTest::newRow("1 asked until the time is over: success")
        << Script{code(1), code(1)} << QList<int>{10, 10} << 100 << 100
        << QStringList{u"0 ask"_s, u"10 sleep until 0"_s, u"10 ask"_s, u"20 sleep until 110"_s}
        << true;
    QTest::newRow("a lost answer is asked for again")
        << Script{noConnection(), code(0)} << QList<int>{10, 10} << 1000 << 100
        << QStringList{u"0 ask"_s, u"10 sleep until 0"_s, u"10 ask"_s} << true;
}

void TestRsbSbpHandler::pollSteps()
{
    QFETCH(Script, script);
    QFETCH(QList<int>, durations);
    QFETCH(int, duration);
    QFETCH(int, interval);
    QFETCH(QStringList, events);
    QFETCH(bool, finished);
    SlowPartner net(script, durations);
    QCOMPARE(poll(net, duration, interval), finished);
    QCOMPARE(net.events, events);
}

void TestRsbSbpHandler::pollOverRealConnections()
{
    LoopbackServer server;
    server.play({LoopbackServer::answer(200, R"({"code":"5"})"),
                 LoopbackServer::answer(200, R"({"code":"5"})"),
                 LoopbackServer::answer(200, R"({"code":"0"})")});
    RestClient client;
    const SteadyTime time;
    const SteadyTime::Moment start = time.now();
    // Far longer than the test may take: only the third answer ends the poll.
    constexpr int duration = 3'600'000;
    QVERIFY(RsbSbpHandler().pollRefundStatus(client, server.url(u"/status"_s),
                                             QJsonDocument(QJsonObject{{u"id"_s, 1990.5}}),
                                             {{u"X-Till"_s, u"7"_s}}, duration, 150));
    QVERIFY(time.now() - start >= std::chrono::milliseconds(150));
    QCOMPARE(server.requests().size(), 3);
    for (const LoopbackServer::Request &made : server.requests()) {
        QCOMPARE(made.verb + ' ' + made.target, QByteArray("POST /status"));
        QCOMPARE(made.body, QByteArray(R"({"id":1990.5})"));
        QCOMPARE(made.header("X-Till"), QByteArray("7"));
    }
}

void TestRsbSbpHandler::everyReplyLostOnce_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<Script>("nextScript");
    QTest::addColumn<QStringList>("transcript");

    const http::Response lost = http::Response::failed(2, tr::Tr(u"Обрыв"_s));
    // The refund is sent again unchanged, and its code says that it was made before.
    QTest::newRow("refund") << Script{lost} << Script{code(-5)}
                            << QStringList{refundLine, refundLine};
    QTest::newRow("refund, state asked for") << Script{timeout(), lost} << Script{code(-5)}
                                             << QStringList{refundLine, statusLine, refundLine};
    QTest::newRow("refund, no answer twice")
        << Script{timeout(), lost} << Script{timeout(), code(0)}
        << QStringList{refundLine, statusLine, refundLine, statusLine};
}

void TestRsbSbpHandler::everyReplyLostOnce()
{
    QFETCH(Script, script);
    QFETCH(Script, nextScript);
    QFETCH(QStringList, transcript);
    SlowPartner net(script, {});
    QVERIFY(!deliver(u"rsbsbp"_s, message(block)));
    net.nextDelivery();
    net.play(nextScript);
    QVERIFY(deliver(u"rsbsbp"_s, message(block)));
    QCOMPARE(net.transcript(), transcript);
}

QTEST_GUILESS_MAIN(TestRsbSbpHandler)
#include "tst_rsbsbphandler.moc"
