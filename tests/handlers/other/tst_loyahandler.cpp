#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString message(const QString &urls)
{
    return uR"({"urls":%1,"payload":"<к %2>","headers":{"X":"1"},"timeout":3})"_s.replace(u"%1"_s,
                                                                                          urls);
}

const QString threeLinks = uR"({"0":"http://a.test/","1":"http://b.test/","2":"http://c.test/"})"_s;
const QString opening = u"INFO Отправка сообщения 7"_s;
const QString done = u"INFO Последовательность запросов выполнена успешно"_s;

} // namespace

class TestLoyaHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void chain_data();
    void chain();
    void eachAnswerIsTheNextPayload();
    void brokenChain_data();
    void brokenChain();
    void theWholeChainIsRepeated();
};

void TestLoyaHandler::chain_data()
{
    QTest::addColumn<QString>("urls");
    QTest::addColumn<QStringList>("requests");

    const QString a = u"PUT http://a.test/"_s;
    const QString b = u"PUT http://b.test/"_s;
    const QString c = u"PUT http://c.test/"_s;
    // clang-format off
    QTest::newRow("one link")            << uR"({"0":"http://a.test/"})"_s << QStringList{a};
    QTest::newRow("three links")         << uR"({"2":"http://c.test/","1":"http://b.test/","0":"http://a.test/"})"_s << QStringList{a, b, c};
    QTest::newRow("one left out")        << uR"({"0":"http://a.test/","2":"http://c.test/"})"_s << QStringList{a, c};
    QTest::newRow("the first left out")  << uR"({"1":"http://b.test/","2":"http://c.test/"})"_s << QStringList{b, c};
    QTest::newRow("a fourth link")       << uR"({"0":"http://a.test/","3":"http://d.test/"})"_s << QStringList{a};
    QTest::newRow("other keys")          << uR"({"00":"http://d.test/"," 1":"http://d.test/","a":"http://d.test/"})"_s << QStringList{};
    QTest::newRow("no link")             << u"{}"_s << QStringList{};
    QTest::newRow("a list is not a map") << uR"(["http://a.test/"])"_s << QStringList{};
    QTest::newRow("a blank inside")      << uR"({"0":"http://a.test/a b"})"_s << QStringList{u"PUT http://a.test/a%20b"_s};
    // clang-format on
}

void TestLoyaHandler::chain()
{
    QFETCH(QString, urls);
    QFETCH(QStringList, requests);

    const LogCapture log(u"loya"_s);
    FakeRestClient net(Script(requests.size(), reply(200, "{}")));
    QVERIFY(deliver(u"loya"_s, message(urls)));
    QCOMPARE(net.steps(), QStringList{u"setTimeout 10"_s} + requests);
    QCOMPARE(log.lines(), (QStringList{opening, done}));
}

void TestLoyaHandler::eachAnswerIsTheNextPayload()
{
    FakeRestClient net({reply(200, "один"), reply(204), reply(200, "три")});
    QVERIFY(deliver(u"loya"_s, message(threeLinks)));
    QCOMPARE(net.requestAt(0).body, "<к %2>");
    QCOMPARE(net.requestAt(1).body, "один");
    QCOMPARE(net.requestAt(2).body, "");
    for (const FakeRestClient::Request &made : net.requests()) {
        QCOMPARE(made.headers, (QMap<QString, QString>{
                                   {u"Content-Type"_s, u"application/json; charset=UTF-8"_s}}));
        QVERIFY(made.logger);
    }
}

void TestLoyaHandler::brokenChain_data()
{
    QTest::addColumn<int>("link");
    QTest::addColumn<http::Response>("answer");
    for (int link = 0; link < 3; ++link) {
        QTest::addRow("link %d: no connection", link) << link << noConnection();
        QTest::addRow("link %d: HTTP 400", link) << link << reply(400, "{}");
        QTest::addRow("link %d: HTTP 503", link) << link << reply(503, "{}");
    }
}

void TestLoyaHandler::brokenChain()
{
    QFETCH(int, link);
    QFETCH(http::Response, answer);

    const LogCapture log(u"loya"_s);
    FakeRestClient net(Script(link, reply(200, "{}")) + Script{answer});
    QVERIFY(!deliver(u"loya"_s, message(threeLinks)));
    QCOMPARE(net.requests().size(), link + 1);
    QCOMPARE(log.lines(), (QStringList{opening, u"ERROR Ошибка при отправке сообщения: "_s
                                                    + answer.errorText.ru()}));
}

void TestLoyaHandler::theWholeChainIsRepeated()
{
    const QString urls = uR"({"0":"http://a.test/","1":"http://b.test/"})"_s;
    FakeRestClient net({reply(200, "один"), noConnection()});
    QVERIFY(!deliver(u"loya"_s, message(urls)));
    net.nextDelivery();
    net.play({reply(200, "один"), reply(200)});
    QVERIFY(deliver(u"loya"_s, message(urls)));
    QCOMPARE(net.transcript(), (QStringList{u"PUT http://a.test/"_s, u"PUT http://b.test/"_s,
                                            u"PUT http://a.test/"_s, u"PUT http://b.test/"_s}));
    QCOMPARE(net.requestAt(2).body, "<к %2>");
}

QTEST_GUILESS_MAIN(TestLoyaHandler)
#include "tst_loyahandler.moc"
