#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString opening = u"INFO Отправка сообщения 7"_s;
const QString loggingIn = u"WARN Требуется авторизация"_s;

QString message()
{
    const QJsonObject body{
        {u"url"_s, u"http://fr.test/api/"_s},
        {u"path"_s, u"print?a=1"_s},
        {u"body"_s, QJsonObject{{u"sum"_s, 1990.5}, {u"a"_s, u"ж"_s}}},
        {u"headers"_s, QJsonObject{{u"X-Till"_s, 3}, {u"SessionId"_s, u"old"_s}}},
        {u"auth"_s, u"Basic eHg="_s},
        {u"timeout"_s, 3}};
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

http::Response session(const QJsonValue &id)
{
    return json(200, {{u"sessionId"_s, id}});
}

QStringList failed(const http::Response &response)
{
    return {u"ERROR Ошибка при отправке сообщения: "_s + response.errorText.ru()};
}

QStringList refused(const QString &line)
{
    return {u"ERROR Сервис вернул сообщение об ошибке"_s, u"ERROR "_s + line};
}

} // namespace

class TestFrCashboxHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void requests();
    void session_data();
    void session();
    void outcome_data();
    void outcome();
    void addressesAreJoinedUnchanged_data();
    void addressesAreJoinedUnchanged();
    void recordsWhyThereIsNoSession_data();
    void recordsWhyThereIsNoSession();
};

void TestFrCashboxHandler::requests()
{
    const LogCapture log(u"frcashbox"_s);
    FakeRestClient net({reply(401), ::session(u"s-1"_s), reply(200, "{}")});
    QVERIFY(deliver(u"frcashbox"_s, message()));
    QCOMPARE(net.steps(), (QStringList{u"POST http://fr.test/api/print?a=1"_s,
                                       u"POST http://fr.test/api/login"_s,
                                       u"POST http://fr.test/api/print?a=1"_s}));
    const QByteArray body = "{\"a\":\"ж\",\"sum\":1990.5}";
    QCOMPARE(net.requestAt(0).body, body);
    QCOMPARE(net.requestAt(0).headers,
             (QMap<QString, QString>{{u"X-Till"_s, u"3"_s}, {u"SessionId"_s, u"old"_s}}));
    QCOMPARE(net.requestAt(1).body, "");
    QCOMPARE(net.requestAt(1).headers,
             (QMap<QString, QString>{{u"Content-Type"_s, u"application/json"_s},
                                     {u"Authorization"_s, u"Basic eHg="_s}}));
    QCOMPARE(net.requestAt(2).body, body);
    QCOMPARE(net.requestAt(2).headers,
             (QMap<QString, QString>{{u"X-Till"_s, u"3"_s}, {u"SessionId"_s, u"s-1"_s}}));
    QVERIFY(net.requestAt(0).logger);
    QVERIFY(!net.requestAt(2).timeoutMs);
    QCOMPARE(log.lines(), (QStringList{opening, loggingIn}));
}

void TestFrCashboxHandler::session_data()
{
    QTest::addColumn<http::Response>("login");
    QTest::addColumn<QString>("sent");
    QTest::newRow("a text") << ::session(u"s-1"_s) << u"s-1"_s;
    QTest::newRow("with an error status") << json(500, {{u"sessionId"_s, u"s-1"_s}}) << u"s-1"_s;
    QTest::newRow("a number") << ::session(5) << u""_s;
    QTest::newRow("none") << reply(200, "{}") << u""_s;
    QTest::newRow("not JSON") << reply(200, "s-1") << u""_s;
    QTest::newRow("refused") << reply(401) << u""_s;
    QTest::newRow("lost") << noConnection() << u""_s;
}

void TestFrCashboxHandler::session()
{
    QFETCH(http::Response, login);
    QFETCH(QString, sent);
    // Whatever the result of the login, the request is sent again, and only its answer counts.
    FakeRestClient net({reply(401), login, reply(200, "{}")});
    QVERIFY(deliver(u"frcashbox"_s, message()));
    QCOMPARE(net.requestAt(2).header(u"SessionId"_s), sent);
    QVERIFY(net.requestAt(2).headers.contains(u"SessionId"_s));
}

void TestFrCashboxHandler::outcome_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QStringList empty{u"ERROR Нет связи с сервисом"_s};
    const QStringList login{loggingIn};
    const auto error = [](int status, const QJsonValue &value) {
        return json(status, {{u"error"_s, value}});
    };
    // clang-format off
    QTest::newRow("an object")                            << Script{json(200, {{u"fiscal"_s, 5}})} << true << QStringList();
    QTest::newRow("an empty object")                      << Script{reply(200, "{}")} << true << QStringList();
    QTest::newRow("a list")                               << Script{reply(200, "[{\"error\":1}]")} << true << QStringList();
    QTest::newRow("empty")                                << Script{reply(200)} << false << empty;
    QTest::newRow("not JSON")                             << Script{reply(200, "<html>")} << false << empty;
    QTest::newRow("cut off JSON")                         << Script{reply(200, "{\"fiscal\":5")} << false << empty;
    QTest::newRow("an error")                             << Script{error(200, QJsonObject{{u"message"_s, u"нет %1 бумаги"_s}, {u"code"_s, 8}})} << false << refused(u"Код: 8, ошибка: нет %1 бумаги"_s);
    QTest::newRow("an error below 0")                     << Script{error(200, QJsonObject{{u"message"_s, u"x"_s}, {u"code"_s, -8}})} << false << refused(u"Код: -8, ошибка: x"_s);
    QTest::newRow("an error without a text")              << Script{error(200, QJsonObject{{u"code"_s, 8}})} << false << refused(u"Код: 8, ошибка: Ошибка при работе с ФР"_s);
    QTest::newRow("an error with members of other kinds") << Script{error(200, QJsonObject{{u"code"_s, u"8"_s}, {u"message"_s, 5}})} << false << refused(u"Код: 0, ошибка: Ошибка при работе с ФР"_s);
    QTest::newRow("an empty error")                       << Script{error(200, QJsonObject())} << false << refused(u"Код: 0, ошибка: Ошибка при работе с ФР"_s);
    QTest::newRow("an error that is null")                << Script{error(200, QJsonValue::Null)} << false << refused(u"Код: 0, ошибка: Ошибка при работе с ФР"_s);
    QTest::newRow("HTTP 500")                             << Script{json(500, {{u"fiscal"_s, 5}})} << false << failed(reply(500));
    QTest::newRow("HTTP 500 with an error")               << Script{error(500, QJsonObject())} << false << failed(reply(500));
    QTest::newRow("no connection")                        << Script{noConnection()} << false << failed(noConnection());
    QTest::newRow("403 asks for no login")                << Script{reply(403)} << false << failed(reply(403));
    QTest::newRow("logged in")                            << Script{reply(401), ::session(u"s"_s), reply(200, "{}")} << true << login;
    QTest::newRow("401 again")                            << Script{reply(401), ::session(u"s"_s), reply(401)} << false << login + failed(reply(401));
    QTest::newRow("login refused, 401")                   << Script{reply(401), reply(403), reply(401)} << false << login + failed(reply(401));
    QTest::newRow("login lost, lost")                     << Script{reply(401), noConnection(), noConnection()} << false << login + failed(noConnection());
    QTest::newRow("logged in, an error")                  << Script{reply(401), ::session(u"s"_s), error(200, QJsonObject())} << false << login + refused(u"Код: 0, ошибка: Ошибка при работе с ФР"_s);
    // clang-format on
}

void TestFrCashboxHandler::outcome()
{
    QFETCH(Script, script);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);
    const LogCapture log(u"frcashbox"_s);
    FakeRestClient net(script);
    QCOMPARE(deliver(u"frcashbox"_s, message()), finished);
    QCOMPARE(net.requests().size(), script.size());
    QCOMPARE(log.lines(), QStringList{opening} + lines);
}

void TestFrCashboxHandler::addressesAreJoinedUnchanged_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("login");
    QTest::newRow("no slash") << u"{\"url\":\"http://fr.test/api\",\"path\":\"print\"}"_s
                              << u"POST http://fr.test/apiprint"_s
                              << u"POST http://fr.test/apilogin"_s;
    QTest::newRow("two slashes") << u"{\"url\":\"http://fr.test/api/\",\"path\":\"/print\"}"_s
                                 << u"POST http://fr.test/api//print"_s
                                 << u"POST http://fr.test/api/login"_s;
    QTest::newRow("no path") << u"{\"url\":\"http://fr.test/\"}"_s << u"POST http://fr.test/"_s
                             << u"POST http://fr.test/login"_s;
}

void TestFrCashboxHandler::addressesAreJoinedUnchanged()
{
    QFETCH(QString, message);
    QFETCH(QString, first);
    QFETCH(QString, login);
    FakeRestClient net({reply(401), reply(200), reply(200, "{}")});
    QVERIFY(deliver(u"frcashbox"_s, message));
    QCOMPARE(net.transcript(), (QStringList{first, login, first}));
}

void TestFrCashboxHandler::recordsWhyThereIsNoSession_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<QString>("told");

    const QString lost = noConnection().errorText.ru();
    // clang-format off
    QTest::newRow("login refused")       << Script{reply(401), reply(403), reply(401)} << u"kept credentials: вход не удался: %1"_s.arg(reply(403).errorText.ru());
    QTest::newRow("login lost")          << Script{reply(401), noConnection(), reply(401)} << u"kept network: вход не удался: %1"_s.arg(lost);
    QTest::newRow("login in trouble")    << Script{reply(401), reply(503), reply(401)} << u"kept service: вход не удался: %1"_s.arg(reply(503).errorText.ru());
    QTest::newRow("login without an id") << Script{reply(401), reply(200, "{}"), reply(401)} << u"kept credentials: в ответе на вход нет поля sessionId"_s;
    QTest::newRow("session refused")     << Script{reply(401), ::session(u"s"_s), reply(401)} << u"kept service: сервис не принял новый сеанс"_s;
    QTest::newRow("another error after a lost login") << Script{reply(401), noConnection(), reply(500)} << keptBy(reply(500));
    QTest::newRow("lost after a lost login") << Script{reply(401), noConnection(), noConnection()} << keptBy(noConnection());
    // clang-format on
}

void TestFrCashboxHandler::recordsWhyThereIsNoSession()
{
    QFETCH(Script, script);
    FakeRestClient net(script);
    QTEST(outcomeOf(u"frcashbox"_s, message()), "told");
}

QTEST_GUILESS_MAIN(TestFrCashboxHandler)
#include "tst_frcashboxhandler.moc"
