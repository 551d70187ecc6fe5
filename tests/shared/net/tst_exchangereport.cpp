#include "rig/loopbackserver.h"
#include "shared/net/restclient.h"
#include "tests/shared/net/recordingobserver.h"
#include "tests/shared/net/restclientrequests.h"

#include <QTest>

using namespace Qt::StringLiterals;
using http::FailureKind;
using rig::LoopbackServer;

namespace {

/// The head of an answer from a server whose clock is this far from that of the till.
QByteArray dateOf(std::chrono::seconds distance)
{
    const QDateTime time = QDateTime::currentDateTimeUtc().addSecs(distance.count());
    return "Date: " + QLocale::c().toString(time, u"ddd, dd MMM yyyy HH:mm:ss 'GMT'"_s).toLatin1()
           + "\r\n";
}

} // namespace

class TestExchangeReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // First test: a later server can get the port of one that has closed a kept connection, and
    // connections to such a host are not kept.
    void repeatedRequestIsOneExchange();
    void answers_data();
    void answers();
    void noAnswer();
    void nothingSent();
    void onceForEachExchange();

    void clock_data();
    void clock();
    void invalidDates_data();
    void invalidDates();
    void onlyTheDateOfTheAnswerCounts();
};

void TestExchangeReport::answers_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("kind");
    QTest::newRow("success") << 204 << u"none"_s;
    QTest::newRow("refused") << 422 << u"request"_s;
    QTest::newRow("wrong key") << 403 << u"credentials"_s;
    QTest::newRow("too often") << 429 << u"service"_s;
    QTest::newRow("in trouble") << 503 << u"service"_s;
}

void TestExchangeReport::answers()
{
    QFETCH(int, status);
    LoopbackServer server;
    server.play({LoopbackServer::answer(status)});
    const RecordingObserver observer;
    RestClient client;
    client.post(server.url(u"/sales/17?key=hidden"_s), QByteArray("x"), noHeaders);
    const http::ExchangeReport report = observer.only();
    QTEST(QString(http::nameOf(report.kind)), "kind");
    QCOMPARE(report.kind, client.response().kind());
    QCOMPARE(report.status, status);
    QCOMPARE(report.text, client.errorText().ru());
    QCOMPARE(report.path, u"/sales/17"_s);
    QCOMPARE(report.host, u"127.0.0.1"_s);
    QCOMPARE(report.certificatePath, QString());
    QVERIFY(!report.certificateEnd.isValid());
    QVERIFY(!report.clockDifference);
}

void TestExchangeReport::noAnswer()
{
    const RecordingObserver observer;
    RestClient client;
    client.post(QUrl(u"http://127.0.0.1:%1/a"_s.arg(LoopbackServer::unusedPort())), QByteArray(),
                noHeaders);
    const http::ExchangeReport report = observer.only();
    QCOMPARE(report.kind, FailureKind::Network);
    QCOMPARE(report.status, 0);
    QCOMPARE(report.text, client.errorText().ru());
    QCOMPARE(report.path, u"/a"_s);
}

void TestExchangeReport::nothingSent()
{
    for (const QUrl &url : {QUrl(), QUrl(u"ftp://service.test/a"_s)}) {
        const RecordingObserver observer;
        RestClient client;
        client.post(url, QByteArray(), noHeaders);
        QCOMPARE(observer.only().kind, FailureKind::Request);
    }
    LoopbackServer server;
    const RecordingObserver observer;
    RestClient().request(0, server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(observer.only().kind, FailureKind::Request);
}

void TestExchangeReport::onceForEachExchange()
{
    LoopbackServer server;
    server.play({LoopbackServer::answer(200), LoopbackServer::answer(500),
                 LoopbackServer::raw("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\na").closing(),
                 LoopbackServer::answer(200)});
    const RecordingObserver observer;
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    client.put(server.url(u"/"_s), "x", noHeaders);
    client.post(server.url(u"/"_s), QByteArray("x"), noHeaders);
    http::Params params;
    params.url = server.url(u"/"_s);
    client.send(params);
    QCOMPARE(observer.kinds(), (QStringList{u"none"_s, u"service"_s, u"network"_s, u"none"_s}));
    QCOMPARE(observer.reports.at(2).status, 200);
}

/// The kept connection breaks during the request, which is sent again.
void TestExchangeReport::repeatedRequestIsOneExchange()
{
    LoopbackServer server;
    server.play({LoopbackServer::answer(200), LoopbackServer::raw("").closing(),
                 LoopbackServer::answer(201)});
    RestClient client;
    client.get(server.url(u"/"_s), {}, noHeaders);
    const RecordingObserver observer;
    client.get(server.url(u"/"_s), {}, noHeaders);
    QCOMPARE(server.requests().size(), 3);
    QCOMPARE(observer.only().status, 201);
}

void TestExchangeReport::clock_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("serverAhead");
    QTest::newRow("equal") << 200 << 0;
    QTest::newRow("till behind by an hour") << 200 << 3600;
    QTest::newRow("till ahead by a month") << 200 << -30 * 86400;
    QTest::newRow("of an error") << 401 << 600;
}

void TestExchangeReport::clock()
{
    using namespace std::chrono_literals;
    QFETCH(int, status);
    QFETCH(int, serverAhead);
    LoopbackServer server;
    server.play({LoopbackServer::answer(status, "a", dateOf(std::chrono::seconds(serverAhead)))});
    const RecordingObserver observer;
    RestClient().get(server.url(u"/"_s), {}, noHeaders);
    const auto difference = observer.only().clockDifference;
    QVERIFY(difference);
    // The answer was written before the exchange began, and the machine may be slow.
    const auto delay = *difference + std::chrono::seconds(serverAhead);
    QVERIFY2(delay >= 0s && delay < 30s, QByteArray::number(qint64{difference->count()}));
}

void TestExchangeReport::invalidDates_data()
{
    QTest::addColumn<QByteArray>("headers");
    QTest::newRow("none") << QByteArray();
    QTest::newRow("empty") << QByteArray("Date:\r\n");
    QTest::newRow("unreadable") << QByteArray("Date: yesterday\r\n");
    QTest::newRow("of another name") << QByteArray("X-") + dateOf({});
    QTest::newRow("with another ending") << QByteArray("Dates: Sun, 06 Nov 1994 08:49:37 GMT\r\n");
    QTest::newRow("a line that goes on") << "X-Long: a\r\n " + dateOf({});
}

void TestExchangeReport::invalidDates()
{
    QFETCH(QByteArray, headers);
    LoopbackServer server;
    server.play({LoopbackServer::answer(200, "a", headers)});
    const RecordingObserver observer;
    RestClient().get(server.url(u"/"_s), {}, noHeaders);
    QVERIFY(!observer.only().clockDifference);
}

/// Neither the date of an interim answer counts nor one after the body.
void TestExchangeReport::onlyTheDateOfTheAnswerCounts()
{
    LoopbackServer server;
    server.play({LoopbackServer::raw("HTTP/1.1 103 Early Hints\r\n" + dateOf({})
                                     + "\r\nHTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n"),
                 LoopbackServer::raw("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n"
                                     + dateOf({}) + "\r\n")});
    for (int count = 0; count < 2; ++count) {
        const RecordingObserver observer;
        RestClient().get(server.url(u"/"_s), {}, noHeaders);
        QCOMPARE(observer.only().status, 200);
        QVERIFY(!observer.only().clockDifference);
    }
}

QTEST_GUILESS_MAIN(TestExchangeReport)
#include "tst_exchangereport.moc"
