#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message =
    uR"({"url":"http://gift.test/rpc?a=1","headers":{"X-Till":3},"body":"<к %1>","timeout":7})"_s;
const QString opening = u"INFO Отправка сообщения 7"_s;

http::Response id(const QJsonValue &value)
{
    return json(200, {{u"result"_s, QJsonObject{{u"id"_s, value}}}});
}

http::Response error(const QJsonValue &code)
{
    return json(200, {{u"error"_s, QJsonObject{{u"code"_s, code}}}});
}

QString failed(const http::Response &response)
{
    return u"ERROR Ошибка при отправке сообщения: "_s + response.errorText.ru();
}

} // namespace

class TestGiftomanHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request();
    void outcome_data();
    void outcome();
};

void TestGiftomanHandler::request()
{
    FakeRestClient net({id(u"0"_s), id(u"12"_s)});
    QVERIFY(deliver(u"giftoman"_s, message));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 7"_s, u"POST http://gift.test/rpc?a=1"_s,
                                       u"POST http://gift.test/rpc?a=1"_s}));
    for (const FakeRestClient::Request &made : net.requests()) {
        QCOMPARE(made.body, "<к %1>");
        QCOMPARE(made.headers, (QMap<QString, QString>{{u"X-Till"_s, u"3"_s}}));
        QVERIFY(made.logger);
    }
}

void TestGiftomanHandler::outcome_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QString internal = u"ERROR Внутрення ошибка сервера"_s;
    const QString wrong = u"ERROR Ошибочный ответ от сервера"_s;
    const http::Response again = id(u"0"_s);
    // clang-format off
    QTest::newRow("an id")                        << Script{id(u"5"_s)} << true << QStringList{};
    QTest::newRow("an empty id")                  << Script{id(u""_s)} << true << QStringList{};
    QTest::newRow("id 00")                        << Script{id(u"00"_s)} << true << QStringList{};
    QTest::newRow("no result")                    << Script{reply(200, "{}")} << true << QStringList{};
    QTest::newRow("no reply")                     << Script{reply(204)} << true << QStringList{};
    QTest::newRow("not JSON")                     << Script{reply(200, "<ok/>")} << true << QStringList{};
    QTest::newRow("a list")                       << Script{reply(200, "[0]")} << true << QStringList{};
    QTest::newRow("0, then an id")                << Script{again, id(u"5"_s)} << true << QStringList{};
    QTest::newRow("0 as a number is 0")           << Script{id(0), id(u"5"_s)} << true << QStringList{};
    QTest::newRow("0, 0, 0")                      << Script{again, again, again} << true << QStringList{wrong};
    QTest::newRow("the third reply is not read")  << Script{again, again, id(u"5"_s)} << true << QStringList{wrong};
    QTest::newRow("internal error 32605")         << Script{error(32605)} << false << QStringList{internal};
    QTest::newRow("internal error 32606")         << Script{error(32606)} << false << QStringList{internal};
    QTest::newRow("internal error 32610")         << Script{error(32610)} << false << QStringList{internal};
    QTest::newRow("internal error -32605")        << Script{error(-32605)} << false << QStringList{internal};
    QTest::newRow("internal error -32606")        << Script{error(-32606)} << false << QStringList{internal};
    QTest::newRow("internal error -32610")        << Script{error(-32610)} << false << QStringList{internal};
    QTest::newRow("internal error as a text")     << Script{error(u"-32605"_s)} << false << QStringList{internal};
    QTest::newRow("internal error third")         << Script{again, again, error(-32605)} << false << QStringList{internal};
    QTest::newRow("another error: taken")         << Script{error(-32600)} << true << QStringList{};
    QTest::newRow("the neighbours of a code")     << Script{error(32604)} << true << QStringList{};
    QTest::newRow("the smallest number")          << Script{error(-2147483648.0)} << true << QStringList{};
    QTest::newRow("error without a code")         << Script{error(QJsonValue::Null)} << true << QStringList{};
    QTest::newRow("error that is not an object")  << Script{json(200, {{u"error"_s, u"32605"_s}})} << true << QStringList{};
    QTest::newRow("another error beside an id 0") << Script{json(200, {{u"error"_s, QJsonObject()}, {u"result"_s, QJsonObject{{u"id"_s, u"0"_s}}}}), id(u"5"_s)} << true << QStringList{};
    QTest::newRow("HTTP 500")                     << Script{reply(500, "{\"result\":{\"id\":\"5\"}}")} << false << QStringList{failed(reply(500))};
    QTest::newRow("HTTP 400")                     << Script{reply(400)} << false << QStringList{failed(reply(400))};
    QTest::newRow("no connection")                << Script{noConnection()} << false << QStringList{failed(noConnection())};
    QTest::newRow("lost at the second request")   << Script{again, noConnection()} << false << QStringList{failed(noConnection())};
    QTest::newRow("lost at the third request")    << Script{again, again, timeout()} << false << QStringList{failed(timeout())};
    // clang-format on
}

void TestGiftomanHandler::outcome()
{
    QFETCH(Script, script);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);

    const LogCapture log(u"giftoman"_s);
    FakeRestClient net(script);
    QCOMPARE(deliver(u"giftoman"_s, message), finished);
    QCOMPARE(net.requests().size(), script.size());
    QCOMPARE(log.lines(), QStringList{opening} + lines);
}

QTEST_GUILESS_MAIN(TestGiftomanHandler)
#include "tst_giftomanhandler.moc"
