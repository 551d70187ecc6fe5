#include "handlers/other/rsloyaltyhandler.h"
#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message =
    uR"({"url":"http://rs.test/a","headers":{"X-Till":3},"body":"<к %1/>","request":"AddBonus","timeout":3})"_s;
const QString opening = u"INFO Отправка сообщения"_s;

QByteArray fault(const QString &text)
{
    return u"<e><Body><Fault><faultstring>%1</faultstring></Fault></Body></e>"_s
        .replace(u"%1"_s, text)
        .toUtf8();
}

QString dropped(const QString &text)
{
    return u"WARN Сообщение об ошибке: %1, сообщение будет удалено"_s.arg(text);
}

} // namespace

class TestRSLoyaltyHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void request();
    void judgement_data();
    void judgement();
    void delivery_data();
    void delivery();
    void operationsKeepTheirPlaces();
};

void TestRSLoyaltyHandler::request()
{
    const LogCapture log(u"rsloyalty"_s);
    FakeRestClient net({reply(200, "<a><AddBonusResult>true</AddBonusResult></a>")});
    QVERIFY(deliver(u"rsloyalty"_s, message));
    compareRequest(net,
                   {.steps = {u"setTimeout 10"_s, u"POST http://rs.test/a"_s}, .body = "<к %1/>"});
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestRSLoyaltyHandler::judgement_data()
{
    QTest::addColumn<QString>("request");
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QString>("line");

    const QString add = u"AddBonus"_s;
    const QString none;
    const QString inactive = u"Дисконтная карта не активирована"_s;
    const QString unknown = u"Дисконтная карта не найдена"_s;
    // clang-format off
    QTest::newRow("true")                        << add << 200 << "<a><b><AddBonusResult>true</AddBonusResult></b></a>"_ba << true << none;
    QTest::newRow("true, as the root")           << add << 200 << "<AddBonusResult>true</AddBonusResult>"_ba << true << none;
    QTest::newRow("True")                        << add << 200 << "<a><AddBonusResult>True</AddBonusResult></a>"_ba << false << none;
    QTest::newRow("false")                       << add << 200 << "<a><AddBonusResult>false</AddBonusResult></a>"_ba << false << none;
    QTest::newRow("the first one counts")        << add << 200 << "<a><AddBonusResult>false</AddBonusResult><AddBonusResult>true</AddBonusResult></a>"_ba << false << none;
    QTest::newRow("the result of another")       << add << 200 << "<a><DelBonusResult>true</DelBonusResult></a>"_ba << false << none;
    QTest::newRow("another case of the name")    << add << 200 << "<a><addbonusresult>true</addbonusresult></a>"_ba << false << none;
    QTest::newRow("no request: Result alone")    << u""_s << 200 << "<a><Result>true</Result></a>"_ba << true << none;
    QTest::newRow("declared namespaces")         << add << 200 << "<s:e xmlns:s='urn:s'><AddBonusResult xmlns='urn:a'>true</AddBonusResult></s:e>"_ba << true << none;
    QTest::newRow("another name by its prefix")  << add << 200 << "<e xmlns:s='urn:s'><s:AddBonusResult>true</s:AddBonusResult></e>"_ba << false << none;
    QTest::newRow("201 is not 200")              << add << 201 << "<a><AddBonusResult>true</AddBonusResult></a>"_ba << false << none;
    QTest::newRow("a fault with 200")            << add << 200 << fault(unknown) << false << none;
    QTest::newRow("empty, 200")                  << add << 200 << ""_ba << false << none;
    QTest::newRow("cut off after the result")    << add << 200 << "<a><AddBonusResult>true</AddBonusResult>"_ba << false << none;
    QTest::newRow("own entity")                  << add << 200 << "<!DOCTYPE a [<!ENTITY b \"true\">]><a><AddBonusResult>&b;</AddBonusResult></a>"_ba << false << none;
    QTest::newRow("windows-1251")                << add << 500 << "<?xml version=\"1.0\" encoding=\"windows-1251\"?><faultstring>\xc4\xe8\xf1\xea\xee\xed\xf2\xed\xe0\xff \xea\xe0\xf0\xf2\xe0 \xed\xe5 \xed\xe0\xe9\xe4\xe5\xed\xe0.</faultstring>"_ba << true << dropped(unknown);
    QTest::newRow("not activated")               << add << 500 << fault(inactive) << true << dropped(inactive);
    QTest::newRow("not activated, full stop")    << add << 500 << fault(inactive + u"."_s) << true << dropped(inactive);
    QTest::newRow("unknown card")                << add << 500 << fault(unknown) << true << dropped(unknown);
    QTest::newRow("unknown card, full stop")     << add << 500 << fault(unknown + u"."_s) << true << dropped(unknown);
    QTest::newRow("full stops anywhere")         << add << 500 << fault(u".Дисконтная карта. не найдена..."_s) << true << dropped(unknown);
    QTest::newRow("unknown card, status 400")    << add << 400 << fault(unknown) << true << dropped(unknown);
    QTest::newRow("unknown card, no status")     << add << 0 << fault(unknown) << true << dropped(unknown);
    QTest::newRow("another sign at the end")     << add << 500 << fault(unknown + u"!"_s) << false << none;
    QTest::newRow("a blank at the end")          << add << 500 << fault(unknown + u" "_s) << false << none;
    QTest::newRow("another fault")               << add << 500 << fault(u"Сервер занят"_s) << false << none;
    QTest::newRow("the first fault counts")      << add << 500 << "<a><faultstring>x</faultstring>" + fault(unknown) + "</a>" << false << none;
    QTest::newRow("a result with 500")           << add << 500 << "<a><AddBonusResult>true</AddBonusResult></a>"_ba << false << none;
    QTest::newRow("empty, 500")                  << add << 500 << ""_ba << false << none;
    // clang-format on
}

void TestRSLoyaltyHandler::judgement()
{
    QFETCH(QString, request);
    QFETCH(int, status);
    QFETCH(QByteArray, reply);
    QFETCH(bool, finished);
    QFETCH(QString, line);

    const LogCapture log(u"rsloyalty"_s);
    QCOMPARE(RSLoyaltyHandler().parseReply(request, status, reply), finished);
    QCOMPARE(log.lines(), line.isEmpty() ? QStringList() : QStringList{line});
}

void TestRSLoyaltyHandler::delivery_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QString unknown = u"Дисконтная карта не найдена"_s;
    const auto failed = [](const http::Response &response) {
        return QStringList{u"ERROR Ошибка при отправке сообщения: "_s + response.errorText.ru()};
    };
    // clang-format off
    QTest::newRow("false")          << reply(200, "<a><AddBonusResult>false</AddBonusResult></a>") << false << QStringList();
    QTest::newRow("unknown card")   << reply(500, fault(unknown)) << true << QStringList{dropped(unknown)};
    QTest::newRow("another fault")  << reply(500, fault(u"x"_s)) << false << failed(reply(500));
    QTest::newRow("204")            << reply(204) << false << QStringList();
    QTest::newRow("no connection")  << noConnection() << false << failed(noConnection());
    QTest::newRow("no answer in time") << timeout() << false << failed(timeout());
    QTest::newRow("a reply cut off")   << http::Response::failed(2, tr::Tr(u"оборвано"_s), 200) << false << QStringList{u"ERROR Ошибка при отправке сообщения: оборвано"_s};
    // clang-format on
}

void TestRSLoyaltyHandler::delivery()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);

    compareOutcome(u"rsloyalty"_s, message, answer, finished, QStringList{opening} + lines);
}

void TestRSLoyaltyHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&RSLoyaltyHandler::sendMessage), 5);
    QCOMPARE(slotOf(&RSLoyaltyHandler::parseReply), 9);
}

QTEST_GUILESS_MAIN(TestRSLoyaltyHandler)
#include "tst_rsloyaltyhandler.moc"
