#include "handlers/loyalty/manzanahandler.h"
#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message =
    u"{\"url\":\"http://manzana.test/a b\",\"headers\":{\"X-Till\":3},\"body\":\"<к %1/>\",\"timeout\":3}"_s;
const QString opening = u"INFO Отправка сообщения 7"_s;

} // namespace

class TestManzanaHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void failedExchange_data();
    void failedExchange();
    void judgement_data();
    void judgement();
    void replyDecides();
    void operationsKeepTheirPlaces();
};

void TestManzanaHandler::request_data()
{
    QTest::addColumn<QString>("type");
    QTest::newRow("manzana") << u"manzana"_s;
    QTest::newRow("manzana2019") << u"manzana2019"_s;
}

void TestManzanaHandler::request()
{
    QFETCH(QString, type);
    const LogCapture log(type);
    FakeRestClient net({reply(200, "<a><ReturnCode>0</ReturnCode></a>")});
    QVERIFY(deliver(type, message));
    compareRequest(net, {.steps = {u"setTimeout 15"_s, u"POST http://manzana.test/a%20b"_s},
                         .body = "<к %1/>"});
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestManzanaHandler::failedExchange_data()
{
    addLostExchanges();
    const QByteArray success = "<a><ReturnCode>0</ReturnCode></a>";
    QTest::newRow("HTTP 500, code 0") << reply(500, success);
    QTest::newRow("HTTP 400, code 0") << reply(400, success);
}

void TestManzanaHandler::failedExchange()
{
    QFETCH(http::Response, answer);
    compareOutcome(u"manzana"_s, message, answer, false, QStringList{opening, failureLine(answer)});
}

void TestManzanaHandler::judgement_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QStringList none;
    const QStringList missing{u"WARN Некорректный ответ от сервера, отсутствует поле ReturnCode"_s};
    const auto code = [](const QString &number) {
        return u"WARN Код ошибки: "_s + number;
    };
    const auto answer = [](const QString &number, const QString &text) {
        return u"<a><ReturnCode>%1</ReturnCode><Message>%2</Message></a>"_s.arg(number, text)
            .toUtf8();
    };
    const QString forbidden = u"Операция запрещена по статусу карты"_s;
    // clang-format off
    QTest::newRow("0")                          << answer(u"0"_s, u"OK"_s) << true << none;
    QTest::newRow("81301")                      << answer(u"81301"_s, u"x"_s) << true << none;
    QTest::newRow("80420, card's state")        << answer(u"80420"_s, forbidden) << true << QStringList{u"WARN Сообщение об ошибке: Операция запрещена по статусу карты, сообщение будет удалено"_s};
    QTest::newRow("80420, another message")     << answer(u"80420"_s, u"x"_s) << false << QStringList{code(u"80420"_s), u"WARN Сообщение об ошибке: x"_s};
    QTest::newRow("80420, a full stop more")    << answer(u"80420"_s, forbidden + u"."_s) << false << QStringList{code(u"80420"_s), u"WARN Сообщение об ошибке: "_s + forbidden + u"."_s};
    QTest::newRow("80420 without a message")    << "<a><ReturnCode>80420</ReturnCode></a>"_ba << false << QStringList{code(u"80420"_s)};
    QTest::newRow("another code, that message") << answer(u"80421"_s, forbidden) << false << QStringList{code(u"80421"_s), u"WARN Сообщение об ошибке: "_s + forbidden};
    QTest::newRow("another code")               << answer(u"5"_s, u"нет %1"_s) << false << QStringList{code(u"5"_s), u"WARN Сообщение об ошибке: нет %1"_s};
    QTest::newRow("another, empty message")     << answer(u"5"_s, u""_s) << false << QStringList{code(u"5"_s)};
    QTest::newRow("a code below 0")             << answer(u"-5"_s, u""_s) << false << QStringList{code(u"-5"_s)};
    QTest::newRow("no number is 0")             << answer(u"abc"_s, u"x"_s) << true << none;
    QTest::newRow("an empty code is 0")         << "<a><ReturnCode/></a>"_ba << true << none;
    QTest::newRow("more than 32 bits is 0")     << answer(u"4294967301"_s, u"x"_s) << true << none;
    QTest::newRow("the first code counts")      << "<a><ReturnCode>5</ReturnCode><ReturnCode>0</ReturnCode></a>"_ba << false << QStringList{code(u"5"_s)};
    QTest::newRow("the first message counts")   << "<a><Message>x</Message><ReturnCode>5</ReturnCode><Message>y</Message></a>"_ba << false << QStringList{code(u"5"_s), u"WARN Сообщение об ошибке: x"_s};
    QTest::newRow("deep inside")                << "<a><b><c><ReturnCode>0</ReturnCode></c></b></a>"_ba << true << none;
    QTest::newRow("no code")                    << "<a><Message>x</Message></a>"_ba << false << missing;
    QTest::newRow("another case")               << "<a><returncode>0</returncode></a>"_ba << false << missing;
    QTest::newRow("empty")                      << ""_ba << false << missing;
    QTest::newRow("not XML")                    << "{\"ReturnCode\":0}"_ba << false << missing;
    QTest::newRow("cut off after the code")     << "<a><ReturnCode>0</ReturnCode>"_ba << false << missing;
    QTest::newRow("own entity")                 << "<!DOCTYPE a [<!ENTITY b \"0\">]><a><ReturnCode>&b;</ReturnCode></a>"_ba << false << missing;
    QTest::newRow("entity in a file")           << "<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/hostname\">]><a><ReturnCode>&b;</ReturnCode></a>"_ba << false << missing;
    QTest::newRow("default namespace")          << "<a xmlns='urn:a'><ReturnCode>0</ReturnCode></a>"_ba << true << none;
    QTest::newRow("a prefix is another name")   << "<a xmlns:s='urn:s'><s:ReturnCode>0</s:ReturnCode></a>"_ba << false << missing;
    QTest::newRow("windows-1251")               << "<?xml version=\"1.0\" encoding=\"windows-1251\"?><a><ReturnCode>5</ReturnCode><Message>\xed\xe5\xf2</Message></a>"_ba << false << QStringList{code(u"5"_s), u"WARN Сообщение об ошибке: нет"_s};
    // clang-format on
}

void TestManzanaHandler::judgement()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);
    const LogCapture log(u"manzana"_s);
    QCOMPARE(ManzanaHandler(u"manzana"_s).parseReply(reply), finished);
    QCOMPARE(log.lines(), lines);
}

void TestManzanaHandler::replyDecides()
{
    FakeRestClient net({reply(200, "<a><ReturnCode>5</ReturnCode></a>")});
    QVERIFY(!deliver(u"manzana2019"_s, message));
}

void TestManzanaHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&ManzanaHandler::sendMessage), 5);
    QCOMPARE(slotOf(&ManzanaHandler::parseReply), 9);
}

QTEST_GUILESS_MAIN(TestManzanaHandler)
#include "tst_manzanahandler.moc"
