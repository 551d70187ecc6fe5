#include "shared/core/mockfactory.h"
#include "tests/shared/net/recordingobserver.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/vtable.h"

#include <log4qt/logmanager.h>

#include <QProcess>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QUrl url(u"https://host.test/path?a=b"_s);
const QString line = u"https://host.test/path?a=b"_s;
const RestClient::Headers someHeaders = {{u"X-Till"_s, u"5"_s}};

QJsonDocument document()
{
    return QJsonDocument(QJsonObject{{u"a"_s, 1}});
}

} // namespace

/// Runs in its own process, where it must fail.
class WrongTests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requestBeyondTheScript()
    {
        const FakeRestClient net;
        MockFactory<RestClient>::create()->get(url, {}, {});
    }
    void replyNobodyAskedFor() { const FakeRestClient net({reply(200)}); }
    void requestThatWasNotMade()
    {
        const FakeRestClient net;
        net.requestAt(0);
    }
};

class TestFakeRestClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isInstalledInTheFactory();
    void receivesEveryRequestOperation();
    void playsItsScript();
    void reportsToTheObserver();
    void recordsTheSettingsOfEachRequest();
    void forgetsTheSettingsOfADelivery();
    void complains();
    void failsTheTestByItself();
    void operationsKeepTheirPlaces();
};

void TestFakeRestClient::isInstalledInTheFactory()
{
    {
        FakeRestClient net;
        QCOMPARE(MockFactory<RestClient>::create().get(), &net);
    }
    const auto client = MockFactory<RestClient>::create();
    QVERIFY(client);
    QVERIFY(!dynamic_cast<FakeRestClient *>(client.get()));
    QVERIFY(MockFactory<RestClient>::create() != client);
}

void TestFakeRestClient::receivesEveryRequestOperation()
{
    FakeRestClient net(Script(7, reply(200)));
    const auto client = MockFactory<RestClient>::create();
    client->request(5, url, document(), someHeaders);
    client->get(url, {}, someHeaders);
    http::Params params;
    params.method = "PATCH";
    params.url = url;
    params.body = "body";
    params.headers = {{"X-Till", "5"}};
    params.parts = {http::Part()};
    client->send(params);
    client->post(url, QByteArray("bytes"), someHeaders);
    client->post(url, document(), someHeaders);
    client->put(url, "bytes", someHeaders);
    client->send({});

    QCOMPARE(net.transcript(),
             (QStringList{u"DELETE "_s + line, u"GET "_s + line, u"PATCH "_s + line,
                          u"POST "_s + line, u"POST "_s + line, u"PUT "_s + line, u"GET "_s}));
    const QList<QByteArray> bodies = {"{\"a\":1}", "", "body", "bytes", "{\"a\":1}", "bytes"};
    for (int index = 0; index < bodies.size(); ++index) {
        QCOMPARE(net.requestAt(index).body, bodies.at(index));
        QCOMPARE(net.requestAt(index).url, url);
        QCOMPARE(net.requestAt(index).headers, (QMap<QString, QString>{{u"X-Till"_s, u"5"_s}}));
        QCOMPARE(net.requestAt(index).header(u"X-Till"_s), u"5"_s);
    }
    QCOMPARE(net.requestAt(4).jsonObject(), document().object());
    QCOMPARE(net.requestAt(2).parts, QList<http::Part>{http::Part()});
    QCOMPARE(net.lastRequest().url, QUrl());
}

void TestFakeRestClient::playsItsScript()
{
    FakeRestClient net({json(200, {{u"a"_s, 1}}), reply(400, "no"), noConnection()});
    net.play({timeout()});
    const auto client = MockFactory<RestClient>::create();

    client->get(url, {}, {});
    QCOMPARE(client->errorCode(), 0);
    QCOMPARE(client->statusCode(), 200);
    QVERIFY(client->errorText().isEmpty());
    QVERIFY(client->hasResponse());
    QVERIFY(!client->isNetworkError());
    QCOMPARE(client->responseBody(), "{\"a\":1}");
    QCOMPARE(client->responseJson(), document());
    QCOMPARE(client->responseVariant(), document().toVariant());
    QCOMPARE(client->response().responseObject(), document().object());

    client->get(url, {}, {});
    QCOMPARE(client->errorCode(), 302);
    QCOMPARE(client->statusCode(), 400);
    QVERIFY(!client->errorText().isEmpty());
    QVERIFY(client->hasResponse());
    QVERIFY(!client->responseVariant().isValid());

    client->get(url, {}, {});
    QCOMPARE(client->errorCode(), 1);
    QCOMPARE(client->statusCode(), 0);
    QVERIFY(client->isNetworkError());
    QVERIFY(!client->hasResponse());

    QCOMPARE(net.repliesLeft(), 1);
    client->get(url, {}, {});
    QCOMPARE(client->errorCode(), 4);
    QVERIFY(client->response().isNetworkError());
    QCOMPARE(net.repliesLeft(), 0);
}

/// As RestClient does: once for each request, and for nothing else.
void TestFakeRestClient::reportsToTheObserver()
{
    const RecordingObserver observer;
    FakeRestClient net({reply(200), reply(403), timeout()});
    const auto client = MockFactory<RestClient>::create();
    client->setTimeout(5);
    client->post(url, QByteArray("x"), {});
    net.nextDelivery();
    client->get(url, {}, {});
    client->put(url, "x", {});
    QCOMPARE(observer.kinds(), (QStringList{u"none"_s, u"credentials"_s, u"network"_s}));
    QCOMPARE(observer.reports.at(1).status, 403);
    QCOMPARE(observer.reports.at(1).path, u"/path"_s);
    QCOMPARE(observer.reports.at(1).host, u"host.test"_s);
}

void TestFakeRestClient::recordsTheSettingsOfEachRequest()
{
    Log4Qt::Logger *logger = Log4Qt::LogManager::logger(u"cardlab"_s);
    FakeRestClient net(Script(3, reply(200)));
    const auto client = MockFactory<RestClient>::create();
    client->get(url, {}, {});
    client->setTimeout(10);
    client->setCertificatePath(u"/a.p12"_s);
    client->setCertificatePassword(u"secret"_s);
    client->setPrivateKeyPath(u"/a.key"_s);
    client->setSecretHeaders({u"x-api-key"_s});
    client->setLogger(logger);
    client->setCompactLogs(true);
    client->get(url, {}, {});
    client->setTimeoutMs(1500);
    client->get(url, {}, {});

    const auto bare = net.requestAt(0);
    QVERIFY(!bare.timeoutMs);
    QCOMPARE(bare.certificatePath, QString());
    QCOMPARE(bare.logger, nullptr);
    QVERIFY(!bare.compactLogs);
    QCOMPARE(bare.settings, QStringList());
    const auto second = net.requestAt(1);
    QCOMPARE(second.timeoutMs, std::optional<qint64>(10'000));
    QCOMPARE(second.certificatePath, u"/a.p12"_s);
    QCOMPARE(second.certificatePassword, u"secret"_s);
    QCOMPARE(second.privateKeyPath, u"/a.key"_s);
    QCOMPARE(second.secretHeaders, QStringList{u"x-api-key"_s});
    QCOMPARE(second.logger, logger);
    QVERIFY(second.compactLogs);
    QCOMPARE(second.settings.size(), 5);
    const auto third = net.requestAt(2);
    QCOMPARE(third.timeoutMs, std::optional<qint64>(1500));
    QCOMPARE(third.certificatePath, u"/a.p12"_s);
    QCOMPARE(third.settings, QStringList{u"setTimeoutMs 1500"_s});
    QCOMPARE(net.steps(),
             (QStringList{u"GET "_s + line, u"setTimeout 10"_s, u"setCertificatePath /a.p12"_s,
                          u"setCertificatePassword secret"_s, u"setPrivateKeyPath /a.key"_s,
                          u"setSecretHeaders x-api-key"_s, u"GET "_s + line, u"setTimeoutMs 1500"_s,
                          u"GET "_s + line}));
}

void TestFakeRestClient::forgetsTheSettingsOfADelivery()
{
    FakeRestClient net(Script(2, reply(500)));
    const auto client = MockFactory<RestClient>::create();
    client->setTimeout(10);
    client->setCertificatePath(u"/a.p12"_s);
    client->setLogger(Log4Qt::LogManager::logger(u"cardlab"_s));
    client->get(url, {}, {});
    net.nextDelivery();
    QCOMPARE(client->errorCode(), 0);
    client->get(url, {}, {});
    QVERIFY(!net.requestAt(1).timeoutMs);
    QCOMPARE(net.requestAt(1).certificatePath, QString());
    QCOMPARE(net.requestAt(1).logger, nullptr);
    QCOMPARE(net.requests().size(), 2);
}

void TestFakeRestClient::complains()
{
    FakeRestClient net({reply(200)});
    QCOMPARE(net.takeComplaint(), u"Replies that no request asked for: 1"_s);
    QCOMPARE(net.takeComplaint(), QString());
    const auto client = MockFactory<RestClient>::create();
    client->get(url, {}, {});
    QVERIFY(client->isNetworkError());
    QCOMPARE(net.takeComplaint(), u"Requests beyond the script: GET "_s + line);
}

void TestFakeRestClient::failsTheTestByItself()
{
    QProcess wrongTests;
    wrongTests.start(QCoreApplication::applicationFilePath(), {u"--wrong"_s});
    QVERIFY(wrongTests.waitForFinished());
    const QByteArray output = wrongTests.readAllStandardOutput();
    QCOMPARE(wrongTests.exitCode(), 3);
    for (const char *text : {"FAIL!  : WrongTests::requestBeyondTheScript() Requests beyond",
                             "FAIL!  : WrongTests::replyNobodyAskedFor() Replies that no",
                             "FAIL!  : WrongTests::requestThatWasNotMade() There is no request 0"})
        QVERIFY2(output.contains(text), output);
}

void TestFakeRestClient::operationsKeepTheirPlaces()
{
    class Base
    {
    public:
        virtual ~Base() = default;
        virtual void first() {}
        virtual int second(int) const { return 0; }
        void plain() {}
    };
    class Derived : public Base
    {
    public:
        void first() override {}
        virtual void third() {}
    };
    // The destructor takes two places.
    QCOMPARE(slotOf(&Base::first), 2);
    QCOMPARE(slotOf(&Base::second), 3);
    QCOMPARE(slotOf(&Base::plain), -1);
    QCOMPARE(slotOf(&Derived::first), 2);
    QCOMPARE(slotOf(&Derived::third), 4);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    if (app.arguments().value(1) == u"--wrong") {
        WrongTests tests;
        return QTest::qExec(&tests, QStringList{app.arguments().constFirst()});
    }
    TestFakeRestClient tests;
    return QTest::qExec(&tests, argc, argv);
}

#include "tst_fakerestclient.moc"
