#include "engine/basichandler.h"
#include "handlers/handlertable.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray accepted = R"({"result":{"code":"0","description":"OK"}})";
const QByteArray refused = R"({"result":{"code":"17","description":"Отказ %1"}})";
const QString givenUp =
    u"WARN Количество попыток повторной отправки достигло максимального значения. Сообщение удалено"_s;

QVariantMap message(const QVariantMap &more = {})
{
    QVariantMap body{
        {u"url"_s, u"https://nspk.test/refund"_s},
        {u"headers"_s, QVariantMap{{u"X-Shop"_s, 42}}},
        {u"body"_s, QVariantMap{{u"amount"_s, 2147483647}, {u"id"_s, u"ж"_s}}},
    };
    body.insert(more);
    return body;
}

/// Each attempt has its own worker, and the counts outlive it; so every test has its own messages.
QString outcomeOf(int id, const QVariantMap &body)
{
    HandlerFactory factory(handlerTable());
    const std::unique_ptr<BasicHandler> handler(factory.create(u"nspkec"_s));
    Message queued;
    queued.id = id;
    queued.type = u"nspkec"_s;
    queued.body = body;
    return told(handler->attempt(queued));
}

/// True: the message is finished with.
bool attempt(int id, const QVariantMap &body)
{
    return !outcomeOf(id, body).startsWith(u"kept"_s);
}

int nextId()
{
    static int id = 100;
    return ++id;
}

QVariantMap tries(const QVariant &numberOfTries)
{
    return message({{u"numberOfTries"_s, numberOfTries}});
}

} // namespace

class TestNspkEcHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request();
    void emptyMessage();
    void outcome_data();
    void outcome();
    void limit_data();
    void limit();
    void countsAreThoseOfEachMessage();
    void limitIsReadAtEachFailure();
    void successLeavesTheCount();
    void givingUpForgetsTheCount();
};

void TestNspkEcHandler::request()
{
    const LogCapture log(u"nspkec"_s);
    FakeRestClient net({reply(200, accepted)});
    const int id = nextId();
    QVERIFY(attempt(id, message({{u"timeout"_s, 9}})));
    QCOMPARE(net.transcript(), QStringList{u"POST https://nspk.test/refund"_s});
    QCOMPARE(net.lastRequest().body, QByteArray(R"({"amount":2147483647,"id":"ж"})"));
    QCOMPARE(net.lastRequest().headers, (QMap<QString, QString>{{u"X-Shop"_s, u"42"_s}}));
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), 9000);
    QVERIFY(net.lastRequest().logger);
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения %1"_s.arg(id)});
}

void TestNspkEcHandler::emptyMessage()
{
    FakeRestClient net({reply(200, accepted)});
    QVERIFY(attempt(nextId(), {}));
    QCOMPARE(net.transcript(), QStringList{u"POST "_s});
    QCOMPARE(net.lastRequest().body, QByteArray("{}"));
    QCOMPARE(net.lastRequest().headers, (QMap<QString, QString>()));
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), 0);
}

void TestNspkEcHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QString>("outcome");

    const QString unknown = u"Неизвестная ошибка"_s;
    const QString none;
    const QString done = u"delivered"_s;
    const QString code17 = u"kept service: сервис отказал, код: 17"_s;
    const QString noCode = u"kept service: сервис отказал, код: не указано"_s;
    const auto result = [](const QByteArray &value) {
        return "{\"result\":" + value + "}";
    };
    // clang-format off
    QTest::newRow("0")                        << reply(200, accepted)                       << none << done;
    QTest::newRow("0 and nothing else")       << reply(200, result(R"({"code":"0"})"))      << none << done;
    QTest::newRow("refused")                  << reply(200, refused)                        << u"Отказ %1"_s << code17;
    QTest::newRow("refused without a reason") << reply(200, result(R"({"code":"17"})"))     << unknown << code17;
    QTest::newRow("reason is not a text")     << reply(200, result(R"({"code":"17","description":5})")) << unknown << code17;
    QTest::newRow("reason is empty")          << reply(200, result(R"({"code":"17","description":""})")) << u""_s << code17;
    // The service writes the code as a text; any other value is not a success.
    QTest::newRow("0 as a number")            << reply(200, result(R"({"code":0})"))        << unknown << noCode;
    QTest::newRow("00")                       << reply(200, result(R"({"code":"00"})"))     << unknown << u"kept service: сервис отказал, код: 00"_s;
    QTest::newRow("no code")                  << reply(200, result("{}"))                   << unknown << noCode;
    QTest::newRow("code at the top")          << reply(200, R"({"code":"0"})")              << unknown << noCode;
    QTest::newRow("result is not an object")  << reply(200, result("\"0\""))                << unknown << noCode;
    QTest::newRow("not JSON")                 << reply(200, "0")                            << unknown << noCode;
    QTest::newRow("empty")                    << reply(204)                                 << unknown << noCode;
    QTest::newRow("500 with 0")               << reply(500, accepted)                       << u"OK"_s << keptBy(reply(500));
    QTest::newRow("400 with a reason")        << reply(400, refused)                        << u"Отказ %1"_s << keptBy(reply(400));
    QTest::newRow("404")                      << reply(404)                                 << unknown << keptBy(reply(404));
    QTest::newRow("no connection")            << noConnection()                             << unknown << keptBy(noConnection());
    QTest::newRow("no answer in time")        << timeout()                                  << unknown << keptBy(timeout());
    // clang-format on
}

void TestNspkEcHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(QString, failure);

    const LogCapture log(u"nspkec"_s);
    FakeRestClient net({answer});
    const int id = nextId();
    QTEST(outcomeOf(id, tries(2)), "outcome");
    QStringList expected{u"INFO Отправка сообщения %1"_s.arg(id)};
    if (!failure.isNull())
        expected.append(u"ERROR Ошибка при отправке сообщения: "_s + failure);
    QCOMPARE(log.lines(), expected);
}

void TestNspkEcHandler::limit_data()
{
    QTest::addColumn<QVariantMap>("body");
    QTest::addColumn<int>("attempts");

    QTest::newRow("absent: the first failure is the last") << message() << 1;
    QTest::newRow("0") << tries(0) << 1;
    QTest::newRow("below 0") << tries(-5) << 1;
    QTest::newRow("not a number") << tries(u"many"_s) << 1;
    QTest::newRow("1") << tries(1) << 1;
    QTest::newRow("2") << tries(2) << 2;
    QTest::newRow("3") << tries(3) << 3;
    QTest::newRow("3 as text") << tries(u"3"_s) << 3;
}

void TestNspkEcHandler::limit()
{
    QFETCH(QVariantMap, body);
    QFETCH(int, attempts);

    const LogCapture log(u"nspkec"_s);
    const int id = nextId();
    // Refused, and not reached: both count.
    for (int i = 1; i <= attempts; ++i) {
        FakeRestClient net({i % 2 ? reply(200, refused) : noConnection()});
        const QString outcome = outcomeOf(id, body);
        QCOMPARE(outcome == u"dropped: исчерпаны попытки отправки"_s, i == attempts);
        QCOMPARE(outcome.startsWith(u"kept "_s), i < attempts);
        QCOMPARE(log.lines().contains(givenUp), i == attempts);
    }
    QCOMPARE(log.lines().last(), givenUp);
    QVERIFY(log.lines().at(log.lines().size() - 2).startsWith(u"ERROR"));
}

void TestNspkEcHandler::countsAreThoseOfEachMessage()
{
    const int first = nextId();
    const int second = nextId();
    FakeRestClient net({noConnection(), noConnection(), noConnection(), noConnection()});
    QVERIFY(!attempt(first, tries(2)));
    QVERIFY(!attempt(second, tries(2)));
    QVERIFY(attempt(second, tries(2)));
    QVERIFY(attempt(first, tries(2)));
}

void TestNspkEcHandler::limitIsReadAtEachFailure()
{
    const int id = nextId();
    FakeRestClient net({noConnection(), noConnection(), noConnection()});
    QVERIFY(!attempt(id, tries(9)));
    QVERIFY(!attempt(id, tries(3)));
    QVERIFY(attempt(id, tries(2)));
}

void TestNspkEcHandler::successLeavesTheCount()
{
    const int id = nextId();
    FakeRestClient net({noConnection(), noConnection(), reply(200, accepted), noConnection()});
    QVERIFY(!attempt(id, tries(3)));
    QVERIFY(!attempt(id, tries(3)));
    QVERIFY(attempt(id, tries(3)));
    // A count is forgotten only when the message is given up. The row is deleted by then; if it
    // were not, it would have one attempt left.
    QVERIFY(attempt(id, tries(3)));
}

void TestNspkEcHandler::givingUpForgetsTheCount()
{
    const int id = nextId();
    FakeRestClient net({noConnection(), noConnection(), noConnection(), noConnection()});
    QVERIFY(!attempt(id, tries(2)));
    QVERIFY(attempt(id, tries(2)));
    QVERIFY(!attempt(id, tries(2)));
    QVERIFY(attempt(id, tries(2)));
}

QTEST_GUILESS_MAIN(TestNspkEcHandler)
#include "tst_nspkechandler.moc"
