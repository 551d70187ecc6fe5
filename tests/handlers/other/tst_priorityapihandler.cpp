#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"

#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString message(const QString &body)
{
    return uR"({"url":"http://prio.test/a","headers":{"X-Till":3},"timeout":3%1})"_s.replace(
        u"%1"_s, body.isEmpty() ? u""_s : u",\"body\":"_s + body);
}

} // namespace

class TestPriorityApiHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void outcome_data();
    void outcome();
};

void TestPriorityApiHandler::request_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QByteArray>("sent");
    QTest::newRow("a text goes out unchanged") << u"\"<к %1> {}\""_s << "<к %1> {}"_ba;
    QTest::newRow("an empty text") << u"\"\""_s << ""_ba;
    QTest::newRow("an object") << uR"({"b":[1,2.5],"a":"ж"})"_s << R"({"a":"ж","b":[1,2.5]})"_ba;
    QTest::newRow("an empty object") << u"{}"_s << "{}"_ba;
    QTest::newRow("a list is not an object") << u"[1]"_s << "{}"_ba;
    QTest::newRow("a number is not an object") << u"5"_s << "{}"_ba;
    QTest::newRow("absent") << u""_s << "{}"_ba;
}

void TestPriorityApiHandler::request()
{
    QFETCH(QString, body);
    QFETCH(QByteArray, sent);
    FakeRestClient net({json(200, {{u"code"_s, 0}})});
    QVERIFY(deliver(u"priorityapi"_s, message(body)));
    compareRequest(net,
                   {.steps = {u"setTimeout 10"_s, u"POST http://prio.test/a"_s}, .body = sent});
}

void TestPriorityApiHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QStringList none;
    const QStringList noCode{
        u"WARN Некорректный ответ от сервера, отсутствует обязательное поле 'code'"_s};
    const auto failed = [](const http::Response &response) {
        return QStringList{u"ERROR Ошибка при отправке сообщения: "_s + response.errorText.ru()};
    };
    // clang-format off
    QTest::newRow("0")                      << json(200, {{u"code"_s, 0}}) << true << none;
    QTest::newRow("0 as a text")            << json(200, {{u"code"_s, u"0"_s}}) << true << none;
    QTest::newRow("no number reads as 0")   << json(200, {{u"code"_s, u"abc"_s}}) << true << none;
    QTest::newRow("null reads as 0")        << json(200, {{u"code"_s, QJsonValue::Null}}) << true << none;
    QTest::newRow("1")                      << json(200, {{u"code"_s, 1}}) << false << none;
    QTest::newRow("-1")                     << json(200, {{u"code"_s, -1}}) << false << none;
    QTest::newRow("1 as a text")            << json(200, {{u"code"_s, u"1"_s}}) << false << none;
    QTest::newRow("no code")                << json(200, {{u"Code"_s, 0}}) << false << noCode;
    QTest::newRow("an empty reply")         << reply(204) << false << noCode;
    QTest::newRow("not JSON")               << reply(200, "<ok/>") << false << noCode;
    QTest::newRow("a list")                 << reply(200, "[{\"code\":0}]") << false << noCode;
    QTest::newRow("HTTP 400, code 0")       << json(400, {{u"code"_s, 0}}) << false << failed(reply(400));
    QTest::newRow("HTTP 500, code 0")       << json(500, {{u"code"_s, 0}}) << false << failed(reply(500));
    QTest::newRow("no connection")          << noConnection() << false << failed(noConnection());
    QTest::newRow("no answer in time")      << timeout() << false << failed(timeout());
    // clang-format on
}

void TestPriorityApiHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);

    compareOutcome(u"priorityapi"_s, message(u"{}"_s), answer, finished,
                   QStringList{u"INFO Отправка сообщения 7"_s} + lines);
}

QTEST_GUILESS_MAIN(TestPriorityApiHandler)
#include "tst_priorityapihandler.moc"
