#include "handlers/payment/cftsbphandler.h"

#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString requestBody =
    uR"({"amount":1990.50,"tax":0.1,"id":9223372036854775807,"list":[1,{"a":null}],"t":"%1"})"_s;

const QString message = u"{\"url\":\"https://cft.test/undo?a=1\",\"timeout\":8,"
                        "\"tlsPath\":\"/certs/till.p12\",\"tlsPass\":\"secret\","
                        "\"headers\":{\"X-Till\":\"7\"},\"body\":"_s
                        + requestBody + u'}';

} // namespace

class TestCftSbpHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request();
    void emptyMessage();
    void outcome_data();
    void outcome();
    void replyLostOnce();
};

void TestCftSbpHandler::request()
{
    const LogCapture log(u"cftsbp"_s);
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"cftsbp"_s, message));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 8"_s, u"setCertificatePath /certs/till.p12"_s,
                                       u"setCertificatePassword secret"_s,
                                       u"POST https://cft.test/undo?a=1"_s}));
    const FakeRestClient::Request made = net.lastRequest();
    QCOMPARE(made.body,
             QByteArray(R"({"amount":1990.5,"id":9223372036854775807,"list":[1,{"a":null}],)"
                        R"("t":"%1","tax":0.1})"));
    QCOMPARE(made.headers, (QMap<QString, QString>{{u"X-Till"_s, u"7"_s}}));
    // The exchange with the bank is not logged, not even at debug level.
    QVERIFY(!made.logger);
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения"_s});
    QCOMPARE(slotOf(&CftSbpHandler::sendMessage), 5);
}

void TestCftSbpHandler::emptyMessage()
{
    FakeRestClient net({http::Response::failed(301, tr::Tr(u"Не указан адрес запроса"_s))});
    QVERIFY(!deliver(u"cftsbp"_s, u"{}"_s));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 0"_s, u"setCertificatePath "_s,
                                       u"setCertificatePassword "_s, u"POST "_s}));
    QCOMPARE(net.lastRequest().body, QByteArray("{}"));
}

void TestCftSbpHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("logged");

    const QString nothing;
    const QString done = u"delivered"_s;
    const QString ended = u"dropped: банк отказал окончательно, код 202"_s;
    const QString http428 = u"ERROR Сервер ответил ошибкой, код состояния HTTP 428"_s;

    // A final error: it is logged as an error, and the message is dropped. The till relies on it;
    // otherwise its cancellation would be retried for ever.
    QTest::newRow("428 with 202") << reply(428, R"({"code":202,"message":"%1 done"})") << ended
                                  << u"ERROR %1 done"_s;
    QTest::newRow("428 with 202, no text") << reply(428, R"({"code":202})") << ended << http428;
    QTest::newRow("428 with 202.0") << reply(428, R"({"code":202.0})") << ended << http428;
    QTest::newRow("428 with 2.02e2") << reply(428, R"({"code":2.02e2})") << ended << http428;
    QTest::newRow("428 with \"202\"") << reply(428, R"({"code":"202"})") << ended << http428;
    QTest::newRow("428 with a text")
        << reply(428, R"({"code":"x"})") << keptBy(reply(428)) << http428;
    QTest::newRow("428 with an empty text")
        << reply(428, R"({"code":""})") << keptBy(reply(428)) << http428;
    QTest::newRow("428 with 202.5")
        << reply(428, R"({"code":202.5})") << keptBy(reply(428)) << http428;
    QTest::newRow("428 with true")
        << reply(428, R"({"code":true})") << keptBy(reply(428)) << http428;
    QTest::newRow("428 with null")
        << reply(428, R"({"code":null})") << keptBy(reply(428)) << http428;
    QTest::newRow("428 with [202]")
        << reply(428, R"({"code":[202]})") << keptBy(reply(428)) << http428;
    QTest::newRow("428 with 203") << reply(428, R"({"code":203,"message":"no"})")
                                  << keptBy(reply(428)) << u"ERROR no"_s;
    QTest::newRow("428 without code")
        << reply(428, R"({"message":"no"})") << keptBy(reply(428)) << u"ERROR no"_s;
    QTest::newRow("428, empty") << reply(428) << keptBy(reply(428)) << http428;
    QTest::newRow("428, array") << reply(428, R"([{"code":202}])") << keptBy(reply(428)) << http428;
    QTest::newRow("400 with 202") << reply(400, R"({"code":202,"message":"no"})")
                                  << keptBy(reply(400)) << u"ERROR no"_s;
    QTest::newRow("500, good status") << reply(500, R"({"status":0})") << keptBy(reply(500))
                                      << u"ERROR Сервер ответил ошибкой, код состояния HTTP 500"_s;
    QTest::newRow("500, empty text")
        << reply(500, R"({"message":""})") << keptBy(reply(500)) << u"ERROR "_s;
    QTest::newRow("no connection")
        << noConnection() << keptBy(noConnection()) << u"ERROR Сервер отклонил соединение"_s;
    QTest::newRow("timeout") << timeout() << keptBy(timeout())
                             << u"ERROR Сервер не ответил вовремя"_s;
    QTest::newRow("428 cut off") << http::Response::failed(2, tr::Tr(u"Обрыв"_s), 428)
                                 << u"kept network: Обрыв"_s << u"ERROR Обрыв"_s;

    // The pair is a refusal, whatever `status` says.
    QTest::newRow("refused") << reply(200, R"({"message":"no %1","code":1})")
                             << u"kept service: банк отказал, код: 1"_s << u"ERROR no %1"_s;
    QTest::newRow("refused beside a good status")
        << reply(200, R"({"message":"no","code":0,"status":0})")
        << u"kept service: банк отказал, код: 0"_s << u"ERROR no"_s;
    QTest::newRow("refused with 202") << reply(200, R"({"message":"no","code":202})")
                                      << u"kept service: банк отказал, код: 202"_s << u"ERROR no"_s;
    QTest::newRow("refused beside a bad status")
        << reply(200, R"({"message":"no","code":5,"status":-1,"infoMsg":"i"})")
        << u"kept service: банк отказал, код: 5"_s << u"ERROR no"_s;
    QTest::newRow("refused, null members")
        << reply(200, R"({"message":null,"code":null})")
        << u"kept service: банк отказал, код: не указано"_s << u"ERROR "_s;

    QTest::newRow("negative, message")
        << reply(200, R"({"status":-1,"message":"m","infoMsg":"i"})")
        << u"kept service: банк отказал, статус -1"_s << u"ERROR m"_s;
    QTest::newRow("negative, infoMsg")
        << reply(200, R"({"status":-1,"infoMsg":"i"})")
        << u"kept service: банк отказал, статус -1"_s << u"ERROR i"_s;
    QTest::newRow("negative, no text") << reply(200, R"({"status":-7})")
                                       << u"kept service: банк отказал, статус -7"_s << u"ERROR "_s;
    QTest::newRow("negative, code alone")
        << reply(200, R"({"status":-1,"code":3})") << u"kept service: банк отказал, статус -1"_s
        << u"ERROR "_s;
    QTest::newRow("negative as a text")
        << reply(200, R"({"status":"-1","infoMsg":"i"})")
        << u"kept service: банк отказал, статус -1"_s << u"ERROR i"_s;
    QTest::newRow("very negative")
        << reply(200, R"({"status":-4294967295,"infoMsg":"i"})")
        << u"kept service: банк отказал, статус -4294967295"_s << u"ERROR i"_s;

    QTest::newRow("0") << reply(200, R"({"status":0})") << done << nothing;
    QTest::newRow("positive") << reply(200, R"({"status":5,"message":"m"})") << done << nothing;
    QTest::newRow("code alone") << reply(200, R"({"code":5})") << done << nothing;
    QTest::newRow("message alone") << reply(200, R"({"message":"m"})") << done << nothing;
    QTest::newRow("text for a status") << reply(200, R"({"status":"bad"})") << done << nothing;
    // An absent status reads as 0.
    QTest::newRow("empty object") << reply(200, "{}") << done << nothing;
    QTest::newRow("empty") << reply(200) << done << nothing;
    QTest::newRow("not JSON") << reply(200, "ok") << done << nothing;
    QTest::newRow("array") << reply(200, R"([{"status":-1}])") << done << nothing;
}

void TestCftSbpHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(QString, logged);
    const LogCapture log(u"cftsbp"_s);
    FakeRestClient net({answer});
    QTEST(outcomeOf(u"cftsbp"_s, message), "outcome");
    QStringList lines{u"INFO Отправка сообщения"_s};
    if (!logged.isNull())
        lines.append(logged);
    QCOMPARE(log.lines(), lines);
    QCOMPARE(net.transcript().size(), 1);
}

void TestCftSbpHandler::replyLostOnce()
{
    FakeRestClient net({http::Response::failed(2, tr::Tr(u"Обрыв"_s))});
    QVERIFY(!deliver(u"cftsbp"_s, message));
    net.nextDelivery();
    net.play({reply(428, R"({"code":202})")});
    QVERIFY(deliver(u"cftsbp"_s, message));
    QCOMPARE(net.transcript().size(), 2);
    QCOMPARE(net.requestAt(0).body, net.requestAt(1).body);
}

QTEST_GUILESS_MAIN(TestCftSbpHandler)
#include "tst_cftsbphandler.moc"
