#include "handlers/payment/atolpay/interface.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/fixedtime.h"
#include "tests/support/logcapture.h"
#include "tests/support/testsettings.h"
#include "tests/support/vtable.h"

#include <log4qt/logmanager.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

constexpr qint64 clockSeconds = 1'700'000'000;

const QString base = u"[atolpay]\nurl = https://pay.test/api/\ntoken = secret\n"_s;

atolpay::Interface withSettings(const QString &text)
{
    const TestSettings settings(text);
    atolpay::Interface service;
    service.loadSettings();
    return service;
}

} // namespace

class TestAtolPayInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void address_data();
    void address();
    void timeout_data();
    void timeout();
    void timeoutOfTheFieldIsTheDefault();
    void headers_data();
    void headers();
    void statusRequest();
    void statusReply_data();
    void statusReply();
    void refundRequest_data();
    void refundRequest();
    void refundTakesItsTimeFromTheSystem();
    void refundReply_data();
    void refundReply();
    void registerRequest_data();
    void registerRequest();
    void registerReply_data();
    void registerReply();
};

void TestAtolPayInterface::operationsKeepTheirPlaces()
{
    // Two places of the table belong to the destructor.
    QCOMPARE(slotOf(&atolpay::Interface::register_), 2);
    QCOMPARE(slotOf(&atolpay::Interface::refund), 3);
    QCOMPARE(slotOf(&atolpay::Interface::status), 4);
}

void TestAtolPayInterface::address_data()
{
    QTest::addColumn<QString>("url");
    QTest::addColumn<QString>("root");
    // clang-format off
    QTest::newRow("closing slash")                       << u"https://pay.test/api/v1/"_s   << u"https://pay.test/api/v1/"_s;
    QTest::newRow("no closing slash: last segment goes") << u"https://pay.test/api/v1"_s    << u"https://pay.test/api/"_s;
    QTest::newRow("host alone")                          << u"https://pay.test"_s           << u"https://pay.test/"_s;
    QTest::newRow("host and slash")                      << u"https://pay.test:8443/"_s     << u"https://pay.test:8443/"_s;
    QTest::newRow("query goes")                          << u"https://pay.test/api/?a=1"_s  << u"https://pay.test/api/"_s;
    QTest::newRow("not set up")                          << u""_s                           << u""_s;
    // clang-format on
}

void TestAtolPayInterface::address()
{
    QFETCH(QString, url);
    QFETCH(QString, root);
    atolpay::Interface service = withSettings(u"[atolpay]\nurl = "_s + url);
    FakeRestClient net({reply(200), reply(200), reply(200)});
    service.status(u"1"_s);
    service.refund(u"1"_s, u"1"_s, 1);
    service.register_(u"1"_s, 1);
    QCOMPARE(net.transcript(),
             (QStringList{u"POST "_s + root + u"status"_s, u"POST "_s + root + u"refund"_s,
                          u"POST "_s + root + u"register"_s}));
}

void TestAtolPayInterface::timeout_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QString>("call");
    QTest::newRow("not set up") << u""_s << u"setTimeoutMs 10000"_s;
    QTest::newRow("set up") << u"timeout = 25"_s << u"setTimeoutMs 25000"_s;
    QTest::newRow("no overflow") << u"timeout = 2147483647"_s << u"setTimeoutMs 2147483647000"_s;
    QTest::newRow("not a number") << u"timeout = soon"_s << u"setTimeoutMs 10000"_s;
}

void TestAtolPayInterface::timeout()
{
    QFETCH(QString, setting);
    QFETCH(QString, call);
    const LogCapture warnings(u"config"_s);
    atolpay::Interface service = withSettings(base + setting);
    FakeRestClient net({reply(200), reply(200)});
    service.status(u"1"_s);
    service.refund(u"1"_s, u"1"_s, 1);
    // Each request has a client of its own.
    QCOMPARE(net.steps(), (QStringList{call, u"POST https://pay.test/api/status"_s, call,
                                       u"POST https://pay.test/api/refund"_s}));
}

void TestAtolPayInterface::timeoutOfTheFieldIsTheDefault()
{
    TestSettings settings(base + u"timeout = 25\n"_s);
    atolpay::Interface service;
    service.loadSettings();
    settings.set(base);
    service.loadSettings();
    FakeRestClient net({reply(200)});
    service.status(u"1"_s);
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), 25000);
}

void TestAtolPayInterface::headers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("authorization");
    QTest::newRow("token") << base << u"Bearer secret"_s;
    QTest::newRow("token with a placeholder") << u"[atolpay]\ntoken = a%1b\n"_s << u"Bearer a%1b"_s;
    QTest::newRow("no token") << u""_s << u"Bearer "_s;
}

void TestAtolPayInterface::headers()
{
    QFETCH(QString, text);
    QFETCH(QString, authorization);
    atolpay::Interface service = withSettings(text);
    FakeRestClient net({reply(200), reply(200), reply(200)});
    service.status(u"1"_s);
    service.refund(u"1"_s, u"1"_s, 1);
    service.register_(u"1"_s, 1);
    for (const FakeRestClient::Request &request : net.requests()) {
        QCOMPARE(request.headers,
                 (QMap<QString, QString>{{u"Authorization"_s, authorization},
                                         {u"Content-Type"_s, u"application/json"_s}}));
        QCOMPARE(request.logger, Log4Qt::LogManager::logger(u"atolpay"_s));
    }
}

void TestAtolPayInterface::statusRequest()
{
    const LogCapture log(u"atolpay"_s);
    atolpay::Interface service = withSettings(base);
    FakeRestClient net({noConnection()});
    service.status(u"Т-%1"_s);
    QCOMPARE(net.lastRequest().body, QByteArray(R"({"transactionId":"Т-%1"})"));
    QCOMPARE(log.lines(), QStringList{u"INFO Получение статуса транакции: Т-%1"_s});
}

void TestAtolPayInterface::statusReply_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("noReply");

    const auto status = [](const QJsonValue &text) {
        return json(200, {{u"data"_s, QJsonObject{{u"status"_s, text}}}});
    };
    // clang-format off
    QTest::newRow("IN_PROGRESS")        << status(u"IN_PROGRESS"_s)        << 1 << false;
    QTest::newRow("COMPLETED")          << status(u"COMPLETED"_s)          << 2 << false;
    QTest::newRow("ERROR")              << status(u"ERROR"_s)              << 3 << false;
    QTest::newRow("REFUNDED")           << status(u"REFUNDED"_s)           << 4 << false;
    QTest::newRow("REFUND_IN_PROGRESS") << status(u"REFUND_IN_PROGRESS"_s) << 5 << false;
    QTest::newRow("PARTIAL_REFUNDED")   << status(u"PARTIAL_REFUNDED"_s)   << 6 << false;
    QTest::newRow("EXPIRED")            << status(u"EXPIRED"_s)            << 7 << false;
    QTest::newRow("any case")           << status(u"Completed"_s)          << 2 << false;
    QTest::newRow("lower case")         << status(u"refund_in_progress"_s) << 5 << false;
    QTest::newRow("unknown")            << status(u"PAID"_s)               << 0 << false;
    QTest::newRow("not trimmed")        << status(u" COMPLETED"_s)         << 0 << false;
    QTest::newRow("empty")              << status(u""_s)                   << 0 << false;
    QTest::newRow("not a text")         << status(2)                       << 0 << false;
    QTest::newRow("data is the status") << json(200, {{u"data"_s, u"COMPLETED"_s}})   << 0 << false;
    QTest::newRow("status at the top")  << json(200, {{u"status"_s, u"COMPLETED"_s}}) << 0 << false;
    QTest::newRow("empty object")       << json(200, {})                   << 0 << true;
    QTest::newRow("not JSON")           << reply(200, "COMPLETED")         << 0 << true;
    QTest::newRow("empty reply")        << reply(200)                      << 0 << true;
    QTest::newRow("500 with a status")  << reply(500, R"({"data":{"status":"COMPLETED"}})") << 0 << true;
    QTest::newRow("no connection")      << noConnection()                  << 0 << true;
    // clang-format on
}

void TestAtolPayInterface::statusReply()
{
    QFETCH(http::Response, answer);
    QFETCH(int, status);
    QFETCH(bool, noReply);
    atolpay::Interface service = withSettings(base);
    FakeRestClient net({answer});
    const AtolPayStatusResult result = service.status(u"1"_s);
    QCOMPARE(static_cast<int>(result.status), status);
    QCOMPARE(result.success, status == 2);
    QCOMPARE(result.noReply, noReply);
}

void TestAtolPayInterface::refundRequest_data()
{
    QTest::addColumn<qint64>("amount");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("nothing") << qint64{0} << QByteArray("0");
    QTest::newRow("usual") << qint64{199095} << QByteArray("199095");
    QTest::newRow("32 bits") << qint64{2147483647} << QByteArray("2147483647");
    QTest::newRow("64 bits") << qint64{9007199254740993} << QByteArray("9007199254740993");
}

void TestAtolPayInterface::refundRequest()
{
    QFETCH(qint64, amount);
    QFETCH(QByteArray, sent);
    atolpay::Interface service = withSettings(base);
    FakeRestClient net({reply(200)});
    service.refund(u"чек %2"_s, u"T-1"_s, amount);
    const QJsonObject request = net.lastRequest().jsonObject();
    QCOMPARE(request.keys(), (QStringList{u"amount"_s, u"orderId"_s, u"transactionId"_s}));
    QVERIFY2(net.lastRequest().body.startsWith("{\"amount\":" + sent + ",\"orderId\":"),
             net.lastRequest().body);
    QCOMPARE(request.value(u"transactionId"_s).toString(), u"T-1"_s);
    static const QRegularExpression orderId(u"^чек %2_refund\\d{13,}$"_s);
    const QString identifier = request.value(u"orderId"_s).toString();
    QVERIFY2(orderId.match(identifier).hasMatch(), qPrintable(identifier));
}

void TestAtolPayInterface::refundTakesItsTimeFromTheSystem()
{
    // The service recognizes a refund by its identifier. A stopped clock must not give two refunds
    // the same one, so the clock that tests and tills can set is not used.
    const FixedTime clock(clockSeconds);
    atolpay::Interface service = withSettings(base);
    FakeRestClient net({reply(200), reply(200)});

    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    service.refund(u"D"_s, u"T-1"_s, 1);
    const qint64 between = QDateTime::currentMSecsSinceEpoch();
    QTRY_VERIFY(QDateTime::currentMSecsSinceEpoch() > between);
    service.refund(u"D"_s, u"T-1"_s, 1);
    const qint64 after = QDateTime::currentMSecsSinceEpoch();

    const auto timeOf = [&net](int index) {
        return net.requestAt(index).jsonObject().value(u"orderId"_s).toString().mid(8).toLongLong();
    };
    QVERIFY(before <= timeOf(0) && timeOf(0) <= between);
    QVERIFY(between < timeOf(1) && timeOf(1) <= after);
}

void TestAtolPayInterface::refundReply_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("transactionId");

    const QString none;
    const QString lost = u"Ошибка связи с сервером"_s;
    // clang-format off
    QTest::newRow("success")          << reply(200, R"({"status":"success","data":{"transactionId":"R-1"}})") << true << none << u"R-1"_s;
    QTest::newRow("no data")          << reply(200, R"({"status":"success"})")                       << true  << none          << none;
    QTest::newRow("other case")       << reply(200, R"({"status":"SUCCESS"})")                       << false << lost          << none;
    QTest::newRow("refused")          << reply(200, R"({"status":"error","errorMessage":"Отказ","data":{"transactionId":"R-1"}})") << false << u"Отказ"_s << none;
    QTest::newRow("without a reason") << reply(200, R"({"status":"error"})")                         << false << lost          << none;
    QTest::newRow("reason is empty")  << reply(200, R"({"status":"error","errorMessage":""})")       << false << lost          << none;
    QTest::newRow("status in data")   << reply(200, R"({"data":{"status":"success"}})")              << false << lost          << none;
    QTest::newRow("empty")            << reply(200)                                                  << false << lost          << none;
    QTest::newRow("500 with success") << reply(500, R"({"status":"success","errorMessage":"x"})")    << false << lost          << none;
    QTest::newRow("no connection")    << noConnection()                                              << false << lost          << none;
    // clang-format on
}

void TestAtolPayInterface::refundReply()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, success);
    QFETCH(QString, message);
    QFETCH(QString, transactionId);
    const LogCapture log(u"atolpay"_s);
    atolpay::Interface service = withSettings(base);
    FakeRestClient net({answer});
    const AtolPayRefundResult result = service.refund(u"D"_s, u"T-1"_s, 1);
    QCOMPARE(result.success, success);
    QCOMPARE(result.message, message);
    QCOMPARE(result.transactionId, transactionId);
    QCOMPARE(log.lines(), QStringList());
}

void TestAtolPayInterface::registerRequest_data()
{
    QTest::addColumn<QString>("settings");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("nothing set up: roubles, no till")
        << base
        << QByteArray(R"({"amount":0,"currency":"RUB","orderId":"чек %2_register1700000000000",)"
                      R"("paymentPurpose":"чек %2","qrcType":"QR-Dynamic"})");
    QTest::newRow("currency and till")
        << base + u"currency = KZT\nrmkId = 42\n"_s
        << QByteArray(R"({"amount":0,"currency":"KZT","orderId":"чек %2_register1700000000000",)"
                      R"("paymentPurpose":"чек %2","qrcType":"QR-Dynamic","rmkId":"42"})");
}

void TestAtolPayInterface::registerRequest()
{
    QFETCH(QString, settings);
    QFETCH(QByteArray, sent);
    const FixedTime clock(clockSeconds);
    atolpay::Interface service = withSettings(settings);
    FakeRestClient net({reply(200)});
    service.register_(u"чек %2"_s, 0);
    QCOMPARE(net.lastRequest().body, sent);
}

void TestAtolPayInterface::registerReply_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QStringList>("result");
    // clang-format off
    QTest::newRow("success") << reply(200, R"({"status":"success","data":{"payload":"qr://1","transactionId":"T-1","message":"Готово"}})")
                             << QStringList{u"true"_s, u"qr://1"_s, u"T-1"_s, u"Готово"_s};
    QTest::newRow("no data") << reply(200, R"({"status":"success"})")
                             << QStringList{u"true"_s, u""_s, u""_s, u""_s};
    QTest::newRow("refused") << reply(200, R"({"status":"fail","errorMessage":"Отказ","data":{"payload":"qr://1"}})")
                             << QStringList{u"false"_s, u""_s, u""_s, u"Отказ"_s};
    QTest::newRow("no connection") << noConnection()
                             << QStringList{u"false"_s, u""_s, u""_s, u"Ошибка связи с сервером"_s};
    // clang-format on
}

void TestAtolPayInterface::registerReply()
{
    QFETCH(http::Response, answer);
    QFETCH(QStringList, result);
    atolpay::Interface service = withSettings(base);
    FakeRestClient net({answer});
    const AtolPayRegisterResult registered = service.register_(u"1"_s, 1);
    QCOMPARE((QStringList{registered.success ? u"true"_s : u"false"_s, registered.payload,
                          registered.transactionId, registered.message}),
             result);
}

QTEST_GUILESS_MAIN(TestAtolPayInterface)
#include "tst_atolpayinterface.moc"
