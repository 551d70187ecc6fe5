#include "shared/document/document.h"
#include "shared/document/sessioninfo.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

DocumentImpactDetail detail(int position, double sum)
{
    DocumentImpactDetail result;
    result.setPosition(position);
    result.setDiscountSum(sum);
    return result;
}

/// A document that keeps the name of its order at its own place.
class DeliveryDocument : public Document
{
public:
    QString getOrderId() const override { return u"delivery-5"_s; }
};

} // namespace

/// The till's documents and what they are made of.
class TestDocument : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void freshObjectsAreEmpty();
    void documentKeepsWhatItIsGiven();
    void orderIdMayComeFromElsewhere();
    void equalDetailsAreKept();
    void applyLimit_data();
    void applyLimit();
    void sessionInfo_data();
    void sessionInfo();
};

void TestDocument::freshObjectsAreEmpty()
{
    const Document document;
    QVERIFY(document.getImpacts().isEmpty() && document.getGoods().isEmpty());
    QVERIFY(document.getOrderId().isEmpty() && !document.getDateTime().isValid());

    const DocumentImpact impact;
    QVERIFY(impact.getDetails().empty());
    QVERIFY(impact.getTotals().getValutCode().isNull());
    QCOMPARE(impact.getTotals().getDiscountMode(), 0);
    QCOMPARE(impact.getTotals().getDiscountType(), 0);
    QCOMPARE(impact.getTotals().getDiscountSum(), 0.0);

    const GoodsItem item;
    QVERIFY(item.isAllowDiscount() && item.isAllowBonusEarn());
    QVERIFY(item.getCampaignLabels().isEmpty());
    QCOMPARE(item.getQuantity(), 1.0);
    QCOMPARE(item.getTmc().getPriceSourceType(), 0);
}

void TestDocument::documentKeepsWhatItIsGiven()
{
    Tmc tmc;
    tmc.setPriceSourceType(5);
    GoodsItem item;
    item.setPosnum(3);
    item.setAdditionalBarcode(u"4600001"_s);
    item.setQuantity(2.5);
    item.setTmc(tmc);
    item.setCampaignLabels({u"NOSPEND"_s});
    item.setAllowDiscount(false);
    item.setAllowBonusEarn(false);

    DocumentImpactDetail totals;
    totals.setValutCode(12);
    totals.setDiscountMode(6);
    totals.setDiscountType(5);
    totals.setDiscountSum(7.5);
    DocumentImpact impact;
    impact.setTotals(totals);
    impact.setDetails({detail(3, 7.5)});

    Document document;
    document.setGoods({item});
    document.setImpacts({impact});
    document.setOrderId(u"order-1"_s);
    document.setDateTime(QDateTime(QDate(2026, 1, 31), QTime(23, 59)));

    const GoodsItem line = document.getGoods().value(0);
    QCOMPARE(line.getPosnum(), 3);
    QCOMPARE(line.getAdditionalBarcode(), u"4600001"_s);
    QCOMPARE(line.getQuantity(), 2.5);
    QCOMPARE(line.getTmc().getPriceSourceType(), 5);
    QCOMPARE(line.getCampaignLabels(), QStringList{u"NOSPEND"_s});
    QVERIFY(!line.isAllowDiscount() && !line.isAllowBonusEarn());
    const DocumentImpact change = document.getImpacts().value(0);
    QCOMPARE(change.getTotals().getValutCode(), QVariant(12));
    QCOMPARE(change.getTotals().getDiscountMode(), 6);
    QCOMPARE(change.getTotals().getDiscountType(), 5);
    QCOMPARE(change.getTotals().getDiscountSum(), 7.5);
    QCOMPARE(change.getDetails().begin()->getPosition(), 3);
    QCOMPARE(change.getDetails().begin()->getDiscountSum(), 7.5);
    QCOMPARE(document.getOrderId(), u"order-1"_s);
    QCOMPARE(document.getDateTime(), QDateTime(QDate(2026, 1, 31), QTime(23, 59)));
}

void TestDocument::orderIdMayComeFromElsewhere()
{
    const DeliveryDocument delivery;
    const Document &document = delivery;
    QCOMPARE(document.getOrderId(), u"delivery-5"_s);
}

void TestDocument::equalDetailsAreKept()
{
    DocumentImpact impact;
    impact.setDetails({detail(2, 1.5), detail(1, 3.0), detail(2, 1.5)});
    QStringList found;
    for (const DocumentImpactDetail &part : impact.getDetails())
        found.append(u"%1: %2"_s.arg(part.getPosition()).arg(part.getDiscountSum()));
    QCOMPARE(found, (QStringList{u"1: 3"_s, u"2: 1.5"_s, u"2: 1.5"_s}));
}

void TestDocument::applyLimit_data()
{
    QTest::addColumn<double>("amount");
    QTest::addColumn<double>("minimum");
    QTest::addColumn<double>("whole");
    QTest::addColumn<double>("above");
    QTest::newRow("no minimum") << 100.0 << 0.0 << 100.0 << 100.0;
    QTest::newRow("a minimum") << 100.0 << 30.0 << 100.0 << 70.0;
    QTest::newRow("all of it") << 100.0 << 100.0 << 100.0 << 0.0;
    QTest::newRow("below the minimum already") << 20.0 << 30.0 << 20.0 << 0.0;
}

void TestDocument::applyLimit()
{
    QFETCH(double, amount);
    QFETCH(double, minimum);
    QFETCH(double, whole);
    QFETCH(double, above);
    GoodsItem item;
    item.setAmount(amount);
    item.setMinimalAmount(minimum);
    QCOMPARE(item.getDiscountApplyLimit(false), whole);
    QCOMPARE(item.getDiscountApplyLimit(true), above);
}

void TestDocument::sessionInfo_data()
{
    QTest::addColumn<QVariantMap>("map");
    QTest::addColumn<QString>("sessionId");
    QTest::addColumn<QVariantMap>("details");
    QTest::addColumn<QJsonObject>("json");

    QTest::newRow("nothing") << QVariantMap() << QString() << QVariantMap()
                             << QJsonObject{{u"sessionId"_s, u""_s}};
    const QVariantMap details{{u"cheque"_s, 42}, {u"goods"_s, QVariantList{u"а"_s, u"b"_s}}};
    QTest::newRow("everything is kept") << details << QString() << details
                                        << QJsonObject{{u"cheque"_s, 42},
                                                       {u"goods"_s, QJsonArray{u"а"_s, u"b"_s}},
                                                       {u"sessionId"_s, u""_s}};
    QVariantMap withId = details;
    withId.insert(u"sessionId"_s, u"s-1"_s);
    QTest::newRow("the id stands apart") << withId << u"s-1"_s << details
                                         << QJsonObject{{u"cheque"_s, 42},
                                                        {u"goods"_s, QJsonArray{u"а"_s, u"b"_s}},
                                                        {u"sessionId"_s, u"s-1"_s}};
}

void TestDocument::sessionInfo()
{
    QFETCH(QVariantMap, map);
    QFETCH(QString, sessionId);
    QFETCH(QVariantMap, details);
    QFETCH(QJsonObject, json);

    SessionInfo info(map);
    QCOMPARE(info.getSessionId(), sessionId);
    QCOMPARE(info.getDetails(), details);
    QCOMPARE(info.toJson(), json);
    info.setSessionId(u"other"_s);
    QCOMPARE(info.getSessionId(), u"other"_s);
    QCOMPARE(info.toJson().value(u"sessionId"_s), QJsonValue(u"other"_s));
    QCOMPARE(info.getDetails(), details);
}

QTEST_GUILESS_MAIN(TestDocument)
#include "tst_document.moc"
