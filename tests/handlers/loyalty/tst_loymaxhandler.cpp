#include "handlers/loyalty/loymaxhandler.h"
#include "shared/core/basicexception.h"
#include "tests/handlers/support/onerequest.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

const QString opening = u"INFO Отправка сообщения"_s;
const QString repeating = u"INFO Попытка отправки сообщения без атрибутов корректировки цены"_s;
const QString tolerated =
    u"WARN Метод выполнен с допустимой ошибкой, сообщение будет удалено из очереди"_s;
const QString handledBefore =
    u"WARN Ранее запрос уже был успешно доставлен на сервер. Сообщение будет удалено из очереди"_s;
const QString strange = u"WARN Некорректный ответ от сервера"_s;

QString message(const QString &xml = u"<к %1/>"_s)
{
    const QJsonObject body{{u"url"_s, u"http://loymax.test/a b"_s},
                           {u"headers"_s, QJsonObject{{u"X-Till"_s, 3}}},
                           {u"body"_s, xml},
                           {u"cardId"_s, u"5"_s},
                           {u"timeout"_s, 3}};
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

http::Response answer(const QByteArray &element, const QByteArray &attributes)
{
    return reply(200, "<r><" + element + ' ' + attributes + "/></r>");
}

http::Response discount(const QByteArray &code)
{
    return answer("DiscountResponse", "ErrorCode='" + code + "'");
}

QString code(const QString &number)
{
    return u"WARN Код ошибки: "_s + number;
}

} // namespace

class TestLoymaxHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void request();
    void timeoutOfTheSettings();
    void judgement_data();
    void judgement();
    void uncriticalErrors_data();
    void uncriticalErrors();
    void listOfTheSettings();
    void failedExchange_data();
    void failedExchange();
    void repeatedWithoutCorrections_data();
    void repeatedWithoutCorrections();
    void repetition_data();
    void repetition();
    void largeRequestIsRepeated();
    void unreadableRequestIsNotRepeated_data();
    void unreadableRequestIsNotRepeated();
    void transaction_data();
    void transaction();
    void brokenDocumentStore();
    void otherExceptionsPassOn();
    void operationsAreVirtual();
    void operationsKeepTheirPlaces();

private:
    std::unique_ptr<QueueDatabase> till;
};

void TestLoymaxHandler::init()
{
    till = std::make_unique<QueueDatabase>();
}

void TestLoymaxHandler::cleanup()
{
    till.reset();
}

void TestLoymaxHandler::request()
{
    const LogCapture log(u"loymax"_s);
    FakeRestClient net({discount("0")});
    QVERIFY(deliver(u"loymax"_s, message()));
    compareRequest(net, {.steps = {u"setTimeout 20"_s, u"POST http://loymax.test/a%20b"_s},
                         .body = "<к %1/>"});
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestLoymaxHandler::timeoutOfTheSettings()
{
    till->setSettings(u"[Loymax]\ntimeout = 45\n"_s);
    LoymaxHandler handler;
    till->setSettings(u"[Loymax]\ntimeout = 3\n"_s);
    FakeRestClient net({discount("0")});
    QVERIFY(handler.sendMessage(Message()));
    QCOMPARE(net.steps().first(), u"setTimeout 45"_s);
}

void TestLoymaxHandler::judgement_data()
{
    QTest::addColumn<QByteArray>("reply");
    QTest::addColumn<bool>("done");
    QTest::addColumn<int>("errorCode");
    QTest::addColumn<QString>("transactionId");
    QTest::addColumn<QStringList>("lines");

    const QString id;
    const QStringList none;
    // clang-format off
    QTest::newRow("cancel 0")             << "<r><CancelPurchaseResponse ErrorCode='0'/></r>"_ba << true << 0 << id << none;
    QTest::newRow("confirm 0")            << "<r><ConfirmPurchaseResponse ErrorCode='0'/></r>"_ba << true << 0 << id << none;
    QTest::newRow("discount 0")           << "<r><DiscountResponse ErrorCode='0' TransactionID='t'/></r>"_ba << true << 0 << u"t"_s << none;
    QTest::newRow("refund 0")             << "<r><RefundResponse ErrorCode='0' TransactionID='t'/></r>"_ba << true << 0 << id << none;
    QTest::newRow("confirm with an id")   << "<r><ConfirmPurchaseResponse ErrorCode='0' TransactionID='t'/></r>"_ba << true << 0 << id << none;
    QTest::newRow("the root")             << "<RefundResponse ErrorCode='0'/>"_ba << true << 0 << id << none;
    QTest::newRow("deep inside")          << "<a><b><RefundResponse ErrorCode='0'/></b></a>"_ba << true << 0 << id << none;
    QTest::newRow("0 with a message")     << "<RefundResponse ErrorCode='0' ErrorMessage='x'/>"_ba << true << 0 << id << none;
    QTest::newRow("207")                  << "<RefundResponse ErrorCode='207' ErrorMessage='x'/>"_ba << true << 207 << id << QStringList{handledBefore};
    QTest::newRow("207, discount")        << "<DiscountResponse ErrorCode='207' TransactionID='t'/>"_ba << true << 207 << u"t"_s << QStringList{handledBefore};
    QTest::newRow("uncritical")           << "<RefundResponse ErrorCode='101' ErrorMessage='x %1'/>"_ba << true << 101 << id << QStringList{code(u"101"_s), u"WARN Сообщение об ошибке: x %1"_s, tolerated};
    QTest::newRow("uncritical, silent")   << "<RefundResponse ErrorCode='225'/>"_ba << true << 225 << id << QStringList{code(u"225"_s), tolerated};
    QTest::newRow("217")                  << "<RefundResponse ErrorCode='217'/>"_ba << false << 217 << id << QStringList{code(u"217"_s)};
    QTest::newRow("critical")             << "<RefundResponse ErrorCode='1' ErrorMessage='x'/>"_ba << false << 1 << id << QStringList{code(u"1"_s), u"WARN Сообщение об ошибке: x"_s};
    QTest::newRow("critical, discount")   << "<DiscountResponse ErrorCode='1' TransactionID='t'/>"_ba << false << 1 << u"t"_s << QStringList{code(u"1"_s)};
    QTest::newRow("no code")              << "<RefundResponse ErrorMessage='x'/>"_ba << false << 0 << id << QStringList{code(u""_s), u"WARN Сообщение об ошибке: x"_s};
    QTest::newRow("not a number")         << "<RefundResponse ErrorCode='abc'/>"_ba << false << 0 << id << QStringList{code(u"abc"_s)};
    QTest::newRow("00 is not 0")          << "<RefundResponse ErrorCode='00'/>"_ba << false << 0 << id << QStringList{code(u"00"_s)};
    QTest::newRow("0207 is not 207")      << "<RefundResponse ErrorCode='0207'/>"_ba << false << 207 << id << QStringList{code(u"0207"_s)};
    QTest::newRow("a blank and 101")      << "<RefundResponse ErrorCode=' 101'/>"_ba << false << 101 << id << QStringList{code(u" 101"_s)};
    QTest::newRow("cancel comes first")   << "<r><DiscountResponse ErrorCode='1' TransactionID='t'/><CancelPurchaseResponse ErrorCode='0'/></r>"_ba << true << 0 << id << none;
    QTest::newRow("confirm comes second") << "<r><RefundResponse ErrorCode='1'/><DiscountResponse ErrorCode='1' TransactionID='t'/><ConfirmPurchaseResponse ErrorCode='0'/></r>"_ba << true << 0 << id << none;
    QTest::newRow("discount comes third") << "<r><RefundResponse ErrorCode='1'/><DiscountResponse ErrorCode='0' TransactionID='t'/></r>"_ba << true << 0 << u"t"_s << none;
    QTest::newRow("the first of a name")  << "<r><RefundResponse ErrorCode='1'/><RefundResponse ErrorCode='0'/></r>"_ba << false << 1 << id << QStringList{code(u"1"_s)};
    QTest::newRow("another element")      << "<r><PurchaseResponse ErrorCode='0'/></r>"_ba << false << 0 << id << QStringList{strange};
    QTest::newRow("an element as text")   << "<RefundResponse><ErrorCode>0</ErrorCode></RefundResponse>"_ba << false << 0 << id << QStringList{code(u""_s)};
    QTest::newRow("empty")                << ""_ba << false << 0 << id << QStringList{strange};
    QTest::newRow("not XML")              << "{\"ErrorCode\":0}"_ba << false << 0 << id << QStringList{strange};
    QTest::newRow("cut off")              << "<r><DiscountResponse ErrorCode='0' TransactionID='t'/>"_ba << false << 0 << id << QStringList{strange};
    QTest::newRow("own entity")           << "<!DOCTYPE r [<!ENTITY b \"0\">]><RefundResponse ErrorCode='&b;'/>"_ba << false << 0 << id << QStringList{strange};
    QTest::newRow("entity in a file")     << "<!DOCTYPE r [<!ENTITY b SYSTEM \"file:///etc/hostname\">]><r>&b;<RefundResponse ErrorCode='0'/></r>"_ba << false << 0 << id << QStringList{strange};
    QTest::newRow("default namespace")    << "<r xmlns='urn:r'><RefundResponse ErrorCode='0'/></r>"_ba << true << 0 << id << none;
    QTest::newRow("a prefix is another")  << "<r xmlns:s='urn:s'><s:RefundResponse ErrorCode='0'/></r>"_ba << false << 0 << id << QStringList{strange};
    QTest::newRow("windows-1251")         << "<?xml version=\"1.0\" encoding=\"windows-1251\"?><RefundResponse ErrorCode='1' ErrorMessage='\xed\xe5\xf2'/>"_ba << false << 1 << id << QStringList{code(u"1"_s), u"WARN Сообщение об ошибке: нет"_s};
    // clang-format on
}

void TestLoymaxHandler::judgement()
{
    QFETCH(QByteArray, reply);
    QFETCH(bool, done);
    QFETCH(int, errorCode);
    QFETCH(QString, transactionId);
    QFETCH(QStringList, lines);

    const LogCapture log(u"loymax"_s);
    const LoymaxReply judged = LoymaxHandler().parseReply(::reply(200, reply));
    QCOMPARE(judged.done, done);
    QCOMPARE(judged.errorCode, errorCode);
    QCOMPARE(judged.transactionId, transactionId);
    QCOMPARE(log.lines(), lines);
}

void TestLoymaxHandler::uncriticalErrors_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<bool>("done");
    const QList<int> uncritical{2,   101, 102, 103, 110, 111, 201, 202, 203, 204, 205, 206, 208,
                                209, 210, 211, 214, 215, 216, 218, 220, 221, 222, 223, 224, 225};
    for (int number = 1; number <= 240; ++number) {
        if (number != 207)
            QTest::addRow("%d", number) << number << uncritical.contains(number);
    }
}

void TestLoymaxHandler::uncriticalErrors()
{
    QFETCH(int, number);
    QFETCH(bool, done);
    QCOMPARE(LoymaxHandler().parseReply(discount(QByteArray::number(number))).done, done);
}

void TestLoymaxHandler::listOfTheSettings()
{
    LoymaxHandler handler;
    till->setSettings(u"[Loymax]\nuncriticalErrors = 1,7 , ABC\n"_s);
    QVERIFY(handler.parseReply(discount("1")).done);
    QVERIFY(handler.parseReply(discount("7")).done);
    QVERIFY(handler.parseReply(discount("ABC")).done);
    QVERIFY(!handler.parseReply(discount("abc")).done);
    QVERIFY(!handler.parseReply(discount("101")).done);
    // Outcomes that the list cannot change.
    QVERIFY(handler.parseReply(discount("207")).done);
}

void TestLoymaxHandler::failedExchange_data()
{
    addLostExchanges();
    const QByteArray success = "<RefundResponse ErrorCode='0'/>";
    QTest::newRow("HTTP 500, code 0") << reply(500, success);
    QTest::newRow("HTTP 400, code 217") << reply(400, "<RefundResponse ErrorCode='217'/>");
}

void TestLoymaxHandler::failedExchange()
{
    QFETCH(http::Response, answer);
    compareOutcome(u"loymax"_s, message(), answer, false,
                   QStringList{opening, failureLine(answer)});
}

void TestLoymaxHandler::repeatedWithoutCorrections_data()
{
    QTest::addColumn<QString>("xml");
    QTest::addColumn<QByteArray>("repeated");
    // clang-format off
    QTest::newRow("lines anywhere")      << u"<r><ChequeLine Correction='5' Sum='1'/><a><ChequeLine Correction='6'>ж</ChequeLine></a></r>"_s
                                         << "<r>\n <ChequeLine Sum=\"1\"/>\n <a>\n  <ChequeLine>ж</ChequeLine>\n </a>\n</r>\n"_ba;
    QTest::newRow("the root is a line")  << u"<ChequeLine Correction='5'/>"_s << "<ChequeLine/>\n"_ba;
    QTest::newRow("no lines")            << u"<r  a='1'/>"_s << "<r a=\"1\"/>\n"_ba;
    QTest::newRow("elsewhere it stays")  << u"<r Correction='5'><Line Correction='6'/><ChequeLine correction='7'/></r>"_s
                                         << "<r Correction=\"5\">\n <Line Correction=\"6\"/>\n <ChequeLine correction=\"7\"/>\n</r>\n"_ba;
    // clang-format on
}

void TestLoymaxHandler::repeatedWithoutCorrections()
{
    QFETCH(QString, xml);
    QFETCH(QByteArray, repeated);
    FakeRestClient net({discount("217"), discount("0")});
    QVERIFY(deliver(u"loymax"_s, message(xml)));
    QCOMPARE(net.transcript(),
             (QStringList{u"POST http://loymax.test/a%20b"_s, u"POST http://loymax.test/a%20b"_s}));
    QCOMPARE(net.requestAt(0).body, xml.toUtf8());
    QCOMPARE(net.requestAt(1).body, repeated);
    QCOMPARE(net.requestAt(1).headers, net.requestAt(0).headers);
}

void TestLoymaxHandler::repetition_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QStringList>("lines");

    const QStringList first{code(u"217"_s), repeating};
    // clang-format off
    QTest::newRow("taken")            << Script{discount("217"), discount("0")} << true << first;
    QTest::newRow("handled before")   << Script{discount("217"), discount("207")} << true << first + QStringList{handledBefore};
    QTest::newRow("uncritical")       << Script{discount("217"), discount("101")} << true << first + QStringList{code(u"101"_s), tolerated};
    QTest::newRow("critical")         << Script{discount("217"), discount("1")} << false << first + QStringList{code(u"1"_s)};
    QTest::newRow("217 again")        << Script{discount("217"), discount("217")} << false << first + QStringList{code(u"217"_s)};
    QTest::newRow("strange reply")    << Script{discount("217"), reply(200, "<r/>")} << false << first + QStringList{strange};
    QTest::newRow("lost")             << Script{discount("217"), noConnection()} << false << first + QStringList{u"ERROR Ошибка при отправке сообщения: "_s + noConnection().errorText.ru()};
    // clang-format on
}

void TestLoymaxHandler::repetition()
{
    QFETCH(Script, script);
    QFETCH(bool, finished);
    QFETCH(QStringList, lines);
    const LogCapture log(u"loymax"_s);
    FakeRestClient net(script);
    QCOMPARE(deliver(u"loymax"_s, message(u"<r/>"_s)), finished);
    QCOMPARE(net.requests().size(), 2);
    QCOMPARE(log.lines(), QStringList{opening} + lines);
}

void TestLoymaxHandler::largeRequestIsRepeated()
{
    constexpr qsizetype limit = 16 * 1024 * 1024;
    const QString line =
        u"<ChequeLine Correction=\"1.50\" Sum=\"10.00\"><Name>b</Name></ChequeLine>"_s;
    const QString request = u"<r>"_s + line.repeated((limit - 10) / line.size()) + u"</r>"_s;
    const LogCapture limits(u"xmlutils"_s);
    FakeRestClient net({discount("217"), discount("0")});
    QElapsedTimer timer;
    timer.start();
    QVERIFY(deliver(u"loymax"_s, message(request)));
    QVERIFY2(timer.elapsed() < 60'000, qPrintable(QString::number(timer.elapsed())));
    QVERIFY(!net.lastRequest().body.contains("Correction"));
    QCOMPARE(net.lastRequest().body.count("<ChequeLine Sum=\"10.00\">"),
             (limit - 10) / line.size());
    QCOMPARE(limits.lines(), QStringList());

    const QString tooLarge = request + QString(limit + 1 - request.size(), u' ');
    const LogCapture log(u"loymax"_s);
    net.nextDelivery();
    net.play({discount("217")});
    QVERIFY(!deliver(u"loymax"_s, message(tooLarge)));
    QCOMPARE(log.lines().last(), u"ERROR Некорректный xml-запрос"_s);
    QCOMPARE(
        limits.lines(),
        QStringList{u"ERROR Документ XML не принят: размер 16777217 байт, допускается не более "
                    "16777216"_s});
}

void TestLoymaxHandler::unreadableRequestIsNotRepeated_data()
{
    QTest::addColumn<QString>("xml");
    QTest::newRow("not XML") << u"hello"_s;
    QTest::newRow("empty") << u""_s;
    QTest::newRow("cut off") << u"<r><ChequeLine/>"_s;
    QTest::newRow("own entity") << u"<!DOCTYPE r [<!ENTITY b \"0\">]><r>&b;</r>"_s;
}

void TestLoymaxHandler::unreadableRequestIsNotRepeated()
{
    QFETCH(QString, xml);
    const LogCapture log(u"loymax"_s);
    FakeRestClient net({discount("217")});
    QVERIFY(!deliver(u"loymax"_s, message(xml)));
    QCOMPARE(log.lines(),
             (QStringList{opening, code(u"217"_s), repeating, u"ERROR Некорректный xml-запрос"_s}));
}

void TestLoymaxHandler::transaction_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<bool>("finished");
    QTest::addColumn<QString>("stored");

    const auto named = [](const QByteArray &number, const QByteArray &id) {
        return answer("DiscountResponse", "ErrorCode='" + number + "' TransactionID='" + id + "'");
    };
    // clang-format off
    QTest::newRow("good")                 << Script{named("0", "t 1")} << true << u"t 1"_s;
    QTest::newRow("no id")                << Script{discount("0")} << true << u"old"_s;
    QTest::newRow("a code that is not good") << Script{named("1", "t2")} << false << u"t2"_s;
    QTest::newRow("of the second reply")  << Script{named("217", "t3"), named("0", "t4")} << true << u"t4"_s;
    QTest::newRow("the second has none")  << Script{named("217", "t3"), discount("0")} << true << u"old"_s;
    // clang-format on
}

void TestLoymaxHandler::transaction()
{
    QFETCH(Script, script);
    QFETCH(bool, finished);
    QFETCH(QString, stored);

    for (const int id : {4, 5})
        till->query(
            u"INSERT INTO queues.documentcard (id, chequenumber, cardnumber, operationid, operationinfo) "
            "VALUES (?, '17', '2700', 'old', '{\"a\":1}')"_s,
            {id});
    const LogCapture log(u"loymax"_s);
    FakeRestClient net(script);
    QCOMPARE(deliver(u"loymax"_s, message(u"<r/>"_s)), finished);
    const auto rows =
        till->query(u"SELECT operationid, operationinfo FROM queues.documentcard ORDER BY id"_s);
    QCOMPARE(rows, (QList<QVariantList>{{u"old"_s, u"{\"a\":1}"_s}, {stored, u"{\"a\":1}"_s}}));
    QCOMPARE(log.lines().contains(
                 u"INFO Обновление идентификатора транзакции %1 для карты 5"_s.arg(stored)),
             stored != u"old");
}

void TestLoymaxHandler::brokenDocumentStore()
{
    till->query(u"DROP TABLE queues.documentcard"_s);
    const LogCapture log(u"loymax"_s);
    FakeRestClient net({answer("DiscountResponse", "ErrorCode='0' TransactionID='t'"),
                        answer("DiscountResponse", "ErrorCode='1' TransactionID='t'")});
    QVERIFY(deliver(u"loymax"_s, message()));
    QCOMPARE(log.lines().size(), 3);
    QVERIFY2(
        log.lines().last().startsWith(
            u"ERROR Идентификатор транзакции не сохранён: Не удалось сохранить карту документа"_s),
        qPrintable(log.lines().last()));
    net.nextDelivery();
    QVERIFY(!deliver(u"loymax"_s, message()));
}

/// They keep the message, which the engine sees to.
void TestLoymaxHandler::otherExceptionsPassOn()
{
    struct Broken : LoymaxHandler
    {
        void updateTransactionId(const QString & /*cardId*/,
                                 const QString & /*transactionId*/) override
        {
            throw std::runtime_error("broken");
        }
    } handler;
    FakeRestClient net({answer("DiscountResponse", "ErrorCode='0' TransactionID='t'")});
    QVERIFY_THROWS_EXCEPTION(std::runtime_error, handler.sendMessage({}));
}

void TestLoymaxHandler::operationsAreVirtual()
{
    struct Recording : LoymaxHandler
    {
        LoymaxReply parseReply(const http::Response &response) override
        {
            seen += QString::fromUtf8(response.body);
            return {true, u"t"_s, 0};
        }
        void updateTransactionId(const QString &cardId, const QString &transactionId) override
        {
            seen += u"%1 %2"_s.arg(cardId, transactionId);
        }
        QStringList seen;
    } handler;
    FakeRestClient net({reply(200, "r")});
    Message message;
    message.body = {{u"cardId"_s, u"5"_s}};
    QVERIFY(handler.sendMessage(message));
    QCOMPARE(handler.seen, (QStringList{u"r"_s, u"5 t"_s}));
}

void TestLoymaxHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&LoymaxHandler::sendMessage), 5);
    QCOMPARE(slotOf(&LoymaxHandler::parseReply), 9);
    QCOMPARE(slotOf(&LoymaxHandler::updateTransactionId), 10);
}

QTEST_GUILESS_MAIN(TestLoymaxHandler)
#include "tst_loymaxhandler.moc"
