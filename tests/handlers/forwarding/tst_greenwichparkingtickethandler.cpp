#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString ticket =
    uR"({"method":"PATCH","url":"http://parking.test/t/1","headers":{"x-api-key":"secret"},"body":{"n":1},"timeout":4})"_s;
const QString ticketWithText =
    uR"({"method":"PUT","url":"http://parking.test/","body":"a=1&b=ж"})"_s;
const QString ticketWithoutTimeout = uR"({"method":"GET","url":"http://parking.test/"})"_s;

} // namespace

class TestGreenwichParkingTicketHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wholeRequest();
    void bodyAsText();
    void timeoutByDefault();
    void outcome_data();
    void outcome();
};

void TestGreenwichParkingTicketHandler::wholeRequest()
{
    const LogCapture log(u"greenwichparkingticket"_s);
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"greenwichparkingticket"_s, ticket));
    const FakeRestClient::Request made = net.lastRequest();
    QCOMPARE(net.transcript(), QStringList{u"PATCH http://parking.test/t/1"_s});
    QCOMPARE(made.headers, (QMap<QString, QString>{{u"x-api-key"_s, u"secret"_s}}));
    QCOMPARE(made.body, QByteArray(R"({"n":1})"));
    QCOMPARE(made.timeoutMs.value_or(-1), 4000);
    QCOMPARE(made.secretHeaders, QStringList{u"x-api-key"_s});
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения"_s});
}

void TestGreenwichParkingTicketHandler::bodyAsText()
{
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"greenwichparkingticket"_s, ticketWithText));
    QCOMPARE(net.transcript(), QStringList{u"PUT http://parking.test/"_s});
    QCOMPARE(net.lastRequest().body, QByteArray("a=1&b=ж"));
}

void TestGreenwichParkingTicketHandler::timeoutByDefault()
{
    FakeRestClient net({reply(200)});
    QVERIFY(deliver(u"greenwichparkingticket"_s, ticketWithoutTimeout));
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), 0);
}

void TestGreenwichParkingTicketHandler::outcome_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<bool>("logged");

    const QByteArray explained = R"({"message":"no such ticket"})";
    const QByteArray bare = R"({"error":1})";
    QTest::newRow("200: done") << reply(200, bare) << true << false;
    for (const int status : {400, 401, 404, 422}) {
        QTest::addRow("%d with message: gone quietly", status)
            << reply(status, explained) << true << false;
        QTest::addRow("%d with null message: gone quietly", status)
            << reply(status, R"({"message":null})") << true << false;
        QTest::addRow("%d without message: dropped with a log line", status)
            << reply(status, bare) << true << true;
        QTest::addRow("%d with an array: dropped with a log line", status)
            << reply(status, R"(["message"])") << true << true;
        QTest::addRow("%d without content: dropped with a log line", status)
            << reply(status) << true << true;
    }
    QTest::newRow("201: dropped with a log line") << reply(201, bare) << true << true;
    QTest::newRow("403 with message: dropped with a log line")
        << reply(403, explained) << true << true;
    QTest::newRow("500: dropped with a log line") << reply(500, explained) << true << true;
    QTest::newRow("503: dropped with a log line") << reply(503) << true << true;
    QTest::newRow("no connection: kept") << noConnection() << false << true;
    QTest::newRow("no answer in time: kept") << timeout() << false << true;
}

void TestGreenwichParkingTicketHandler::outcome()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);
    QFETCH(bool, logged);

    const LogCapture log(u"greenwichparkingticket"_s);
    FakeRestClient net({answer});
    QCOMPARE(deliver(u"greenwichparkingticket"_s, ticket), finished);
    QStringList expected{u"INFO Отправка сообщения"_s};
    if (logged)
        expected.append(u"ERROR Ошибка при отправке сообщения: "_s + answer.errorText.ru());
    QCOMPARE(log.lines(), expected);
}

QTEST_GUILESS_MAIN(TestGreenwichParkingTicketHandler)
#include "tst_greenwichparkingtickethandler.moc"
