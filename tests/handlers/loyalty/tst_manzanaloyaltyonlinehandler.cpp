#include "handlers/loyalty/manzanaloyaltyonlinehandler.h"
#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

const QString opening = u"INFO Отправка сообщения 7"_s;
const QString checking = u"DEBUG Проверка запроса по возврату"_s;
const QString updating = u"INFO Обновление данных запроса на возврат"_s;
const QByteArray good = "<r><ReturnCode>0</ReturnCode><TransactionID>t 1</TransactionID>"
                        "<Processed>2026-01-31T12:30:00</Processed></r>";

QString message(const QString &xml)
{
    const QJsonObject body{{u"url"_s, u"http://online.test/a b"_s},
                           {u"headers"_s, QJsonObject{{u"X-Till"_s, 3}}},
                           {u"body"_s, xml},
                           {u"timeout"_s, 3}};
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

QString request(const QString &operation, const QString &rest)
{
    return u"<q><OperationType>%1</OperationType>%2<Card><CardNumber>2700</CardNumber></Card></q>"_s
        .arg(operation, rest);
}

const QString sale = request(u"Sale"_s, u"<Number>17</Number>"_s);
const QString returning = request(
    u"Return"_s, u"<Number>99</Number><ChequeReference><Number>17</Number></ChequeReference>"_s);

} // namespace

class TestManzanaLoyaltyOnlineHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void request_data();
    void request();
    void judgement_data();
    void judgement();
    void failedExchange_data();
    void failedExchange();
    void saleIsRemembered_data();
    void saleIsRemembered();
    void nothingIsRemembered_data();
    void nothingIsRemembered();
    void returnTakesTheDateOfItsSale_data();
    void returnTakesTheDateOfItsSale();
    void returnGoesOutAsItIs_data();
    void returnGoesOutAsItIs();
    void chequeDate_data();
    void chequeDate();
    void saleAndItsReturn();
    void largeSaleAndItsReturn();
    void originalRequestStaysAsItWas();
    void returnWithoutAReference();
    void brokenDocumentStore_data();
    void brokenDocumentStore();
    void otherExceptionsPassOn_data();
    void otherExceptionsPassOn();
    void operationsKeepTheirPlaces();

private:
    void putCard(int id, const QString &info, const QString &cheque = u"17"_s);
    QList<QVariantList> cards();

    std::unique_ptr<QueueDatabase> till;
};

void TestManzanaLoyaltyOnlineHandler::init()
{
    till = std::make_unique<QueueDatabase>();
}

void TestManzanaLoyaltyOnlineHandler::cleanup()
{
    till.reset();
}

void TestManzanaLoyaltyOnlineHandler::putCard(int id, const QString &info, const QString &cheque)
{
    till->query(
        u"INSERT INTO queues.documentcard (id, chequenumber, cardnumber, operationid, operationinfo) "
        "VALUES (?, ?, '2700', 'old', ?)"_s,
        {id, cheque, info});
}

QList<QVariantList> TestManzanaLoyaltyOnlineHandler::cards()
{
    return till->query(
        u"SELECT id, operationid, operationinfo FROM queues.documentcard ORDER BY id"_s);
}

void TestManzanaLoyaltyOnlineHandler::request_data()
{
    QTest::addColumn<QString>("xml");
    QTest::newRow("a sale without a card") << sale;
    QTest::newRow("a return without a card") << returning;
    QTest::newRow("another operation") << ::request(u"Bonus"_s, u"<Number>17</Number>"_s);
    QTest::newRow("no operation") << u"<q/>"_s;
    QTest::newRow("not XML") << u"hello %1"_s;
    QTest::newRow("empty") << u""_s;
    QTest::newRow("cut off") << u"<q><OperationType>Return</OperationType>"_s;
    QTest::newRow("own entity")
        << u"<!DOCTYPE q [<!ENTITY b \"Return\">]><q><OperationType>&b;</OperationType></q>"_s;
    QTest::newRow("a declaration")
        << u"<?xml version=\"1.0\" encoding=\"windows-1251\"?>\n<q  a='ж'/>"_s;
}

void TestManzanaLoyaltyOnlineHandler::request()
{
    QFETCH(QString, xml);
    FakeRestClient net({reply(200, good)});
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(xml)));
    compareRequest(net, {.steps = {u"setTimeout 15"_s, u"POST http://online.test/a%20b"_s},
                         .body = xml.toUtf8()});
}

void TestManzanaLoyaltyOnlineHandler::judgement_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QString>("text");

    const auto answer = [](const QByteArray &number) {
        return "<a><Message>m %1</Message><ReturnCode>" + number + "</ReturnCode></a>";
    };
    const QString none;
    // clang-format off
    QTest::newRow("0")                        << answer("0") << true << none;
    QTest::newRow("below 0")                  << answer("-5") << true << none;
    QTest::newRow("not a number")             << answer("abc") << true << none;
    QTest::newRow("a fraction")               << answer("5.0") << true << none;
    QTest::newRow("blanks are not text")      << answer(" ") << false << u"m %1"_s;
    QTest::newRow("above 32 bits")            << answer("2147483648") << true << none;
    QTest::newRow("the greatest number")      << answer("2147483647") << false << u"m %1"_s;
    QTest::newRow("81301")                    << answer("81301") << true << none;
    QTest::newRow("1")                        << answer("1") << false << u"m %1"_s;
    QTest::newRow("80420: nothing special")   << u"<a><ReturnCode>80420</ReturnCode><Message>Операция запрещена по статусу карты</Message></a>"_s.toUtf8() << false << u"Операция запрещена по статусу карты"_s;
    QTest::newRow("the first code counts")    << "<a><ReturnCode>1</ReturnCode><ReturnCode>0</ReturnCode></a>"_ba << false << u""_s;
    QTest::newRow("an empty code")            << answer("") << false << u"m %1"_s;
    QTest::newRow("no code")                  << "<a><Message>m</Message></a>"_ba << false << u"m"_s;
    QTest::newRow("empty")                    << ""_ba << false << u""_s;
    QTest::newRow("not XML")                  << "0"_ba << false << u""_s;
    QTest::newRow("cut off")                  << "<a><ReturnCode>0</ReturnCode>"_ba << false << u""_s;
    QTest::newRow("own entity")               << "<!DOCTYPE a [<!ENTITY b \"0\">]><a><ReturnCode>&b;</ReturnCode></a>"_ba << false << u""_s;
    QTest::newRow("default namespace")        << "<a xmlns='urn:a'><ReturnCode>0</ReturnCode></a>"_ba << true << none;
    QTest::newRow("windows-1251")             << "<?xml version=\"1.0\" encoding=\"windows-1251\"?><a><ReturnCode>5</ReturnCode><Message>\xed\xe5\xf2</Message></a>"_ba << false << u"нет"_s;
    // clang-format on
}

void TestManzanaLoyaltyOnlineHandler::judgement()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, finished);
    QFETCH(QString, text);
    const LogCapture log(u"manzanaloyaltyonline"_s);
    QCOMPARE(ManzanaLoyaltyOnlineHandler().parseReply(reply), finished);
    QCOMPARE(log.lines(), finished ? QStringList() : QStringList{u"ERROR Ошибка "_s + text});
}

void TestManzanaLoyaltyOnlineHandler::failedExchange_data()
{
    addLostExchanges();
    QTest::newRow("HTTP 500, code 0") << reply(500, good);
    QTest::newRow("HTTP 400, code 0") << reply(400, good);
}

void TestManzanaLoyaltyOnlineHandler::failedExchange()
{
    QFETCH(http::Response, answer);
    putCard(3, u""_s);
    compareOutcome(u"manzanaloyaltyonline"_s, message(sale), answer, false,
                   QStringList{opening, failureLine(answer)});
    QCOMPARE(cards(), (QList<QVariantList>{{3, u"old"_s, u""_s}}));
}

void TestManzanaLoyaltyOnlineHandler::saleIsRemembered_data()
{
    QTest::addColumn<QString>("processed");
    QTest::addColumn<QString>("date");
    // clang-format off
    QTest::newRow("local time")   << u"2026-01-31T12:30:00"_s << u"2026-01-31T12:30:00.000"_s;
    QTest::newRow("milliseconds") << u"2026-01-31T12:30:00.120"_s << u"2026-01-31T12:30:00.120"_s;
    QTest::newRow("UTC")          << u"2026-01-31T12:30:00Z"_s << u"2026-01-31T12:30:00.000Z"_s;
    QTest::newRow("a zone")       << u"2026-01-31T12:30:00+05:00"_s << u"2026-01-31T12:30:00.000+05:00"_s;
    QTest::newRow("no time")      << u"yesterday"_s << u""_s;
    QTest::newRow("absent")       << u""_s << u""_s;
    // clang-format on
}

void TestManzanaLoyaltyOnlineHandler::saleIsRemembered()
{
    QFETCH(QString, processed);
    QFETCH(QString, date);
    putCard(3, u""_s);
    putCard(4, u""_s, u"18"_s);
    FakeRestClient net({reply(
        200,
        u"<r><ReturnCode>0</ReturnCode><TransactionID>t 1</TransactionID><Processed>%1</Processed></r>"_s
            .arg(processed)
            .toUtf8())});
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(sale)));
    QCOMPARE(cards(),
             (QList<QVariantList>{{3, u"t 1"_s, u"{\"TransactionDate\":\"%1\"}"_s.arg(date)},
                                  {4, u"old"_s, u""_s}}));
}

void TestManzanaLoyaltyOnlineHandler::nothingIsRemembered_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<bool>("finished");
    // clang-format off
    QTest::newRow("another cheque")    << ::request(u"Sale"_s, u"<Number>18</Number>"_s) << good << true;
    QTest::newRow("another case")      << ::request(u"sale"_s, u"<Number>17</Number>"_s) << good << true;
    QTest::newRow("another operation") << ::request(u"Bonus"_s, u"<Number>17</Number>"_s) << good << true;
    QTest::newRow("a return")          << ::request(u"Return"_s, u"<Number>17</Number>"_s) << good << true;
    QTest::newRow("refused")           << sale << "<r><ReturnCode>5</ReturnCode><TransactionID>t</TransactionID></r>"_ba << false;
    // clang-format on
}

void TestManzanaLoyaltyOnlineHandler::nothingIsRemembered()
{
    QFETCH(QString, xml);
    QFETCH(QByteArray, answer);
    QFETCH(bool, finished);
    putCard(3, u""_s);
    FakeRestClient net({reply(200, answer)});
    QCOMPARE(deliver(u"manzanaloyaltyonline"_s, message(xml)), finished);
    QCOMPARE(cards(), (QList<QVariantList>{{3, u"old"_s, u""_s}}));
}

void TestManzanaLoyaltyOnlineHandler::returnTakesTheDateOfItsSale_data()
{
    QTest::addColumn<QString>("reference");
    QTest::addColumn<QByteArray>("sent");
    // clang-format off
    QTest::newRow("no date")       << u"<ChequeReference><Number>17</Number></ChequeReference>"_s
                                   << "  <Number>17</Number>\n  <DateTime>2026-01-31T12:30:00.000</DateTime>\n"_ba;
    QTest::newRow("an empty date") << u"<ChequeReference><DateTime/><Number>17</Number></ChequeReference>"_s
                                   << "  <Number>17</Number>\n  <DateTime>2026-01-31T12:30:00.000</DateTime>\n"_ba;
    // clang-format on
}

void TestManzanaLoyaltyOnlineHandler::returnTakesTheDateOfItsSale()
{
    QFETCH(QString, reference);
    QFETCH(QByteArray, sent);
    putCard(3, u"{\"TransactionDate\":\"2026-01-31T12:30:00.000\"}"_s);
    const LogCapture log(u"manzanaloyaltyonline"_s);
    FakeRestClient net({reply(200, good)});
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(::request(u"Return"_s, reference))));
    QCOMPARE(
        net.lastRequest().body,
        "<q>\n <OperationType>Return</OperationType>\n <ChequeReference>\n" + sent
            + " </ChequeReference>\n <Card>\n  <CardNumber>2700</CardNumber>\n </Card>\n</q>\n");
    QCOMPARE(log.lines(), (QStringList{opening, checking, updating}));
}

void TestManzanaLoyaltyOnlineHandler::returnGoesOutAsItIs_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QString>("info");
    const QString known = u"{\"TransactionDate\":\"2026-01-31T12:30:00.000\"}"_s;
    // clang-format off
    QTest::newRow("it has a date")           << ::request(u"Return"_s, u"<ChequeReference><Number>17</Number><DateTime>x</DateTime></ChequeReference>"_s) << known;
    QTest::newRow("no information")          << returning << u""_s;
    QTest::newRow("another cheque")          << ::request(u"Return"_s, u"<ChequeReference><Number>18</Number></ChequeReference>"_s) << known;
    QTest::newRow("the number elsewhere")    << ::request(u"Return"_s, u"<Number>17</Number><ChequeReference/>"_s) << known;
    QTest::newRow("the second reference")    << ::request(u"Return"_s, u"<ChequeReference/><ChequeReference><Number>17</Number></ChequeReference>"_s) << known;
    QTest::newRow("no return")               << ::request(u"return"_s, u"<ChequeReference><Number>17</Number></ChequeReference>"_s) << known;
    // clang-format on
}

void TestManzanaLoyaltyOnlineHandler::returnGoesOutAsItIs()
{
    QFETCH(QString, xml);
    QFETCH(QString, info);
    putCard(3, info);
    const LogCapture log(u"manzanaloyaltyonline"_s);
    FakeRestClient net({reply(200, good)});
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(xml)));
    QCOMPARE(net.lastRequest().body, xml.toUtf8());
    QVERIFY(!log.lines().contains(updating));
}

void TestManzanaLoyaltyOnlineHandler::chequeDate_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<bool>("hasDate");
    QTest::newRow("a date") << u"<q><ChequeReference><DateTime>x</DateTime></ChequeReference></q>"_s
                            << true;
    QTest::newRow("deep inside")
        << u"<q><ChequeReference><a><DateTime>x</DateTime></a></ChequeReference></q>"_s << true;
    QTest::newRow("an empty one") << u"<q><ChequeReference><DateTime/></ChequeReference></q>"_s
                                  << false;
    QTest::newRow("elsewhere") << u"<q><DateTime>x</DateTime><ChequeReference/></q>"_s << false;
    QTest::newRow("in the second reference")
        << u"<q><ChequeReference/><ChequeReference><DateTime>x</DateTime></ChequeReference></q>"_s
        << false;
    QTest::newRow("no reference") << u"<q/>"_s << false;
}

void TestManzanaLoyaltyOnlineHandler::chequeDate()
{
    QFETCH(QString, xml);
    QFETCH(bool, hasDate);
    QDomDocument document;
    QVERIFY(document.setContent(xml));
    const LogCapture log(u"manzanaloyaltyonline"_s);
    QCOMPARE(ManzanaLoyaltyOnlineHandler().hasChequeDate(document), hasDate);
    QCOMPARE(log.lines(), QStringList{checking});
}

void TestManzanaLoyaltyOnlineHandler::saleAndItsReturn()
{
    putCard(3, u""_s);
    FakeRestClient net({reply(200, good), reply(200, good)});
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(sale)));
    net.nextDelivery();
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(returning)));
    QVERIFY2(net.lastRequest().body.contains("<DateTime>2026-01-31T12:30:00.000</DateTime>"),
             net.lastRequest().body);
}

/// A cheque at the limit, with an answer of the same length.
void TestManzanaLoyaltyOnlineHandler::largeSaleAndItsReturn()
{
    constexpr qsizetype limit = 16 * 1024 * 1024;
    const QString line =
        u"<Item><ArticleNumber>4607</ArticleNumber><Quantity>1</Quantity></Item>"_s;
    const auto large = [&line](const QString &operation, const QString &rest) {
        const QString small = ::request(operation, rest);
        return ::request(operation, line.repeated((limit - small.size()) / line.size()) + rest);
    };
    const QByteArray item = "<Item><Id>7</Id></Item>";
    const QByteArray answer = QByteArray(good).replace(
        "<r>", "<r>" + item.repeated((4 * 1024 * 1024 - good.size()) / item.size()));
    putCard(3, u""_s);
    const LogCapture limits(u"xmlutils"_s);
    FakeRestClient net({reply(200, answer), reply(200, answer), reply(200, good)});
    QVERIFY(
        deliver(u"manzanaloyaltyonline"_s, message(large(u"Sale"_s, u"<Number>17</Number>"_s))));
    QCOMPARE(cards().first().at(1).toString(), u"t 1"_s);
    net.nextDelivery();
    const QString back =
        large(u"Return"_s, u"<ChequeReference><Number>17</Number></ChequeReference>"_s);
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(back)));
    QVERIFY(net.lastRequest().body.contains("<DateTime>2026-01-31T12:30:00.000</DateTime>"));
    QCOMPARE(net.lastRequest().body.count("<ArticleNumber>"), back.count(u"<ArticleNumber>"_s));
    QCOMPARE(limits.lines(), QStringList());

    // A larger one is sent as it was written, and the log says why.
    net.nextDelivery();
    const QString larger = back + QString(limit + 1 - back.size(), u' ');
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(larger)));
    QCOMPARE(net.lastRequest().body, larger.toUtf8());
    QCOMPARE(
        limits.lines(),
        QStringList{u"ERROR Документ XML не принят: размер 16777217 байт, допускается не более "
                    "16777216"_s});
}

void TestManzanaLoyaltyOnlineHandler::originalRequestStaysAsItWas()
{
    QDomDocument document;
    QVERIFY(document.setContent(returning));
    const QString before = document.toString(-1);
    const DocumentCardRecord card(3, u"2700"_s, u"t"_s,
                                  QVariantMap{{u"TransactionDate"_s, u"2026"_s}});
    QVERIFY(ManzanaLoyaltyOnlineHandler()
                .updateReturnRequest(document, card)
                .contains("<DateTime>2026</DateTime>"));
    QCOMPARE(document.toString(-1), before);
}

void TestManzanaLoyaltyOnlineHandler::returnWithoutAReference()
{
    QTest::failOnWarning(QRegularExpression(u"."_s));
    QDomDocument document;
    QVERIFY(document.setContent(u"<q/>"_s));
    const DocumentCardRecord card(3, u"2700"_s, u"t"_s,
                                  QVariantMap{{u"TransactionDate"_s, u"2026"_s}});
    QCOMPARE(ManzanaLoyaltyOnlineHandler().updateReturnRequest(document, card), "<q/>\n");
}

void TestManzanaLoyaltyOnlineHandler::brokenDocumentStore_data()
{
    QTest::addColumn<QString>("breakage");
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QString>("line");
    const QString noTable = u"DROP TABLE queues.documentcard"_s;
    const QString noColumn = u"ALTER TABLE queues.documentcard RENAME COLUMN operationinfo TO o"_s;
    const QString readOnly = u"CREATE TRIGGER queues.t BEFORE UPDATE ON documentcard "
                             "BEGIN SELECT RAISE(ABORT, 'disk full'); END"_s;
    const QString unsaved = u"ERROR Транзакция продажи не сохранена: "_s;
    const QString unread = u"ERROR Продажа не найдена из-за ошибки базы данных, возврат "
                           "отправляется без изменений: "_s;
    QTest::newRow("a sale, no table") << noTable << sale << unsaved;
    QTest::newRow("a sale, a column is missing") << noColumn << sale << unsaved;
    QTest::newRow("a sale, the store takes no writes") << readOnly << sale << unsaved;
    QTest::newRow("a return, no table") << noTable << returning << unread;
    QTest::newRow("a return, a column is missing") << noColumn << returning << unread;
}

void TestManzanaLoyaltyOnlineHandler::brokenDocumentStore()
{
    QFETCH(QString, breakage);
    QFETCH(QString, xml);
    QFETCH(QString, line);
    putCard(3, u"{\"TransactionDate\":\"2026-01-31T12:30:00.000\"}"_s);
    till->query(breakage);
    const LogCapture log(u"manzanaloyaltyonline"_s);
    FakeRestClient net({reply(200, good), reply(200, "<r><ReturnCode>5</ReturnCode></r>")});
    // Only the reply decides: an accepted purchase is not posted again.
    QVERIFY(deliver(u"manzanaloyaltyonline"_s, message(xml)));
    QCOMPARE(net.lastRequest().body, xml.toUtf8());
    const QStringList errors = log.lines().filter(u"ERROR "_s);
    QCOMPARE(errors.size(), 1);
    QVERIFY2(errors.first().startsWith(line), qPrintable(errors.first()));
    net.nextDelivery();
    QVERIFY(!deliver(u"manzanaloyaltyonline"_s, message(xml)));
}

void TestManzanaLoyaltyOnlineHandler::otherExceptionsPassOn_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<Script>("script");
    QTest::newRow("a sale, after it is booked") << sale << Script{reply(200, good)};
    QTest::newRow("a return, before it is sent") << returning << Script{};
}

/// They keep the message, which the engine sees to.
void TestManzanaLoyaltyOnlineHandler::otherExceptionsPassOn()
{
    struct Broken : ManzanaLoyaltyOnlineHandler
    {
        std::shared_ptr<DocumentCardRecord> findCardRecord(const QString & /*chequeNumber*/,
                                                           const QString & /*cardNumber*/) override
        {
            throw std::runtime_error("broken");
        }
    } handler;
    QFETCH(QString, xml);
    QFETCH(Script, script);
    const FakeRestClient net(script);
    Message message;
    message.body = {{u"body"_s, xml}};
    QVERIFY_THROWS_EXCEPTION(std::runtime_error, handler.sendMessage(message));
}

void TestManzanaLoyaltyOnlineHandler::operationsKeepTheirPlaces()
{
    using Handler = ManzanaLoyaltyOnlineHandler;
    QCOMPARE(slotOf(&Handler::sendMessage), 5);
    QCOMPARE(slotOf(&Handler::parseReply), 9);
    QCOMPARE(slotOf(&Handler::hasChequeDate), 10);
    QCOMPARE(slotOf(&Handler::findCardRecord), 11);
    QCOMPARE(slotOf(&Handler::saveTransaction), 12);
    QCOMPARE(slotOf(&Handler::updateReturnRequest), 13);
}

QTEST_GUILESS_MAIN(TestManzanaLoyaltyOnlineHandler)
#include "tst_manzanaloyaltyonlinehandler.moc"
