#include "shared/core/basicexception.h"
#include "shared/core/mockfactory.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message = uR"({"url":"http://tsum.test/a"})"_s;

/// Cannot even ask.
class BrokenClient : public RestClient
{
public:
    void send(const http::Params & /*params*/) override { throw BasicException(u"Сбой"_s); }
};

} // namespace

class TestTsumHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void outcome_data();
    void outcome();
    void otherExceptionsPassOn();
};

void TestTsumHandler::request_data()
{
    QTest::addColumn<QString>("message");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("timeout");
    // clang-format off
    QTest::newRow("as prepared")      << uR"({"method":"PATCH","url":"http://tsum.test/a","headers":{"X-Till":3},"body":"<к %1/>","timeout":7})"_s
                                      << u"PATCH http://tsum.test/a"_s << "<к %1/>"_ba << 7;
    QTest::newRow("an object")        << uR"({"url":"http://tsum.test/a","headers":{"X-Till":3},"body":{"a":"ж"},"timeout":"8"})"_s
                                      << u"POST http://tsum.test/a"_s << R"({"a":"ж"})"_ba << 8;
    QTest::newRow("no body")          << uR"({"url":"http://tsum.test/a","headers":{"X-Till":3}})"_s
                                      << u"GET http://tsum.test/a"_s << ""_ba << 0;
    QTest::newRow("other keys")       << uR"({"url":"http://tsum.test/a","headers":{"X-Till":3},"parts":[{"name":"a"}],"logger":5})"_s
                                      << u"GET http://tsum.test/a"_s << ""_ba << 0;
    // clang-format on
}

void TestTsumHandler::request()
{
    QFETCH(QString, message);
    QFETCH(QString, line);
    QFETCH(QByteArray, body);
    QFETCH(int, timeout);

    const LogCapture log(u"tsum"_s);
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"tsum"_s, message));
    QCOMPARE(net.transcript(), QStringList{line});
    QCOMPARE(net.lastRequest().body, body);
    QCOMPARE(net.lastRequest().headers, (QMap<QString, QString>{{u"X-Till"_s, u"3"_s}}));
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), timeout * 1000);
    QVERIFY(net.lastRequest().parts.isEmpty());
    QVERIFY(net.lastRequest().logger);
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения 7"_s});
}

void TestTsumHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::newRow("200") << reply(200, "{\"error\":1}") << true;
    QTest::newRow("204") << reply(204) << true;
    QTest::newRow("not JSON") << reply(200, "<html>") << true;
    QTest::newRow("301") << reply(301) << false;
    QTest::newRow("400") << reply(400) << false;
    QTest::newRow("500") << reply(500) << false;
    QTest::newRow("no connection") << noConnection() << false;
    QTest::newRow("no answer in time") << timeout() << false;
}

void TestTsumHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);

    const LogCapture log(u"tsum"_s);
    FakeRestClient net({answer});
    QCOMPARE(deliver(u"tsum"_s, message), finished);
    QStringList lines{u"INFO Отправка сообщения 7"_s};
    if (!finished)
        lines += u"ERROR Не удалось отправить сообщение: "_s + answer.errorText.ru();
    QCOMPARE(log.lines(), lines);
}

/// Of the till's own only those of the request are told by this handler.
void TestTsumHandler::otherExceptionsPassOn()
{
    const LogCapture log(u"tsum"_s);
    MockFactory<RestClient>::install(std::make_shared<BrokenClient>());
    QVERIFY_THROWS_EXCEPTION(BasicException, deliver(u"tsum"_s, message));
    MockFactory<RestClient>::install(nullptr);
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения 7"_s});
}

QTEST_GUILESS_MAIN(TestTsumHandler)
#include "tst_tsumhandler.moc"
