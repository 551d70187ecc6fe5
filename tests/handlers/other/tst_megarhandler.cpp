#include "handlers/other/megarhandler.h"
#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QRegularExpression>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message =
    uR"({"url":"http://mega.test/a","headers":{"X-Till":3},"body":"<к %1/>","timeout":7})"_s;

} // namespace

class TestMegarHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request_data();
    void request();
    void failedExchange_data();
    void failedExchange();
    void judgement_data();
    void judgement();
    void unreadable_data();
    void unreadable();
    void replyDecides();
    void operationsKeepTheirPlaces();
};

void TestMegarHandler::request_data()
{
    QTest::addColumn<QString>("type");
    QTest::newRow("megar") << u"megar"_s;
    QTest::newRow("rrsocial") << u"rrsocial"_s;
}

void TestMegarHandler::request()
{
    QFETCH(QString, type);
    const LogCapture log(type);
    FakeRestClient net({reply(200, "<a><Rspn>APPR</Rspn></a>")});
    QVERIFY(deliver(type, message));
    compareRequest(net,
                   {.steps = {u"setTimeout 7"_s, u"POST http://mega.test/a"_s}, .body = "<к %1/>"});
    QCOMPARE(log.lines(), QStringList{u"INFO Отправка сообщения"_s});
}

void TestMegarHandler::failedExchange_data()
{
    addLostExchanges();
    QTest::newRow("HTTP 500, approved") << reply(500, "<a><Rspn>APPR</Rspn></a>");
    QTest::newRow("HTTP 400, handled before")
        << reply(400, "<a><Rspn>D</Rspn><RspnRsn>331</RspnRsn></a>");
}

void TestMegarHandler::failedExchange()
{
    QFETCH(http::Response, answer);
    compareOutcome(u"megar"_s, message, answer, false,
                   QStringList{u"INFO Отправка сообщения"_s, failureLine(answer)});
}

void TestMegarHandler::judgement_data()
{
    QTest::addColumn<QString>("reply");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QString>("line");

    const QString none;
    const QString noResult = u"WARN Не найден результат обработки транзакции"_s;
    const QString refused = u"WARN Операция не выполнена"_s;
    const QString before = u"WARN Транзакция была обработана ранее, удаляем сообщение из очереди"_s;
    // clang-format off
    QTest::newRow("approved")                      << u"<a><Rspn>APPR</Rspn></a>"_s << true << none;
    QTest::newRow("approved, deep inside")         << u"<a><b><c><Rspn>APPR</Rspn></c></b></a>"_s << true << none;
    QTest::newRow("approved, with a reason")       << u"<a><Rspn>APPR</Rspn><RspnRsn>5</RspnRsn></a>"_s << true << none;
    QTest::newRow("approved in another case")      << u"<a><Rspn>Appr</Rspn></a>"_s << false << refused;
    QTest::newRow("approved between blanks")       << u"<a><Rspn> APPR </Rspn></a>"_s << false << refused;
    QTest::newRow("the first one counts")          << u"<a><Rspn>DECL</Rspn><Rspn>APPR</Rspn></a>"_s << false << refused;
    QTest::newRow("approved, declared namespace")  << u"<a xmlns='urn:a'><Rspn>APPR</Rspn></a>"_s << true << none;
    QTest::newRow("another name by its prefix")    << u"<a xmlns:s='urn:s'><s:Rspn>APPR</s:Rspn></a>"_s << false << noResult;
    QTest::newRow("no result")                     << u"<a/>"_s << false << noResult;
    QTest::newRow("the result is the root")        << u"<Rspn>APPR</Rspn>"_s << false << noResult;
    QTest::newRow("another case of the name")      << u"<a><RSPN>APPR</RSPN></a>"_s << false << noResult;
    QTest::newRow("declined without a reason")     << u"<a><Rspn>DECL</Rspn></a>"_s << false << refused;
    QTest::newRow("handled before: 227")           << u"<a><Rspn>DECL</Rspn><RspnRsn>227</RspnRsn></a>"_s << true << before;
    QTest::newRow("handled before: 331")           << u"<a><Rspn>DECL</Rspn><RspnRsn>331</RspnRsn></a>"_s << true << before;
    QTest::newRow("handled before: 442")           << u"<a><Rspn>DECL</Rspn><RspnRsn>442</RspnRsn></a>"_s << true << before;
    QTest::newRow("an empty result: 331")          << u"<a><Rspn/><RspnRsn>331</RspnRsn></a>"_s << true << before;
    QTest::newRow("the first reason counts")       << u"<a><Rspn/><RspnRsn>1</RspnRsn><RspnRsn>331</RspnRsn></a>"_s << false << refused;
    QTest::newRow("a reason without a result")     << u"<a><RspnRsn>331</RspnRsn></a>"_s << false << noResult;
    QTest::newRow("another reason")                << u"<a><Rspn/><RspnRsn>228</RspnRsn></a>"_s << false << refused;
    QTest::newRow("a reason that is not a number") << u"<a><Rspn/><RspnRsn>abc</RspnRsn></a>"_s << false << refused;
    QTest::newRow("331 and more")                  << u"<a><Rspn/><RspnRsn>331a</RspnRsn></a>"_s << false << refused;
    // 331 in the low 32 bits of a larger number.
    QTest::newRow("a reason of more than 32 bits")<< u"<a><Rspn/><RspnRsn>4294967627</RspnRsn></a>"_s << false << refused;
    // clang-format on
}

void TestMegarHandler::judgement()
{
    QFETCH(QString, reply);
    QFETCH(bool, finished);
    QFETCH(QString, line);

    const LogCapture log(u"megar"_s);
    QCOMPARE(MegarHandler(u"megar"_s).parseReply(reply.toUtf8()), finished);
    QCOMPARE(log.lines(), line.isEmpty() ? QStringList() : QStringList{line});
}

void TestMegarHandler::unreadable_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<QString>("place");
    // clang-format off
    QTest::newRow("empty")             << ""_ba << u"1, 0"_s;
    QTest::newRow("not XML")           << "APPR"_ba << u"1, 1"_s;
    QTest::newRow("cut off")           << "<a>\n<Rspn>APPR</Rspn>\n"_ba << u"3, 0"_s;
    QTest::newRow("wrong end")         << "<a><Rspn>APPR</Rspn></b>"_ba << u"1, \\d+"_s;
    QTest::newRow("undeclared prefix") << "<a><s:b/><Rspn>APPR</Rspn></a>"_ba << u"1, \\d+"_s;
    QTest::newRow("own entity")        << "<!DOCTYPE a [<!ENTITY b \"APPR\">]><a><Rspn>&b;</Rspn></a>"_ba << u"1, \\d+"_s;
    QTest::newRow("entity in a file")  << "<!DOCTYPE a [<!ENTITY b SYSTEM \"file:///etc/hostname\">]><a><Rspn>&b;</Rspn></a>"_ba << u"1, \\d+"_s;
    // clang-format on
}

void TestMegarHandler::unreadable()
{
    QFETCH(QByteArray, reply);
    QFETCH(QString, place);

    const LogCapture log(u"megar"_s);
    QVERIFY(!MegarHandler(u"megar"_s).parseReply(reply));
    QCOMPARE(log.lines().size(), 1);
    const QRegularExpression line(
        u"^WARN Не удалось интерпретировать ответ от сервера\\(\\[%1\\] .+\\)$"_s.arg(place),
        QRegularExpression::DotMatchesEverythingOption);
    QVERIFY2(line.match(log.lines().first()).hasMatch(), qPrintable(log.lines().first()));
}

void TestMegarHandler::replyDecides()
{
    compareOutcome(u"megar"_s, message, reply(200, "<a><Rspn>DECL</Rspn></a>"), false,
                   {u"INFO Отправка сообщения"_s, u"WARN Операция не выполнена"_s});
    compareOutcome(u"megar"_s, message,
                   reply(200, "<a><Rspn>DECL</Rspn><RspnRsn>331</RspnRsn></a>"), true,
                   {u"INFO Отправка сообщения"_s,
                    u"WARN Транзакция была обработана ранее, удаляем сообщение из очереди"_s});
}

void TestMegarHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&MegarHandler::sendMessage), 5);
    QCOMPARE(slotOf(&MegarHandler::parseReply), 9);
}

QTEST_GUILESS_MAIN(TestMegarHandler)
#include "tst_megarhandler.moc"
