#include "handlers/loyalty/mfg/interface.h"
#include "tests/support/testsettings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace {

constexpr int paymentMode = 6;
constexpr int otherType = 5;

/// The amount that an impact takes from a line.
using Share = std::pair<int, double>;

DocumentImpact impact(const QVariant &valutCode, int mode, int type, double total,
                      const QList<Share> &shares)
{
    DocumentImpactDetail totals;
    totals.setValutCode(valutCode);
    totals.setDiscountMode(mode);
    totals.setDiscountType(type);
    totals.setDiscountSum(total);
    DocumentImpact::Details details;
    for (const auto &[position, sum] : shares) {
        DocumentImpactDetail detail;
        detail.setPosition(position);
        detail.setDiscountSum(sum);
        details.insert(detail);
    }
    DocumentImpact result;
    result.setTotals(totals);
    result.setDetails(details);
    return result;
}

DocumentImpact payment(double total, const QList<Share> &shares)
{
    return impact(QVariant(), paymentMode, 0, total, shares);
}

DocumentImpact other(double total, const QList<Share> &shares)
{
    return impact(QVariant(), 0, otherType, total, shares);
}

GoodsItem item(int posnum, double amount)
{
    GoodsItem result;
    result.setPosnum(posnum);
    result.setAmount(amount);
    return result;
}

Document document(const QList<GoodsItem> &goods, const QList<DocumentImpact> &impacts = {})
{
    Document result;
    result.setGoods(goods);
    result.setImpacts(impacts);
    return result;
}

QJsonObject basket(const Document &sale, bool noDiscount = false)
{
    return mfg::Interface().buildBasket(sale, DocumentCardRecord(), noDiscount);
}

QJsonObject lineAt(const QJsonObject &order, int index)
{
    return order.value(u"orderLines"_s).toArray().at(index).toObject();
}

/// Such as "1: 110.00/10.00, 2: 50.00/0.00; 10.00": each line's amount and payment discount, and
/// the discount of the order.
QString amounts(const QJsonObject &order)
{
    QStringList lines;
    const QJsonArray orderLines = order.value(u"orderLines"_s).toArray();
    for (const QJsonValue &value : orderLines) {
        const QJsonObject line = value.toObject();
        lines.append(u"%1: %2/%3"_s.arg(line.value(u"lineID"_s).toString(),
                                        line.value(u"lineAmount"_s).toString(),
                                        line.value(u"paymentDiscAmount"_s).toString()));
    }
    return lines.join(u", "_s) + u"; "_s + order.value(u"paymentDiscAmount"_s).toString();
}

} // namespace

/// The order as it goes to the Mfg service.
class TestMfgBasket : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wholeBasket();
    void membersAreSortedByName();
    void impacts_data();
    void impacts();
    void twoDecimals_data();
    void twoDecimals();
    void marks_data();
    void marks();
    void priceSource_data();
    void priceSource();
    void everyLineIsOne();
    void minimalAmountDoesNotCount();
    void basketOfTheCard();
    void newBasketAtEveryCall();
    void noDate();

private:
    const TestSettings settings{
        u"[Mfg]\nbrand = Обувь %1\nverificationBrand = other\nonlineStore = S-1\nterminal = T-7\n"_s};
};

void TestMfgBasket::wholeBasket()
{
    Tmc onSale;
    onSale.setPriceSourceType(5);
    GoodsItem shoes = item(1, 100.0);
    shoes.setAdditionalBarcode(u"4600001"_s);
    shoes.setTmc(onSale);
    GoodsItem socks = item(12, 50.5);
    socks.setAdditionalBarcode(u"4600002"_s);
    socks.setAllowBonusEarn(false);
    Document sale = document({shoes, socks}, {payment(10.0, {{1, 7.5}, {12, 2.5}})});
    sale.setDateTime(QDateTime(QDate(2026, 1, 31), QTime(23, 59, 59)));
    DocumentCardRecord card;
    card.setNumber(2200);
    card.setOperationId(u"basket-1"_s);

    const QByteArray expected = R"({
        "brand": "Обувь %1", "cardNumber": "2200", "onlineStore": "S-1", "basket": "basket-1",
        "basketDatetime": "2026-01-31",
        "orderLines": [
            {"barcode": "4600001", "lineID": "1", "qty": "1", "lineAmount": "107.50",
             "isSale": true, "noDiscountAllowed": false, "noEarnAllowed": false,
             "paymentDiscAmount": "7.50"},
            {"barcode": "4600002", "lineID": "12", "qty": "1", "lineAmount": "53.00",
             "isSale": false, "noDiscountAllowed": false, "noEarnAllowed": true,
             "paymentDiscAmount": "2.50"}
        ],
        "paymentDiscAmount": "10.00", "terminal": "T-7"})";
    mfg::Interface interface;
    QCOMPARE(interface.buildBasket(sale, card, false), QJsonDocument::fromJson(expected).object());
}

void TestMfgBasket::membersAreSortedByName()
{
    // The service does not see the order of insertion: Qt sorts the members.
    const QByteArray sent =
        QJsonDocument(lineAt(basket(document({item(1, 1.0)})), 0)).toJson(QJsonDocument::Compact);
    QCOMPARE(sent, R"({"barcode":"","isSale":false,"lineAmount":"1.00","lineID":"1",)"
                   R"("noDiscountAllowed":false,"noEarnAllowed":false,)"
                   R"("paymentDiscAmount":"0.00","qty":"1"})");
}

void TestMfgBasket::impacts_data()
{
    QTest::addColumn<QList<DocumentImpact>>("given");
    QTest::addColumn<QString>("expected");

    const auto row = [](const char *name, const QList<DocumentImpact> &given,
                        const QString &expected) {
        QTest::newRow(name) << given << expected;
    };
    const QVariant none;
    const QList<Share> both{{1, 7.0}, {2, 3.0}};
    const QString nothing = u"1: 100.00/0.00, 2: 50.00/0.00; 0.00"_s;
    const QString asPayment = u"1: 107.00/7.00, 2: 53.00/3.00; 10.00"_s;
    const QString asOther = u"1: 107.00/0.00, 2: 53.00/0.00; 0.00"_s;
    // clang-format off
    row("no impacts",                  {},                                                nothing);
    row("mode 6",                      {impact(none, 6, 0, 10.0, both)},                  asPayment);
    row("mode 5",                      {impact(none, 5, 0, 10.0, both)},                  nothing);
    row("mode 7",                      {impact(none, 7, 0, 10.0, both)},                  nothing);
    row("a currency",                  {impact(u"RUB"_s, 0, 0, 10.0, both)},              asPayment);
    row("currency 0 is one",           {impact(0, 0, 0, 10.0, both)},                     asPayment);
    row("currency and type 5",         {impact(u"RUB"_s, 0, 5, 10.0, both)},              asPayment);
    row("mode 6 and type 5",           {impact(none, 6, 5, 10.0, both)},                  asPayment);
    row("type 5",                      {impact(none, 0, 5, 10.0, both)},                  asOther);
    row("type 4",                      {impact(none, 0, 4, 10.0, both)},                  nothing);
    row("type 6",                      {impact(none, 0, 6, 10.0, both)},                  nothing);
    row("payment and other",           {payment(10.0, both), other(4.0, {{1, 4.0}})},     u"1: 111.00/7.00, 2: 53.00/3.00; 10.00"_s);
    row("two payments",                {payment(10.0, both), payment(1.5, {{2, 1.5}})},   u"1: 107.00/7.00, 2: 54.50/4.50; 11.50"_s);
    row("two details of a line",       {payment(6.0, {{1, 3.0}, {1, 3.0}})},              u"1: 106.00/6.00, 2: 50.00/0.00; 6.00"_s);
    row("totals without details",      {payment(10.0, {})},                               u"1: 100.00/0.00, 2: 50.00/0.00; 10.00"_s);
    row("a line that is not there",    {payment(10.0, {{3, 10.0}})},                      u"1: 100.00/0.00, 2: 50.00/0.00; 10.00"_s);
    // clang-format on
}

void TestMfgBasket::impacts()
{
    QFETCH(QList<DocumentImpact>, given);
    QFETCH(QString, expected);
    QCOMPARE(amounts(basket(document({item(1, 100.0), item(2, 50.0)}, given))), expected);
}

void TestMfgBasket::twoDecimals_data()
{
    QTest::addColumn<double>("limit");
    QTest::addColumn<double>("discount");
    QTest::addColumn<QString>("expected");

    // clang-format off
    QTest::newRow("nothing")                 << 0.0               << 0.0   << u"1: 0.00/0.00; 0.00"_s;
    QTest::newRow("whole")                   << 1990.0            << 10.0  << u"1: 2000.00/10.00; 10.00"_s;
    QTest::newRow("one decimal")             << 0.5               << 0.1   << u"1: 0.60/0.10; 0.10"_s;
    QTest::newRow("sum beside the decimals") << 0.1               << 0.2   << u"1: 0.30/0.20; 0.20"_s;
    // A binary fraction exactly half-way is rounded away from zero.
    QTest::newRow("half-way")                << 0.125             << 0.375 << u"1: 0.50/0.38; 0.38"_s;
    QTest::newRow("half-way of the sum")     << 0.25              << 0.375 << u"1: 0.63/0.38; 0.38"_s;
    // These decimals are not binary fractions: the stored value is slightly lower.
    QTest::newRow("just below half-way")     << 1.005             << 2.675 << u"1: 3.68/2.67; 2.67"_s;
    QTest::newRow("just below, alone")       << 1.005             << 0.0   << u"1: 1.00/0.00; 0.00"_s;
    QTest::newRow("up to the next whole")    << 9.995             << 0.999 << u"1: 10.99/1.00; 1.00"_s;
    QTest::newRow("large")                   << 12'345'678'901.25 << 0.5   << u"1: 12345678901.75/0.50; 0.50"_s;
    QTest::newRow("no exponent")             << 1e15              << 1e15  << u"1: 2000000000000000.00/1000000000000000.00; 1000000000000000.00"_s;
    // clang-format on
}

void TestMfgBasket::twoDecimals()
{
    QFETCH(double, limit);
    QFETCH(double, discount);
    QFETCH(QString, expected);
    QCOMPARE(amounts(basket(document({item(1, limit)}, {payment(discount, {{1, discount}})}))),
             expected);
}

void TestMfgBasket::marks_data()
{
    QTest::addColumn<QStringList>("labels");
    QTest::addColumn<bool>("allowDiscount");
    QTest::addColumn<bool>("allowEarn");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<bool>("noDiscountAllowed");
    QTest::addColumn<bool>("noEarnAllowed");

    const QStringList none;
    const QStringList both{u"NOSPEND"_s, u"NOBONUS"_s};
    // clang-format off
    //                                             labels                   discount earn     flag       no discount no earn
    QTest::newRow("all allowed")               << none                    << true  << true  << false << false << false;
    QTest::newRow("flag")                      << none                    << true  << true  << true  << true  << false;
    QTest::newRow("no discount")               << none                    << false << true  << false << true  << false;
    QTest::newRow("no discount and flag")      << none                    << false << true  << true  << true  << false;
    QTest::newRow("no earning")                << none                    << true  << false << false << false << true;
    QTest::newRow("NOSPEND")                   << QStringList{u"NOSPEND"_s} << true << true << false << true  << false;
    QTest::newRow("NOBONUS")                   << QStringList{u"NOBONUS"_s} << true << true << false << false << true;
    QTest::newRow("both labels")               << both                    << true  << true  << false << true  << true;
    QTest::newRow("all forbidden")             << both                    << false << false << true  << true  << true;
    QTest::newRow("another label")             << QStringList{u"X"_s}     << true  << true  << false << false << false;
    QTest::newRow("labels have their case")    << QStringList{u"nospend"_s, u"NoBonus"_s} << true << true << false << false << false;
    QTest::newRow("a longer label is another") << QStringList{u"NOSPEND2"_s, u"XNOBONUS"_s} << true << true << false << false << false;
    // clang-format on
}

void TestMfgBasket::marks()
{
    QFETCH(QStringList, labels);
    QFETCH(bool, allowDiscount);
    QFETCH(bool, allowEarn);
    QFETCH(bool, flag);
    QFETCH(bool, noDiscountAllowed);
    QFETCH(bool, noEarnAllowed);

    GoodsItem goods = item(1, 100.0);
    goods.setCampaignLabels(labels);
    goods.setAllowDiscount(allowDiscount);
    goods.setAllowBonusEarn(allowEarn);
    const QJsonObject line = lineAt(basket(document({goods}), flag), 0);
    QCOMPARE(line.value(u"noDiscountAllowed"_s), QJsonValue(noDiscountAllowed));
    QCOMPARE(line.value(u"noEarnAllowed"_s), QJsonValue(noEarnAllowed));
}

void TestMfgBasket::priceSource_data()
{
    QTest::addColumn<int>("source");
    QTest::addColumn<bool>("isSale");
    QTest::newRow("none") << 0 << false;
    QTest::newRow("4") << 4 << false;
    QTest::newRow("5") << 5 << true;
    QTest::newRow("6") << 6 << false;
}

void TestMfgBasket::priceSource()
{
    QFETCH(int, source);
    QFETCH(bool, isSale);
    Tmc tmc;
    tmc.setPriceSourceType(source);
    GoodsItem goods = item(1, 100.0);
    goods.setTmc(tmc);
    QCOMPARE(lineAt(basket(document({goods})), 0).value(u"isSale"_s), QJsonValue(isSale));
}

void TestMfgBasket::everyLineIsOne()
{
    GoodsItem three = item(1, 300.0);
    three.setQuantity(3.0);
    GoodsItem weighed = item(2, 50.0);
    weighed.setQuantity(0.345);
    const QJsonObject order = basket(document({three, weighed}));
    QCOMPARE(lineAt(order, 0).value(u"qty"_s), QJsonValue(u"1"_s));
    QCOMPARE(lineAt(order, 1).value(u"qty"_s), QJsonValue(u"1"_s));
}

void TestMfgBasket::minimalAmountDoesNotCount()
{
    GoodsItem goods = item(1, 100.0);
    goods.setMinimalAmount(30.0);
    QCOMPARE(amounts(basket(document({goods}))), u"1: 100.00/0.00; 0.00"_s);
}

void TestMfgBasket::basketOfTheCard()
{
    DocumentCardRecord card;
    card.setNumber(u"0042"_s);
    card.setOperationId(u"op"_s);
    const QJsonObject order = mfg::Interface().buildBasket(Document(), card, true);
    QCOMPARE(order.value(u"basket"_s), QJsonValue(u"op"_s));
    QCOMPARE(order.value(u"cardNumber"_s), QJsonValue(u"0042"_s));
    QCOMPARE(order.value(u"orderLines"_s), QJsonValue(QJsonArray()));
}

void TestMfgBasket::newBasketAtEveryCall()
{
    mfg::Interface interface;
    // As a card without an operation is read from the till's documents.
    const DocumentCardRecord card(3, u"2200"_s, u""_s, QVariant());
    const QString first =
        interface.buildBasket(Document(), card, false).value(u"basket"_s).toString();
    const QString second =
        interface.buildBasket(Document(), card, false).value(u"basket"_s).toString();
    QVERIFY(first != second);
    QCOMPARE(QUuid::fromString(first).toString(QUuid::WithoutBraces), first);
    QCOMPARE(QUuid::fromString(first).version(), QUuid::Random);
    QVERIFY(card.getOperationId().isEmpty());
}

void TestMfgBasket::noDate()
{
    QCOMPARE(basket(Document()).value(u"basketDatetime"_s), QJsonValue(u""_s));
}

QTEST_GUILESS_MAIN(TestMfgBasket)
#include "tst_mfgbasket.moc"
