#include "engine/basichandler.h"
#include "handlers/handlertable.h"

#include <log4qt/logger.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

/// What the till may write into the column `type`, in the order in which the rows stand.
const QStringList allTypes = {
    u"abmloyalty"_s,
    u"apmindbox"_s,
    u"tallobonus"_s,
    u"tallocertificate"_s,
    u"tallocoupon"_s,
    u"atolpay"_s,
    u"cardlab"_s,
    u"cftsbp"_s,
    u"counterchange"_s,
    u"customeraddress"_s,
    u"deferredcheck"_s,
    u"dssl"_s,
    u"eps"_s,
    u"estesis"_s,
    u"excisemark"_s,
    u"frcashbox"_s,
    u"giftoman"_s,
    u"goldcrown"_s,
    u"greenwichparkingticket"_s,
    u"heineken"_s,
    u"iturup"_s,
    u"iturupsbp"_s,
    u"loya"_s,
    u"loymax"_s,
    u"manzana"_s,
    u"manzana2019"_s,
    u"manzanaloyaltyonline"_s,
    u"markdown"_s,
    u"megar"_s,
    u"mfg"_s,
    u"mindbox"_s,
    u"nochange"_s,
    u"nspkec"_s,
    u"onlinecheck"_s,
    u"partialreservation"_s,
    u"platiqr"_s,
    u"platiqr3"_s,
    u"plazius"_s,
    u"pricecore"_s,
    u"priorityapi"_s,
    u"processing"_s,
    u"questiontocashier"_s,
    u"raiffeisensbp"_s,
    u"rrsocial"_s,
    u"rsbsbp"_s,
    u"rsloyalty"_s,
    u"setomni"_s,
    u"smartscales"_s,
    u"softcheck"_s,
    u"spasibo"_s,
    u"spasiboBatch"_s,
    u"spasiboReverse"_s,
    u"tsum"_s,
    u"uzofd"_s,
    u"waybillnumber"_s,
    u"winelabbonus"_s,
    u"winelabcertificate"_s,
    u"winelabsoftcheque"_s,
};

QStringList builtTypes()
{
    QStringList types;
    for (const HandlerRow &row : handlerTable())
        types.append(QString::fromUtf16(row.type));
    return types;
}

} // namespace

class TstHandlerTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowsStandInTheirOrder();
    void everyRowBuildsItsType_data();
    void everyRowBuildsItsType();
};

void TstHandlerTable::rowsStandInTheirOrder()
{
    QCOMPARE(allTypes.size(), 58);
    QCOMPARE(builtTypes(), allTypes);
}

void TstHandlerTable::everyRowBuildsItsType_data()
{
    QTest::addColumn<QString>("type");
    const QStringList built = builtTypes();
    for (const QString &type : built)
        QTest::newRow(qPrintable(type)) << type;
}

void TstHandlerTable::everyRowBuildsItsType()
{
    QFETCH(QString, type);
    HandlerFactory factory(handlerTable());
    const std::unique_ptr<BasicHandler> handler(factory.create(type));
    QVERIFY(handler);
    QCOMPARE(handler->type(), type);
    QCOMPARE(handler->logger()->name(), type);
}

QTEST_GUILESS_MAIN(TstHandlerTable)
#include "tst_handlertable.moc"
