#include "handlers/mindbox/results.h"
#include "shared/net/httpresponse.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/testsettings.h"
#include "tests/support/vtable.h"

#include <log4qt/logmanager.h>

#include <QJsonArray>
#include <QTest>
#include <QTimeZone>

#include <type_traits>

using namespace Qt::StringLiterals;
using namespace mindbox;

namespace {

/// Reads one field of a result that is made from this reply.
using Reader = std::function<QVariant(const OperationResult &)>;

/// The value that a field is read as.
enum class Kind
{
    Text,
    LooseText,
    Number,
    Integer,
    Flag,
    Status,
    Time
};

OperationResult resultOf(const http::Response &response)
{
    return OperationResult(response, *Log4Qt::LogManager::logger(u"mindbox"_s));
}

OperationResult resultOf(const QByteArray &body, int status = 200)
{
    return resultOf(reply(status, body));
}

OperationResult resultOf(const QJsonObject &object)
{
    return resultOf(json(200, object));
}

/// The value at the end of a dotted path, where `[]` is a list with one element.
QJsonValue placed(const QStringList &keys, QJsonValue value)
{
    for (auto key = keys.crbegin(); key != keys.crend(); ++key) {
        if (*key == "[]"_L1)
            value = QJsonArray{value};
        else
            value = QJsonObject{{*key, value}};
    }
    return value;
}

OperationResult resultWith(const QStringList &keys, const QJsonValue &value)
{
    QJsonObject object = placed(keys, value).toObject();
    if (!object.contains(u"customer"_s))
        object.insert(u"customer"_s, QJsonObject());
    return resultOf(object);
}

/// Values of other types than the field's.
QJsonArray wrongValues(Kind kind)
{
    QJsonArray values{QJsonValue::Null,
                      QJsonArray(),
                      QJsonArray{QJsonArray{u"x"_s, 17}},
                      QJsonObject(),
                      QJsonObject{{u"x"_s, 1}},
                      QJsonObject{{u"lines"_s, QJsonObject{{u"ids"_s, QJsonArray{17}}}}}};
    if (kind != Kind::LooseText && kind != Kind::Flag)
        values.append(true);
    if (kind != Kind::LooseText && kind != Kind::Number && kind != Kind::Integer)
        values.append(17);
    if (kind == Kind::Number || kind == Kind::Integer || kind == Kind::Flag)
        values.append(u"true"_s);
    if (kind == Kind::Integer) {
        values.append(1.5);
        values.append(3e9);
    }
    if (kind == Kind::Time)
        values.append(u"yesterday"_s);
    return values;
}

int number(ProcessingStatus status)
{
    return static_cast<int>(status);
}

} // namespace

class TestMindboxResults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void requestStatus_data();
    void requestStatus();
    void processingStatus_data();
    void processingStatus();
    void errorInReply_data();
    void errorInReply();
    void fields_data();
    void fields();
    void wrongTypes_data() { fields_data(); }
    void wrongTypes();
    void textOnTheWay();
    void customerWithoutStatus_data();
    void customerWithoutStatus();
    void customerBlockNeedsItsKey();
    void onlyActivatedCards();
    void balances();
    void preorder();
    void couponsByTheirCodes();
    void lineIds_data();
    void lineIds();
    void earnedBalancesForEachLine();
    void begin_data();
    void begin();
    void verdicts_data();
    void verdicts();
    void errorTexts_data();
    void errorTexts();
    void replacedCardsHaveOnlyAStatus();
    void copiesTheWholeResult();
    void strangeReplies_data();
    void strangeReplies();
    void almostFourMebibytes();
};

void TestMindboxResults::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&RequestResult::isSuccess), 0);
    QCOMPARE(slotOf(&RequestResult::error), 1);
    QCOMPARE(slotOf(&RequestResult::errorOr), 2);
    QVERIFY(!std::has_virtual_destructor_v<RequestResult>);
    QVERIFY(!std::has_virtual_destructor_v<ReplaceCardResult>);
    QVERIFY(std::has_virtual_destructor_v<OperationResult>);
    QVERIFY((std::is_base_of_v<RequestResult, OperationResult>));
    QVERIFY((std::is_base_of_v<RequestResult, ReplaceCardResult>));
    QVERIFY((!std::is_base_of_v<OperationResult, ReplaceCardResult>));
}

void TestMindboxResults::requestStatus_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("noConnection");
    QTest::addColumn<QString>("error");

    const QString lost = u"Ошибка связи с сервером"_s;
    const auto row = [](const char *name, const http::Response &answer, int status,
                        bool noConnection = false, const QString &error = QString()) {
        QTest::newRow(name) << answer << status << noConnection << error;
    };
    // clang-format off
    row("success",                      reply(200, R"({"status":"Success"})"),         2);
    row("validation error",             reply(200, R"({"status":"ValidationError"})"), 3);
    row("protocol error",               reply(400, R"({"status":"ProtocolError"})"),   4);
    row("another status",               reply(200, R"({"status":"Failed"})"),          0);
    row("other case",                   reply(200, R"({"status":"success"})"),         0);
    row("not a text",                   reply(200, R"({"status":2})"),                 0);
    row("no status",                    reply(200, R"({"a":1})"),                      0);
    row("500 with another key",         reply(500, R"({"a":1})"),                      0);
    row("error wins over success",      reply(200, R"({"status":"Success","errorMessage":"x"})"), 1);
    row("an error that is null",        reply(200, R"({"status":"Success","errorMessage":null})"), 1);
    row("an error of the service, 500", reply(500, R"({"errorMessage":"x"})"),         1);
    row("500, empty",                   reply(500),                                    1, true, lost);
    row("500, empty object",            reply(500, "{}"),                              1, true, lost);
    row("500, not JSON",                reply(500, "<html/>"),                         1, true, lost);
    row("500, a list",                  reply(500, R"([{"status":"Success"}])"),       1, true, lost);
    row("400, empty",                   reply(400),                                    1, true, lost);
    row("201, empty",                   reply(201),                                    1, true, lost);
    row("refused",                      noConnection(),                                1, true, lost);
    row("too late",                     timeout(),                                     1, true, lost);
    row("200, empty",                   reply(200),                                    0);
    row("200, empty object",            reply(200, "{}"),                              0);
    row("200, a list",                  reply(200, R"([{"status":"Success"}])"),       0);
    row("cut off after its status",     http::Response::failed(2, tr::Tr(u"x"_s), 200), 1, true, lost);
    row("stalled after its status",     http::Response::failed(4, tr::Tr(u"x"_s), 200), 1, true, lost);
    row("cut off after a 500",          http::Response::failed(2, tr::Tr(u"x"_s), 500), 1, true, lost);
    // clang-format on
}

void TestMindboxResults::requestStatus()
{
    QFETCH(http::Response, answer);
    QFETCH(QString, error);
    const LogCapture log(u"mindbox"_s);
    const OperationResult result = resultOf(answer);
    QTEST(static_cast<int>(result.status), "status");
    QTEST(result.noConnection, "noConnection");
    QCOMPARE(result.error_.ru(), error);
    QCOMPARE(result.error_,
             error.isEmpty() ? tr::Tr() : tr::Tr(u"mindboxNoConnectionError"_s, error));
    QCOMPARE(result.httpStatus, answer.status);
    QCOMPARE(result.networkError, answer.errorCode);
    QCOMPARE(result.response, answer.responseObject());
}

void TestMindboxResults::processingStatus_data()
{
    QTest::addColumn<int>("status");
    const auto row = [](const char *text, int status) {
        QTest::newRow(text) << status;
    };
    // clang-format off
    row("",                              0);
    row("found",                         0);
    row("Unknown",                       0);
    row("Found ",                        0);
    row("NotFound",                      1);
    row("Found",                         2);
    row("Changed",                       3);
    row("Created",                       5);
    row("MobilePhoneConfirmed",          6);
    row("AlreadyConfirmed",              7);
    row("Processed",                     8);
    row("NotProcessed",                  9);
    row("AlreadyBoundToCurrentCustomer", 11);
    row("Bound",                         12);
    row("PriceHasBeenChanged",           13);
    row("Calculated",                    14);
    row("IncorrectConfirmationCode",     15);
    // clang-format on
}

void TestMindboxResults::processingStatus()
{
    QFETCH(int, status);
    const QString text = QString::fromUtf8(QTest::currentDataTag());
    const QJsonObject block{{u"processingStatus"_s, text}};
    const OperationResult result = resultOf(QJsonObject{{u"customer"_s, block},
                                                        {u"order"_s, block},
                                                        {u"discountCard"_s, block},
                                                        {u"oldDiscountCard"_s, block},
                                                        {u"newDiscountCard"_s, block}});
    QCOMPARE(number(result.customer.processingStatus), status);
    QCOMPARE(result.customer.isFound(), status == 2);
    QCOMPARE(number(PreorderResult(result).processingStatus), status);
    QCOMPARE(number(ReturnResult(result).processingStatus), status);
    QCOMPARE(number(BeginResult(result).processingStatus), status);
    QCOMPARE(number(ActivateCardResult(result).card.processingStatus), status);
    QCOMPARE(number(ReplaceCardResult(result).oldCard.processingStatus), status);
    QCOMPARE(number(ReplaceCardResult(result).newCard.processingStatus), status);
}

void TestMindboxResults::errorInReply_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("status and error")
        << R"({"status":"ProtocolError","errorMessage":"Нет точки %1 %2"})"_ba
        << QStringList{u"ERROR Статус: ProtocolError"_s, u"ERROR Ошибка: Нет точки %1 %2"_s};
    QTest::newRow("success nevertheless")
        << R"({"status":"Success","errorMessage":"x"})"_ba
        << QStringList{u"ERROR Статус: Success"_s, u"ERROR Ошибка: x"_s};
    QTest::newRow("no texts") << R"({"status":5,"errorMessage":{"a":1}})"_ba
                              << QStringList{u"ERROR Статус: "_s, u"ERROR Ошибка: "_s};
    QTest::newRow("none") << R"({"status":"ProtocolError"})"_ba << QStringList();
    QTest::newRow("no connection") << ""_ba << QStringList();
}

void TestMindboxResults::errorInReply()
{
    QFETCH(QByteArray, body);
    QFETCH(QStringList, lines);
    const LogCapture log(u"mindbox"_s);
    const OperationResult result = resultOf(body, 500);
    QCOMPARE(log.lines(), lines);
    QCOMPARE(result.error_.isEmpty(), !body.isEmpty());
}

void TestMindboxResults::fields_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<Kind>("kind");
    QTest::addColumn<QVariant>("byDefault");
    QTest::addColumn<Reader>("reader");

    const auto row = [](const char *path, Kind kind, const QVariant &byDefault,
                        const Reader &reader) {
        // The same path can feed fields of several classes.
        static int count = 0;
        QTest::addRow("%d %s", ++count, path)
            << QString::fromLatin1(path) << kind << byDefault << reader;
    };
    // clang-format off
    const auto text = [&](const char *path, auto read) { row(path, Kind::Text, QString(), read); };
    const auto amount = [&](const char *path, auto read) { row(path, Kind::Number, 0.0, read); };

    row("customer.isMobilePhoneConfirmed", Kind::Flag, false, [](const auto &it) { return it.customer.isMobilePhoneConfirmed; });
    row("customer.customFields.consentToElectronicChecks", Kind::Flag, false, [](const auto &it) { return it.customer.consentToElectronicChecks; });
    text("customer.email", [](const auto &it) { return it.customer.email; });
    row("customer.ids.mindboxId", Kind::LooseText, QString(), [](const auto &it) { return it.customer.mindboxId; });
    text("customer.firstName", [](const auto &it) { return it.customer.firstName; });
    text("customer.lastName", [](const auto &it) { return it.customer.lastName; });
    row("customer.mobilePhone", Kind::LooseText, QString(), [](const auto &it) { return it.customer.mobilePhone; });
    row("customer.processingStatus", Kind::Status, 1, [](const auto &it) { return number(it.customer.processingStatus); });
    text("balances.[].name", [](const auto &it) { return it.customer.balances.value(0).name; });
    amount("balances.[].available", [](const auto &it) { return it.customer.balances.value(0).amount; });

    row("order.processingStatus", Kind::Status, 0, [](const auto &it) { return number(PreorderResult(it).processingStatus); });
    amount("order.totalBonusPointsInfo.availableAmountForCurrentOrder", [](const auto &it) { return PreorderResult(it).availableBonusAmount; });
    amount("order.totalPrice", [](const auto &it) { return PreorderResult(it).totalPrice; });
    text("order.couponsInfo.[].coupon.ids.code", [](const auto &it) { return PreorderResult(it).coupons.isEmpty() ? QString() : PreorderResult(it).coupons.first().code; });
    text("order.couponsInfo.[].coupon.ids.code", [](const auto &it) { return PreorderResult(it).coupons.isEmpty() ? QString() : PreorderResult(it).coupons.firstKey(); });
    text("order.couponsInfo.[].coupon.status", [](const auto &it) { return PreorderResult(it).coupons.value(QString()).status; });
    amount("order.lines.[].discountedPriceOfLine", [](const auto &it) { return PreorderResult(it).lines.value(0).discountedPrice; });
    row("order.lines.[].lineNumber", Kind::Integer, 0, [](const auto &it) { return PreorderResult(it).lines.value(0).lineNumber; });
    text("order.lines.[].appliedPromotions.[].promotion.name", [](const auto &it) { return PreorderResult(it).lines.value(0).appliedPromotions.value(0).name; });
    text("order.lines.[].appliedPromotions.[].type", [](const auto &it) { return PreorderResult(it).lines.value(0).appliedPromotions.value(0).type; });
    amount("order.lines.[].appliedPromotions.[].amount", [](const auto &it) { return PreorderResult(it).lines.value(0).appliedPromotions.value(0).amount; });
    text("order.lines.[].appliedPromotions.[].promotion.type", [](const auto &it) { return PreorderResult(it).lines.value(0).appliedPromotions.value(0).promotionType; });
    text("order.lines.[].appliedPromotions.[].balanceType.ids.systemName", [](const auto &it) { return PreorderResult(it).lines.value(0).appliedPromotions.value(0).balanceType; });
    text("order.lines.[].appliedPromotions.[].coupon.ids.code", [](const auto &it) { return PreorderResult(it).lines.value(0).appliedPromotions.value(0).couponCode; });
    text("order.lines.[].placeholders.[].ids.externalId", [](const auto &it) { return PreorderResult(it).lines.value(0).placeholders.value(0).id; });
    text("order.lines.[].placeholders.[].content.[].message", [](const auto &it) { return PreorderResult(it).lines.value(0).placeholders.value(0).messages.value(0); });
    text("order.lines.[].balanceType.ids.systemName", [](const auto &it) { return PreorderResult(it).earnedBalances.value(0).systemName; });
    text("order.lines.[].balanceType.name", [](const auto &it) { return PreorderResult(it).earnedBalances.value(0).name; });
    amount("order.lines.[].earnedAmount", [](const auto &it) { return PreorderResult(it).earnedBalances.value(0).amount; });
    text("order.placeholders.[].ids.externalId", [](const auto &it) { return PreorderResult(it).placeholders.value(0).id; });
    text("order.placeholders.[].content.[].message", [](const auto &it) { return PreorderResult(it).placeholders.value(0).messages.value(0); });

    row("order.processingStatus", Kind::Status, 0, [](const auto &it) { return number(ReturnResult(it).processingStatus); });

    row("order.processingStatus", Kind::Status, 0, [](const auto &it) { return number(BeginResult(it).processingStatus); });
    text("order.ids.offlineTransactionIdTallo", [](const auto &it) { return BeginResult(it).transactionId; });

    text("discountCard.ids.number", [](const auto &it) { return ActivateCardResult(it).card.number; });
    row("discountCard.processingStatus", Kind::Status, 0, [](const auto &it) { return number(ActivateCardResult(it).card.processingStatus); });
    row("discountCard.status.dateTimeUtc", Kind::Time, QDateTime(), [](const auto &it) { return ActivateCardResult(it).card.date; });

    row("oldDiscountCard.processingStatus", Kind::Status, 0, [](const auto &it) { return number(ReplaceCardResult(it).oldCard.processingStatus); });
    row("newDiscountCard.processingStatus", Kind::Status, 0, [](const auto &it) { return number(ReplaceCardResult(it).newCard.processingStatus); });
    // clang-format on
}

void TestMindboxResults::fields()
{
    QFETCH(QString, path);
    QFETCH(Kind, kind);
    QFETCH(QVariant, byDefault);
    QFETCH(Reader, reader);

    const QByteArray emptyBlocks =
        R"({"customer":{},"order":{"lines":[{}]},"discountCard":{},"balances":[{}]})";
    QJsonValue value = u"Ю %1"_s;
    QVariant expected = u"Ю %1"_s;
    switch (kind) {
    case Kind::Text:
    case Kind::LooseText:
        break;
    case Kind::Number:
        value = 12.75;
        expected = 12.75;
        break;
    case Kind::Integer:
        value = 2147483647;
        expected = 2147483647;
        break;
    case Kind::Flag:
        value = true;
        expected = true;
        break;
    case Kind::Status:
        value = u"Bound"_s;
        expected = 12;
        break;
    case Kind::Time:
        value = u"2026-01-31T12:34:56.789Z"_s;
        expected = QDateTime({2026, 1, 31}, {12, 34, 56, 789}, QTimeZone::utc());
        break;
    }
    const QStringList keys = path.split(u'.');
    QCOMPARE(reader(resultWith(keys, value)), expected);
    if (kind == Kind::LooseText)
        QCOMPARE(reader(resultWith(keys, qint64(79161234567))), QVariant(u"79161234567"_s));
    QCOMPARE(reader(resultOf(QByteArray())), byDefault);
    QCOMPARE(reader(resultOf("{}")), byDefault);
    QCOMPARE(reader(resultOf(emptyBlocks)), byDefault);
    QCOMPARE(reader(OperationResult()), byDefault);
}

void TestMindboxResults::wrongTypes()
{
    QFETCH(QString, path);
    QFETCH(Kind, kind);
    QFETCH(QVariant, byDefault);
    QFETCH(Reader, reader);

    const QStringList keys = path.split(u'.');
    const QJsonArray values = wrongValues(kind);
    for (qsizetype depth = 1; depth <= keys.size(); ++depth) {
        for (const QJsonValue &value : values) {
            const OperationResult result = resultWith(keys.first(depth), value);
            const QByteArray where = QJsonDocument(result.response).toJson(QJsonDocument::Compact);
            QVERIFY2(reader(result) == byDefault, where);
        }
    }
}

void TestMindboxResults::textOnTheWay()
{
    // A path ends at the first value that is not an object; that value is the result.
    const OperationResult result = resultOf(
        QJsonObject{{u"customer"_s, u"Found"_s}, {u"order"_s, QJsonObject{{u"ids"_s, u"tx"_s}}}});
    QCOMPARE(result.customer.email, u"Found"_s);
    QVERIFY(result.customer.isFound());
    QVERIFY(!result.customer.isMobilePhoneConfirmed);
    QCOMPARE(BeginResult(result).transactionId, u"tx"_s);
    const PreorderResult preorder(resultOf(R"({"order":"Calculated"})"));
    QCOMPARE(number(preorder.processingStatus), 14);
}

void TestMindboxResults::customerWithoutStatus_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::newRow("no reply") << ""_ba << 1;
    QTest::newRow("no customer") << R"({"status":"Success"})"_ba << 1;
    QTest::newRow("customer without one") << R"({"customer":{"email":"a"}})"_ba << 1;
    QTest::newRow("null") << R"({"customer":{"processingStatus":null}})"_ba << 1;
    QTest::newRow("an unknown word") << R"({"customer":{"processingStatus":"Lost"}})"_ba << 0;
}

void TestMindboxResults::customerWithoutStatus()
{
    QFETCH(QByteArray, body);
    QTEST(number(resultOf(body).customer.processingStatus), "status");
    QVERIFY(!resultOf(body).customer.isFound());
}

void TestMindboxResults::customerBlockNeedsItsKey()
{
    const QByteArray rest =
        R"("discountCards":[{"ids":{"number":"1"},"status":{"ids":{"systemName":"Activated"}}}],
           "balances":[{"name":"b","available":3}]})";
    const OperationResult without = resultOf("{" + rest);
    QCOMPARE(without.discountCards.size(), 0);
    QCOMPARE(without.customer.discountCards.size(), 0);
    QCOMPARE(without.customer.balances.size(), 0);
    const OperationResult with = resultOf(R"({"customer":null,)" + rest);
    QCOMPARE(with.discountCards.size(), 1);
    QCOMPARE(with.customer.discountCards.size(), 1);
    QCOMPARE(with.customer.balances.size(), 1);
}

void TestMindboxResults::onlyActivatedCards()
{
    const OperationResult result = resultOf(R"({"customer":{},"discountCards":[
        {"ids":{"number":"1"},"status":{"ids":{"systemName":"Activated"},"dateTimeUtc":"2026-01-31T12:00:00.250Z"},"processingStatus":"Bound"},
        {"ids":{"number":"2"},"status":{"ids":{"systemName":"Blocked"}}},
        {"ids":{"number":"3"},"status":{"ids":{"systemName":"activated"}}},
        {"ids":{"number":"4"}},
        "Activated", null, 5, [],
        {"status":{"ids":{"systemName":"Activated"},"dateTimeUtc":"31.01.2026"}},
        {"ids":{"number":7},"status":{"ids":{"systemName":"Activated"}}},
        {"ids":{"number":"8"},"status":"Activated"}]})");
    QStringList numbers;
    for (const MindboxDiscountCard &card : result.discountCards) {
        numbers.append(card.number);
        QCOMPARE(number(card.processingStatus), 0);
    }
    QCOMPARE(numbers, (QStringList{u"1"_s, u""_s, u""_s, u"8"_s}));
    QCOMPARE(result.discountCards.at(0).date,
             QDateTime({2026, 1, 31}, {12, 0, 0, 250}, QTimeZone::utc()));
    QVERIFY(!result.discountCards.at(1).date.isValid());
    QVERIFY(!result.discountCards.at(2).date.isValid());
    QStringList ofCustomer;
    for (const MindboxDiscountCard &card : result.customer.discountCards)
        ofCustomer.append(card.number);
    QCOMPARE(ofCustomer, numbers);
}

void TestMindboxResults::balances()
{
    const OperationResult result = resultOf(R"({"customer":{},"balances":[
        {"name":"Баллы","available":150.5,"systemName":"main"}, {}, {"available":"7"}]})");
    QStringList lines;
    for (const MindboxBalance &balance : result.customer.balances)
        lines.append(
            u"%1|%2|%3"_s.arg(balance.systemName, balance.name, QString::number(balance.amount)));
    QCOMPARE(lines, (QStringList{u"|Баллы|150.5"_s, u"||0"_s, u"||0"_s}));
}

void TestMindboxResults::preorder()
{
    const PreorderResult result(
        resultOf(R"({"status":"Success","customer":{"mobilePhone":79990000001},
      "order":{"processingStatus":"Calculated","totalPrice":1990.5,
        "totalBonusPointsInfo":{"availableAmountForCurrentOrder":250},
        "placeholders":[{"ids":{"externalId":"slip"},"content":[{"message":"Спасибо"},{"message":"Ждём"}]},
                        {"ids":{"externalId":"screen"}}],
        "lines":[
          {"lineNumber":1,"lineId":"101","discountedPriceOfLine":990.25,
           "appliedPromotions":[
             {"type":"discount","amount":9.75,"promotion":{"name":"Скидка","type":"sale"},"coupon":{"ids":{"code":"C1"}}},
             {"type":"earnedBonusPoints","amount":5,"balanceType":{"ids":{"systemName":"main"}}}],
           "placeholders":[{"ids":{"externalId":"line"},"content":[{"message":"Акция"}]}],
           "balanceType":{"ids":{"systemName":"main"},"name":"Баллы"},"earnedAmount":5},
          {"lineNumber":2,"lineId":"102","discountedPriceOfLine":1000.25}]}})"));
    QVERIFY(result.isSuccess());
    QCOMPARE(result.customer.mobilePhone, u"79990000001"_s);
    QCOMPARE(result.totalPrice, 1990.5);
    QCOMPARE(result.availableBonusAmount, 250.0);

    QCOMPARE(result.lines.size(), 2);
    const MindboxLine first = result.lines.at(0);
    QCOMPARE(first.lineNumber, 1);
    QCOMPARE(first.lineId, 101);
    QCOMPARE(first.discountedPrice, 990.25);
    QCOMPARE(first.appliedPromotions.size(), 2);
    QCOMPARE(first.appliedPromotions.at(0).name, u"Скидка"_s);
    QCOMPARE(first.appliedPromotions.at(0).type, u"discount"_s);
    QCOMPARE(first.appliedPromotions.at(0).promotionType, u"sale"_s);
    QCOMPARE(first.appliedPromotions.at(0).couponCode, u"C1"_s);
    QCOMPARE(first.appliedPromotions.at(0).balanceType, QString());
    QCOMPARE(first.appliedPromotions.at(1).amount, 5.0);
    QCOMPARE(first.appliedPromotions.at(1).balanceType, u"main"_s);
    QCOMPARE(first.placeholders.value(0).messages, QStringList{u"Акция"_s});
    QCOMPARE(result.lines.at(1).lineId, 102);
    QCOMPARE(result.lines.at(1).appliedPromotions.size(), 0);

    QCOMPARE(result.placeholders.size(), 2);
    QCOMPARE(result.placeholders.at(0).id, u"slip"_s);
    QCOMPARE(result.placeholders.at(0).messages, (QStringList{u"Спасибо"_s, u"Ждём"_s}));
    QCOMPARE(result.placeholders.at(1).id, u"screen"_s);
    QCOMPARE(result.placeholders.at(1).messages, QStringList());
}

void TestMindboxResults::couponsByTheirCodes()
{
    const PreorderResult result(resultOf(R"({"order":{"couponsInfo":[
        {"coupon":{"ids":{"code":"Z"},"status":"CanBeUsed"}},
        {"coupon":{"ids":{"code":"A"},"status":"NotFound"}},
        {"coupon":{"ids":{"code":"Z"},"status":"Used"}},
        {"coupon":{"status":"Lonely"}}]}})"));
    QStringList lines;
    for (const auto &[code, coupon] : result.coupons.asKeyValueRange())
        lines.append(u"%1|%2|%3"_s.arg(code, coupon.code, coupon.status));
    QCOMPARE(lines, (QStringList{u"||Lonely"_s, u"A|A|NotFound"_s, u"Z|Z|Used"_s}));
}

void TestMindboxResults::lineIds_data()
{
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<int>("id");
    QTest::newRow("a number as text") << QJsonValue(u"42"_s) << 42;
    QTest::newRow("below zero") << QJsonValue(u"-42"_s) << -42;
    QTest::newRow("the largest") << QJsonValue(u"2147483647"_s) << 2147483647;
    QTest::newRow("too large") << QJsonValue(u"2147483648"_s) << 0;
    QTest::newRow("not a number") << QJsonValue(u"4a"_s) << 0;
    QTest::newRow("hexadecimal") << QJsonValue(u"0x10"_s) << 0;
    QTest::newRow("a fraction") << QJsonValue(u"4.0"_s) << 0;
    QTest::newRow("empty") << QJsonValue(u""_s) << 0;
    QTest::newRow("not a text") << QJsonValue(42) << 0;
    QTest::newRow("null") << QJsonValue() << 0;
    QTest::newRow("an object") << QJsonValue(QJsonObject{{u"id"_s, u"42"_s}}) << 0;
}

void TestMindboxResults::lineIds()
{
    QFETCH(QJsonValue, value);
    const PreorderResult result(resultWith({u"order"_s, u"lines"_s, u"[]"_s, u"lineId"_s}, value));
    QCOMPARE(result.lines.size(), 1);
    QTEST(result.lines.at(0).lineId, "id");
}

void TestMindboxResults::earnedBalancesForEachLine()
{
    const PreorderResult result(resultOf(R"({"order":{"lines":[
        {"balanceType":{"ids":{"systemName":"main"},"name":"Баллы"},"earnedAmount":5.5},
        {"lineId":"2"}, "no line", {"earnedAmount":1}]}})"));
    QStringList lines;
    for (const MindboxBalance &balance : result.earnedBalances)
        lines.append(
            u"%1|%2|%3"_s.arg(balance.systemName, balance.name, QString::number(balance.amount)));
    QCOMPARE(lines, (QStringList{u"main|Баллы|5.5"_s, u"||0"_s, u"||0"_s, u"||1"_s}));
    QCOMPARE(result.lines.size(), 4);
}

void TestMindboxResults::begin_data()
{
    QTest::addColumn<QString>("setting");
    QTest::addColumn<QByteArray>("order");
    QTest::addColumn<QString>("transactionId");
    QTest::addColumn<QByteArray>("kept");

    const QString none;
    const QString renamed = u"[Mindbox]\nresponseTransactionIdName = shopTx\n"_s;
    const QString deeper = u"[Mindbox]\nresponseTransactionIdName = a.b\n"_s;
    // clang-format off
    QTest::newRow("its id")            << none << R"({"ids":{"offlineTransactionIdTallo":"t1"}})"_ba << u"t1"_s
                                       << R"({"ids":{"offlineTransactionIdTallo":"t1"}})"_ba;
    QTest::newRow("an order inside")   << none << R"({"ids":{"offlineTransactionIdTallo":"t1"},"order":{"ids":{"offlineTransactionIdTallo":"t2"}}})"_ba << u"t1"_s
                                       << R"({"ids":{"offlineTransactionIdTallo":"t2"}})"_ba;
    QTest::newRow("an id only inside") << none << R"({"order":{"ids":{"offlineTransactionIdTallo":"t2"}}})"_ba << u""_s
                                       << R"({"ids":{"offlineTransactionIdTallo":"t2"}})"_ba;
    QTest::newRow("a text inside")     << none << R"({"order":"x","ids":{"offlineTransactionIdTallo":"t1"}})"_ba << u"t1"_s
                                       << R"({})"_ba;
    QTest::newRow("null inside")       << none << R"({"order":null,"a":1})"_ba << u""_s << R"({})"_ba;
    QTest::newRow("another name")      << renamed << R"({"ids":{"offlineTransactionIdTallo":"t1","shopTx":"t3"}})"_ba << u"t3"_s
                                       << R"({"ids":{"offlineTransactionIdTallo":"t1","shopTx":"t3"}})"_ba;
    QTest::newRow("a name with a dot") << deeper << R"({"ids":{"a":{"b":"t4"}}})"_ba << u"t4"_s
                                       << R"({"ids":{"a":{"b":"t4"}}})"_ba;
    QTest::newRow("an id in figures")  << none << R"({"ids":{"offlineTransactionIdTallo":5}})"_ba << u""_s
                                       << R"({"ids":{"offlineTransactionIdTallo":5}})"_ba;
    QTest::newRow("a list")            << none << R"([{"ids":{}}])"_ba << u""_s << R"({})"_ba;
    // clang-format on
}

void TestMindboxResults::begin()
{
    QFETCH(QString, setting);
    QFETCH(QByteArray, order);
    QFETCH(QByteArray, kept);
    const TestSettings settings(setting);
    const BeginResult result(resultOf("{\"order\":" + order + "}"));
    QTEST(result.transactionId, "transactionId");
    QCOMPARE(result.order, QJsonDocument::fromJson(kept).object());
}

void TestMindboxResults::verdicts_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<bool>("plain");
    QTest::addColumn<bool>("preorder");
    QTest::addColumn<bool>("orderDone");

    const auto row = [](const char *name, const http::Response &answer, bool plain, bool preorder,
                        bool orderDone) {
        QTest::newRow(name) << answer << plain << preorder << orderDone;
    };
    const auto body = [](const char *status, const char *order) {
        return QByteArray(R"({"status":")") + status + R"(","order":{"processingStatus":")" + order
               + R"("}})";
    };
    // clang-format off
    row("success, no order",            reply(200, R"({"status":"Success"})"),               true,  false, false);
    row("success, calculated",          reply(200, body("Success", "Calculated")),           true,  true,  false);
    row("success, processed",           reply(200, body("Success", "Processed")),            true,  false, true);
    row("success, not processed",       reply(200, body("Success", "NotProcessed")),         true,  false, false);
    row("success, price changed",       reply(200, body("Success", "PriceHasBeenChanged")),  true,  false, false);
    row("no success, calculated",       reply(200, body("ValidationError", "Calculated")),   false, true,  false);
    row("no success, processed",        reply(500, body("ProtocolError", "Processed")),      false, false, true);
    row("400, no order",                reply(400, R"({"status":"ProtocolError"})"),         true,  false, false);
    row("400, with an error",           reply(400, R"({"errorMessage":"x"})"),               true,  false, false);
    row("400, processed",               reply(400, body("ProtocolError", "Processed")),      true,  false, true);
    row("400, empty",                   reply(400),                                          true,  false, false);
    row("404",                          reply(404, R"({"status":"ProtocolError"})"),         false, false, false);
    row("no connection",                noConnection(),                                      false, false, false);
    row("200, empty",                   reply(200),                                          false, false, false);
    // clang-format on
}

void TestMindboxResults::verdicts()
{
    QFETCH(http::Response, answer);
    QFETCH(bool, plain);
    QFETCH(bool, orderDone);
    const LogCapture log(u"mindbox"_s);
    const OperationResult result = resultOf(answer);
    QCOMPARE(result.isSuccess(), plain);
    QCOMPARE(RollbackResult(result).isSuccess(), plain);
    QCOMPARE(ActivateCardResult(result).isSuccess(), plain);
    QCOMPARE(ReplaceCardResult(result).isSuccess(), plain);
    QTEST(PreorderResult(result).isSuccess(), "preorder");
    QCOMPARE(ReturnResult(result).isSuccess(), orderDone);
    QCOMPARE(BeginResult(result).isSuccess(), orderDone);
}

void TestMindboxResults::errorTexts_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<tr::Tr>("plain");
    QTest::addColumn<tr::Tr>("begin");
    QTest::addColumn<tr::Tr>("rollback");
    QTest::addColumn<tr::Tr>("orElse");

    const tr::Tr lost(u"mindboxNoConnectionError"_s, u"Ошибка связи с сервером"_s);
    const tr::Tr begin(u"mindboxBeginError"_s,
                       u"Не удалось сохранить заказ в системе лояльности"_s);
    const tr::Tr rollback(u"mindboxRollbackError"_s, u"Невозможно совершить откат транзакции"_s);
    const tr::Tr given(u"given"_s);
    QTest::newRow("no connection") << noConnection() << lost << lost << lost << lost;
    QTest::newRow("an error of the service")
        << reply(200, R"({"errorMessage":"x"})") << tr::Tr() << begin << rollback << given;
    QTest::newRow("success") << reply(200, R"({"status":"Success"})") << tr::Tr() << begin
                             << rollback << given;
}

void TestMindboxResults::errorTexts()
{
    QFETCH(http::Response, answer);
    QFETCH(tr::Tr, plain);
    QFETCH(tr::Tr, orElse);
    const LogCapture log(u"mindbox"_s);
    const OperationResult result = resultOf(answer);
    const tr::Tr given(u"given"_s);
    QCOMPARE(result.error(), plain);
    QCOMPARE(PreorderResult(result).error(), plain);
    QCOMPARE(ReturnResult(result).error(), plain);
    QCOMPARE(ActivateCardResult(result).error(), plain);
    QCOMPARE(ReplaceCardResult(result).error(), plain);
    QTEST(BeginResult(result).error(), "begin");
    QTEST(RollbackResult(result).error(), "rollback");
    QCOMPARE(result.errorOr(given), orElse);
    QCOMPARE(BeginResult(result).errorOr(given), orElse);
    QCOMPARE(RollbackResult(result).errorOr(given), orElse);
    QCOMPARE(ReplaceCardResult(result).errorOr(given), orElse);
    // Through the base class, as a caller with several kinds of results uses them.
    const BeginResult begun(result);
    const RequestResult &base = begun;
    QTEST(base.error(), "begin");
}

void TestMindboxResults::replacedCardsHaveOnlyAStatus()
{
    const ReplaceCardResult result(resultOf(R"({"status":"Success",
        "oldDiscountCard":{"processingStatus":"Changed","ids":{"number":"1"},"status":{"dateTimeUtc":"2026-01-31T12:00:00.000Z"}},
        "newDiscountCard":{"processingStatus":"Bound","ids":{"number":"2"},"status":{"dateTimeUtc":"2026-01-31T12:00:00.000Z"}}})"));
    QCOMPARE(number(result.oldCard.processingStatus), 3);
    QCOMPARE(number(result.newCard.processingStatus), 12);
    QCOMPARE(result.oldCard.number + result.newCard.number, QString());
    QVERIFY(result.oldCard.date.isNull() && result.newCard.date.isNull());
    QCOMPARE(static_cast<int>(result.status), 2);
    QCOMPARE(result.httpStatus, 200);
    QVERIFY(result.response.contains(u"newDiscountCard"_s));

    const ReplaceCardResult lost(resultOf(noConnection()));
    QCOMPARE(lost.networkError, 1);
    QVERIFY(lost.noConnection);
}

void TestMindboxResults::copiesTheWholeResult()
{
    const OperationResult source =
        resultOf(reply(404, R"({"status":"Success","customer":{"email":"a@b"},
            "discountCards":[{"ids":{"number":"1"},"status":{"ids":{"systemName":"Activated"}}}]})"));
    const auto isWhole = [](const OperationResult &copy) {
        return copy.httpStatus == 404 && copy.networkError == 203
               && copy.status == RequestStatus::Success && copy.customer.email == "a@b"_L1
               && copy.discountCards.size() == 1 && copy.response.contains(u"customer"_s);
    };
    QVERIFY(isWhole(PreorderResult(source)));
    QVERIFY(isWhole(ReturnResult(source)));
    QVERIFY(isWhole(BeginResult(source)));
    QVERIFY(isWhole(RollbackResult(source)));
    QVERIFY(isWhole(ActivateCardResult(source)));
    QVERIFY(!isWhole(PreorderResult(OperationResult())));
}

void TestMindboxResults::strangeReplies_data()
{
    QTest::addColumn<QByteArray>("body");
    const auto nested = [](const QByteArray &open, int levels, const QByteArray &close) {
        return open.repeated(levels) + "1" + close.repeated(levels);
    };
    QTest::newRow("empty") << ""_ba;
    QTest::newRow("blank") << " \r\n"_ba;
    QTest::newRow("an empty object") << "{}"_ba;
    QTest::newRow("an empty list") << "[]"_ba;
    QTest::newRow("a list of replies") << R"([{"status":"Success","order":{"lines":[{}]}}])"_ba;
    QTest::newRow("a word") << "Success"_ba;
    QTest::newRow("a text") << R"("Success")"_ba;
    QTest::newRow("null") << "null"_ba;
    QTest::newRow("cut off") << R"({"status":"Success","order":{"processingStatus":"Processed")"_ba;
    QTest::newRow("not UTF-8") << "{\"status\":\"\xff\xfe\"}"_ba;
    QTest::newRow("a page") << "<html><body>502</body></html>"_ba;
    QTest::newRow("zero bytes") << QByteArray(1000, '\0');
    QTest::newRow("lists as deep as a parser goes")
        << R"({"order":)" + nested("[", 1000, "]") + "}";
    QTest::newRow("lists deeper than that") << R"({"order":)" + nested("[", 100'000, "]") + "}";
    QTest::newRow("objects deeper than that") << nested(R"({"order":)", 100'000, "}");
    QTest::newRow("deep in every block")
        << R"({"customer":)" + nested(R"({"ids":)", 500, "}") + R"(,"discountCards":)"
               + nested("[", 500, "]") + R"(,"balances":)" + nested("[", 500, "]")
               + R"(,"discountCard":)" + nested(R"({"status":)", 500, "}") + "}";
}

void TestMindboxResults::strangeReplies()
{
    QFETCH(QByteArray, body);
    const LogCapture log(u"mindbox"_s);
    for (const int status : {200, 500}) {
        const OperationResult result = resultOf(body, status);
        QVERIFY(!result.isSuccess());
        QCOMPARE(result.noConnection, status == 500 && result.response.isEmpty());
        QVERIFY(!result.customer.isFound());
        QCOMPARE(result.discountCards.size(), 0);
        const PreorderResult preorder(result);
        QVERIFY(!preorder.isSuccess() && preorder.totalPrice == 0.0);
        QCOMPARE(preorder.lines.value(0).lineId, 0);
        QVERIFY(!ReturnResult(result).isSuccess());
        QVERIFY(!BeginResult(result).isSuccess());
        QCOMPARE(BeginResult(result).transactionId, QString());
        QVERIFY(!RollbackResult(result).isSuccess());
        QCOMPARE(ActivateCardResult(result).card.number, QString());
        QCOMPARE(number(ReplaceCardResult(result).newCard.processingStatus), 0);
    }
    QCOMPARE(log.lines(), QStringList());
}

void TestMindboxResults::almostFourMebibytes()
{
    const QByteArray line = R"({"lineId":"7","lineNumber":7,"earnedAmount":2,
        "appliedPromotions":[{"amount":1}],"placeholders":[{"content":[{"message":"ж"}]}]},)";
    const qsizetype count = 4'000'000 / line.size() + 1;
    const QByteArray lines = line.repeated(count);
    const PreorderResult result(
        resultOf(R"({"status":"Success","order":{"processingStatus":"Calculated","lines":[)"
                 + lines.chopped(1) + "]}}"));
    QVERIFY(result.isSuccess());
    QCOMPARE(result.lines.size(), count);
    QCOMPARE(result.earnedBalances.size(), count);
    QCOMPARE(result.lines.last().lineId, 7);
    QCOMPARE(result.lines.last().placeholders.value(0).messages, QStringList{u"ж"_s});

    const QByteArray text(4'000'000, 'x');
    const OperationResult named = resultOf(R"({"customer":{"email":")" + text + R"("}})");
    QCOMPARE(named.customer.email.size(), text.size());
}

QTEST_GUILESS_MAIN(TestMindboxResults)
#include "tst_mindboxresults.moc"
