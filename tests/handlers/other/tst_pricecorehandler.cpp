#include "handlers/other/pricecorehandler.h"
#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString rest =
    uR"("url":"http://price.test/a","headers":{"X-Api-Auth-Token":"t"},"body":{"b":[1,2.5],"a":"ж"},"timeout":7)"_s;

QString message(const QString &subtype)
{
    return uR"({"subtype":")"_s + subtype + u"\","_s + rest + u"}"_s;
}

} // namespace

class TestPriceCoreHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void outcome_data();
    void outcome();
    void otherSubtypeIsDropped_data();
    void otherSubtypeIsDropped();
    void eachSubtypeHasItsOperation();
    void operationsKeepTheirPlaces();
};

void TestPriceCoreHandler::request_data()
{
    QTest::addColumn<QString>("subtype");
    QTest::newRow("prizeapi") << u"prizeapi"_s;
    QTest::newRow("metropolia") << u"metropolia"_s;
}

void TestPriceCoreHandler::request()
{
    QFETCH(QString, subtype);
    const LogCapture log(u"pricecore"_s);
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"pricecore"_s, message(subtype)));
    // The token is declared secret only after the request, so the debug log shows its headers in
    // full.
    compareRequest(
        net, {.steps = {u"POST http://price.test/a"_s, u"setSecretHeaders X-Api-Auth-Token"_s},
              .body = "{\"a\":\"ж\",\"b\":[1,2.5]}",
              .headers = {{u"X-Api-Auth-Token"_s, u"t"_s}}});
    QVERIFY(!net.lastRequest().timeoutMs);
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения 7"_s});
}

void TestPriceCoreHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::newRow("200") << reply(200, "{\"error\":1}") << true;
    QTest::newRow("301") << reply(301) << true;
    QTest::newRow("400") << reply(400) << true;
    QTest::newRow("500") << reply(500) << true;
    QTest::newRow("no connection") << noConnection() << false;
    QTest::newRow("no answer in time") << timeout() << false;
}

void TestPriceCoreHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);
    for (const QString &subtype : {u"prizeapi"_s, u"metropolia"_s}) {
        const LogCapture log(u"pricecore"_s);
        FakeRestClient net({answer});
        QCOMPARE(deliver(u"pricecore"_s, message(subtype)), finished);
        QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения 7"_s});
    }
}

void TestPriceCoreHandler::otherSubtypeIsDropped_data()
{
    QTest::addColumn<QString>("body");
    QTest::newRow("absent") << u"{"_s + rest + u"}"_s;
    QTest::newRow("empty") << message(u""_s);
    QTest::newRow("unknown") << message(u"moscow"_s);
    QTest::newRow("another case") << message(u"PrizeApi"_s);
    QTest::newRow("METROPOLIA") << message(u"METROPOLIA"_s);
}

void TestPriceCoreHandler::otherSubtypeIsDropped()
{
    QFETCH(QString, body);
    const LogCapture log(u"pricecore"_s);
    const FakeRestClient net;
    QVERIFY(deliver(u"pricecore"_s, body));
    QCOMPARE(net.steps(), QStringList());
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения 7"_s});
}

void TestPriceCoreHandler::eachSubtypeHasItsOperation()
{
    struct Recording : PriceCoreHandler
    {
        bool sendPrizeApi(const Message &) override
        {
            called = u"prizeapi"_s;
            return false;
        }
        bool sendMetropolia(const Message &) override
        {
            called = u"metropolia"_s;
            return false;
        }
        QString called;
    };
    for (const QString &subtype : {u"prizeapi"_s, u"metropolia"_s}) {
        Recording handler;
        Message message;
        message.body = {{u"subtype"_s, subtype}};
        QVERIFY(!handler.sendMessage(message));
        QCOMPARE(handler.called, subtype);
    }
}

void TestPriceCoreHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&PriceCoreHandler::sendMessage), 5);
    QCOMPARE(slotOf(&PriceCoreHandler::sendPrizeApi), 9);
    QCOMPARE(slotOf(&PriceCoreHandler::sendMetropolia), 10);
}

QTEST_GUILESS_MAIN(TestPriceCoreHandler)
#include "tst_pricecorehandler.moc"
