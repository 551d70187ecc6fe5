#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message = u"{\"sessionId\":{\"url\":\"http://plaz.test/session?a=1\"},"
                        "\"request\":{\"requestHeaders\":{\"X-Till\":3,\"Session\":\"old\"},"
                        "\"requestUrl\":\"http://plaz.test/work\",\"requestData\":\"<к %1>\"},"
                        "\"headers\":{\"X\":\"1\"},\"url\":\"http://no.test/\",\"timeout\":3}"_s;
const QString opening = u"INFO Отправка сообщения"_s;

QString failed(const http::Response &response)
{
    return u"ERROR Ошибка при отправке сообщения: "_s + response.errorText.ru();
}

} // namespace

class TestPlaziusHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests();
    void session_data();
    void session();
    void failedExchange_data();
    void failedExchange();
    void everyDeliveryOpensASession();
};

void TestPlaziusHandler::requests()
{
    const LogCapture log(u"plazius"_s);
    FakeRestClient net({reply(200, "\"s-1\""), reply(200, "no one reads this")});
    QVERIFY(deliver(u"plazius"_s, message));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 10"_s, u"GET http://plaz.test/session?a=1"_s,
                                       u"POST http://plaz.test/work"_s}));
    QCOMPARE(net.requestAt(0).headers, (QMap<QString, QString>()));
    QCOMPARE(net.requestAt(0).body, "");
    QCOMPARE(net.requestAt(1).headers,
             (QMap<QString, QString>{{u"Session"_s, u"s-1"_s}, {u"X-Till"_s, u"3"_s}}));
    QCOMPARE(net.requestAt(1).body, "<к %1>");
    QVERIFY(net.requestAt(0).logger);
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestPlaziusHandler::session_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("session");
    QTest::newRow("a JSON text") << "\"abc\""_ba << u"abc"_s;
    QTest::newRow("a bare text") << "abc"_ba << u"abc"_s;
    QTest::newRow("quotes inside") << "\"a\"b\"\"c"_ba << u"abc"_s;
    QTest::newRow("letters") << "\"сессия\""_ba << u"сессия"_s;
    QTest::newRow("other quotes stay") << "'abc'"_ba << u"'abc'"_s;
    QTest::newRow("empty") << ""_ba << u""_s;
    QTest::newRow("quotes alone") << "\"\""_ba << u""_s;
}

void TestPlaziusHandler::session()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, session);
    FakeRestClient net({::reply(200, reply), ::reply(200)});
    QVERIFY(deliver(u"plazius"_s, message));
    QCOMPARE(net.requestAt(1).headers.contains(u"Session"_s), true);
    QCOMPARE(net.requestAt(1).header(u"Session"_s), session);
}

void TestPlaziusHandler::failedExchange_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<http::Response>("failure");
    const http::Response session = reply(200, "\"s-1\"");
    for (const http::Response &failure :
         {noConnection(), timeout(), reply(401, "\"s-1\""), reply(500, "\"s-1\"")}) {
        const QString name = failure.errorText.ru();
        QTest::addRow("session: %s", qPrintable(name)) << Script{failure} << failure;
        QTest::addRow("work: %s", qPrintable(name)) << Script{session, failure} << failure;
    }
}

void TestPlaziusHandler::failedExchange()
{
    QFETCH(Script, script);
    QFETCH(http::Response, failure);
    const LogCapture log(u"plazius"_s);
    FakeRestClient net(script);
    QVERIFY(!deliver(u"plazius"_s, message));
    QCOMPARE(net.requests().size(), script.size());
    QCOMPARE(log.lines(), (QStringList{opening, failed(failure)}));
}

void TestPlaziusHandler::everyDeliveryOpensASession()
{
    FakeRestClient net({reply(200, "1"), noConnection()});
    QVERIFY(!deliver(u"plazius"_s, message));
    net.nextDelivery();
    net.play({reply(200, "2"), reply(200)});
    QVERIFY(deliver(u"plazius"_s, message));
    QCOMPARE(net.transcript(),
             (QStringList{u"GET http://plaz.test/session?a=1"_s, u"POST http://plaz.test/work"_s,
                          u"GET http://plaz.test/session?a=1"_s, u"POST http://plaz.test/work"_s}));
    QCOMPARE(net.requestAt(3).header(u"Session"_s), u"2"_s);
}

QTEST_GUILESS_MAIN(TestPlaziusHandler)
#include "tst_plaziushandler.moc"
