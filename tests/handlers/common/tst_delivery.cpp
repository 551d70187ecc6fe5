#include "handlers/common/delivery.h"

#include "engine/basichandler.h"
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

/// A type whose messages are finished by any answer.
class AnyAnswerHandler : public BasicHandler
{
public:
    AnyAnswerHandler()
        : BasicHandler(category)
    {
    }

    bool sendMessage(const Message & /*message*/) override
    {
        return finishedByAnyAnswer(*this, *sendRequest(*logger(), requestOf(Verb::Post)));
    }
};

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
    void anyAnswerFinishes_data();
    void anyAnswerFinishes();
    void refusalsAreExplained_data();
    void refusalsAreExplained();
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

void TestDelivery::anyAnswerFinishes_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<Verdict>("verdict");
    QTest::addColumn<QString>("text");

    const auto missing = [](const char *name, const http::Response &answer) {
        QTest::newRow(name) << answer << Verdict::Kept << answer.errorText.ru();
    };
    const QString refused = u"сервис отказал, повтор не предусмотрен"_s;
    QTest::newRow("200") << reply(200) << Verdict::Delivered << QString();
    QTest::newRow("204") << reply(204) << Verdict::Delivered << QString();
    QTest::newRow("301") << reply(301) << Verdict::Dropped << refused;
    QTest::newRow("404") << reply(404) << Verdict::Dropped << refused;
    QTest::newRow("503") << reply(503) << Verdict::Dropped << refused;
    missing("not reached", noConnection());
    missing("no answer in time", timeout());
    missing("cut off after the status",
            http::Response::failed(http::closedEarlyError, tr::Tr(u"оборвано"_s), 200));
}

void TestDelivery::anyAnswerFinishes()
{
    QFETCH(http::Response, answer);
    QFETCH(Verdict, verdict);
    QFETCH(QString, text);

    FakeRestClient net({answer});
    const LogCapture log(category);
    const Outcome outcome = AnyAnswerHandler().attempt({});
    QCOMPARE(outcome.verdict, verdict);
    QCOMPARE(outcome.text, text);
    QCOMPARE(log.lines(), QStringList());
}

void TestDelivery::refusalsAreExplained_data()
{
    QTest::addColumn<QString>("explanation");
    QTest::addColumn<QString>("reason");

    QTest::newRow("explained") << u"карты %1 нет"_s << u"сервис отказал: карты %1 нет"_s;
    QTest::newRow("not explained") << QString() << u"сервис отказал"_s;
}

void TestDelivery::refusalsAreExplained()
{
    QFETCH(QString, explanation);
    QFETCH(QString, reason);

    QCOMPARE(refusalText(explanation), reason);
}

QTEST_GUILESS_MAIN(TestDelivery)
#include "tst_delivery.moc"
