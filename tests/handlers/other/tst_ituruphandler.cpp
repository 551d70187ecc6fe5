#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message = uR"({"body":{"url":"http://it.test/"}})"_s;

} // namespace

class TestIturupHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void outcome_data();
    void outcome();
};

void TestIturupHandler::request_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("url");
    QTest::addColumn<QByteArray>("body");

    // clang-format off
    QTest::newRow("as prepared")                  << uR"({"body":{"url":"http://it.test/a b","id":"5","check":"ч"}})"_s
                                                  << u"http://it.test/a%20b"_s << R"({"check":"ч","id":"5"})"_ba;
    QTest::newRow("two members alone")            << uR"({"body":{"url":"http://it.test/","id":"5","check":"c","sum":1}})"_s
                                                  << u"http://it.test/"_s << R"({"check":"c","id":"5"})"_ba;
    QTest::newRow("absent members are empty")     << uR"({"body":{"url":"http://it.test/"}})"_s
                                                  << u"http://it.test/"_s << R"({"check":"","id":""})"_ba;
    QTest::newRow("a number is not a text")          << uR"({"body":{"url":"http://it.test/","id":5,"check":{}}})"_s
                                                  << u"http://it.test/"_s << R"({"check":"","id":""})"_ba;
    QTest::newRow("url, headers, timeout outside: not read")
                                                  << uR"({"url":"http://no.test/","headers":{"X":"1"},"timeout":3,"body":{"url":"http://it.test/"}})"_s
                                                  << u"http://it.test/"_s << R"({"check":"","id":""})"_ba;
    QTest::newRow("url outside alone")            << uR"({"url":"http://no.test/"})"_s
                                                  << u""_s << R"({"check":"","id":""})"_ba;
    // clang-format on
}

void TestIturupHandler::request()
{
    QFETCH(QString, message);
    QFETCH(QString, url);
    QFETCH(QByteArray, body);

    FakeRestClient net({json(200, {{u"success"_s, true}})});
    QVERIFY(deliver(u"iturup"_s, message));
    compareRequest(net, {.steps = {u"setTimeout 10"_s, u"POST "_s + url},
                         .body = body,
                         .headers = {{u"Content-Type"_s, u"application/json"_s}}});
}

void TestIturupHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QStringList none;
    // clang-format off
    QTest::newRow("success")                    << json(200, {{u"success"_s, true}}) << true << none;
    QTest::newRow("success with HTTP 500")      << json(500, {{u"success"_s, true}}) << true << none;
    // The service has read the check and refuses it: a retry would not change that.
    QTest::newRow("refused")                    << json(200, {{u"success"_s, false}, {u"message"_s, u"чек %1 чужой"_s}}) << true << QStringList{u"ERROR чек %1 чужой"_s};
    QTest::newRow("refused with HTTP 400")      << json(400, {{u"success"_s, false}, {u"message"_s, u"нет"_s}}) << true << QStringList{u"ERROR нет"_s};
    QTest::newRow("refused without a word")     << json(200, {{u"success"_s, false}}) << true << QStringList{u"ERROR "_s};
    QTest::newRow("success is not a bool")      << json(200, {{u"success"_s, u"true"_s}, {u"message"_s, 5}}) << true << QStringList{u"ERROR "_s};
    QTest::newRow("not JSON")                   << reply(502, "<html>") << true << QStringList{u"ERROR "_s};
    QTest::newRow("empty")                      << reply(200) << true << QStringList{u"ERROR "_s};
    QTest::newRow("no connection")              << noConnection() << false << QStringList{u"ERROR Нет связи с сервером"_s};
    QTest::newRow("no answer in time")          << timeout() << false << QStringList{u"ERROR Нет связи с сервером"_s};
    // clang-format on
}

void TestIturupHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);

    compareOutcome(u"iturup"_s, message, answer, finished,
                   QStringList{u"INFO Отправка сообщения"_s} + lines);
}

QTEST_GUILESS_MAIN(TestIturupHandler)
#include "tst_ituruphandler.moc"
