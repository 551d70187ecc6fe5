#include "handlers/common/delivery.h"

#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <log4qt/logmanager.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString category = u"delivery"_s;

Log4Qt::Logger &logger()
{
    return *Log4Qt::LogManager::logger(category);
}

PreparedRequest requestOf(Verb verb)
{
    return {
        .verb = verb,
        .url = QUrl(u"http://till.test/a"_s),
        .headers = {{u"X-Key"_s, u"к"_s}},
        .body = QJsonDocument::fromJson("{\"a\": 1}"),
        .timeoutSeconds = 7,
    };
}

} // namespace

class TestDelivery : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestGoesOutAsItIs_data();
    void requestGoesOutAsItIs();
    void bytesAndDocumentsArePosted();
    void timeoutIsSetOnce();
    void withoutATimeoutTheClientsHolds();
    void success_data();
    void success();
};

void TestDelivery::requestGoesOutAsItIs_data()
{
    QTest::addColumn<Verb>("verb");
    QTest::addColumn<QByteArray>("sent");

    QTest::newRow("POST") << Verb::Post << QByteArray("POST");
    QTest::newRow("PUT") << Verb::Put << QByteArray("PUT");
    QTest::newRow("whole PUT") << Verb::WholePut << QByteArray("PUT");
    QTest::newRow("whole PATCH") << Verb::WholePatch << QByteArray("PATCH");
}

void TestDelivery::requestGoesOutAsItIs()
{
    QFETCH(Verb, verb);
    QFETCH(QByteArray, sent);

    FakeRestClient net({reply(200)});
    sendRequest(logger(), requestOf(verb));

    const FakeRestClient::Request made = net.lastRequest();
    QCOMPARE(made.verb, sent);
    QCOMPARE(made.url, QUrl(u"http://till.test/a"_s));
    QCOMPARE(made.headers, (QMap<QString, QString>{{u"X-Key"_s, u"к"_s}}));
    QCOMPARE(made.body, QByteArray("{\"a\":1}"));
    QCOMPARE(made.timeoutMs, 7000);
    QCOMPARE(made.logger, &logger());
}

void TestDelivery::bytesAndDocumentsArePosted()
{
    FakeRestClient net({reply(200), reply(200), reply(200)});
    PreparedRequest request = requestOf(Verb::Post);
    request.body = QByteArray("bytes");
    sendRequest(logger(), request);
    QCOMPARE(net.lastRequest().body, QByteArray("bytes"));
    request.body = QJsonDocument();
    sendRequest(logger(), request);
    QCOMPARE(net.lastRequest().body, QByteArray());
    request.body = QJsonDocument(QJsonObject());
    sendRequest(logger(), request);
    QCOMPARE(net.lastRequest().body, QByteArray("{}"));
}

void TestDelivery::timeoutIsSetOnce()
{
    FakeRestClient net({reply(200), reply(200)});
    const PreparedRequest request = requestOf(Verb::Post);
    const auto client = createClient(logger(), request);
    sendRequest(*client, request);
    sendRequest(*client, request);
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 7"_s, u"POST http://till.test/a"_s,
                                       u"POST http://till.test/a"_s}));
}

void TestDelivery::withoutATimeoutTheClientsHolds()
{
    FakeRestClient net({reply(200)});
    PreparedRequest request = requestOf(Verb::Post);
    request.timeoutSeconds.reset();
    sendRequest(logger(), request);
    QCOMPARE(net.steps(), QStringList{u"POST http://till.test/a"_s});
}

void TestDelivery::success_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("isSuccess");

    QTest::newRow("200") << reply(200) << true;
    QTest::newRow("204") << reply(204) << true;
    QTest::newRow("301") << reply(301) << false;
    QTest::newRow("404") << reply(404) << false;
    QTest::newRow("500") << reply(500) << false;
    QTest::newRow("not reached") << noConnection() << false;
    QTest::newRow("no answer in time") << timeout() << false;
}

void TestDelivery::success()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, isSuccess);

    const QStringList line =
        isSuccess ? QStringList()
                  : QStringList{u"ERROR Ошибка при отправке сообщения: "_s + answer.errorText.ru()};
    FakeRestClient net({answer, answer});
    const LogCapture log(category);
    const auto client = sendRequest(logger(), requestOf(Verb::Post));
    QCOMPARE(succeeded(*client), isSuccess);
    QCOMPARE(log.lines(), QStringList());
    QCOMPARE(succeeded(*client, logger()), isSuccess);
    QCOMPARE(log.lines(), line);
    QCOMPARE(succeeded(client->response(), logger()), isSuccess);
    QCOMPARE(log.lines(), line + line);
    QCOMPARE(deliverRequest(logger(), requestOf(Verb::Post)), isSuccess);
    QCOMPARE(log.lines(), line + line + line);
}

QTEST_GUILESS_MAIN(TestDelivery)
#include "tst_delivery.moc"
