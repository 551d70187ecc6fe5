#include "engine/basichandler.h"
#include "handlers/handlertable.h"

#include <log4qt/logger.h>

#include <QTest>

#include <cstdlib>
#include <cxxabi.h>
#include <memory>

using namespace Qt::StringLiterals;

namespace {

/// The values that the till may write into the column `type`, in the order of the table, and the
/// handler of each.
struct Row
{
    QString type;
    QString handler;
};

// clang-format off
const QList<Row> allRows{
    {u"abmloyalty"_s,             u"AbmLoyaltyHandler"_s},
    {u"apmindbox"_s,              u"ApMindboxHandler"_s},
    {u"tallobonus"_s,             u"TalloBonusHandler"_s},
    {u"tallocertificate"_s,       u"TalloBonusHandler"_s},
    {u"tallocoupon"_s,            u"TalloBonusHandler"_s},
    {u"atolpay"_s,                u"AtolPayHandler"_s},
    {u"cardlab"_s,                u"CardLabHandler"_s},
    {u"cftsbp"_s,                 u"CftSbpHandler"_s},
    {u"counterchange"_s,          u"CountersHandler"_s},
    {u"customeraddress"_s,        u"CustomerAddressHandler"_s},
    {u"deferredcheck"_s,          u"DeferredCheckHandler"_s},
    {u"dssl"_s,                   u"DsslHandler"_s},
    {u"eps"_s,                    u"EpsHandler"_s},
    {u"estesis"_s,                u"EstesisHandler"_s},
    {u"excisemark"_s,             u"ExciseMarkHandler"_s},
    {u"frcashbox"_s,              u"FrCashboxHandler"_s},
    {u"giftoman"_s,               u"GiftomanHandler"_s},
    {u"goldcrown"_s,              u"GoldCrownHandler"_s},
    {u"greenwichparkingticket"_s, u"GreenwichParkingTicketHandler"_s},
    {u"heineken"_s,               u"HeinekenHandler"_s},
    {u"iturup"_s,                 u"IturupHandler"_s},
    {u"iturupsbp"_s,              u"IturupSbpHandler"_s},
    {u"loya"_s,                   u"LoyaHandler"_s},
    {u"loymax"_s,                 u"LoymaxHandler"_s},
    {u"manzana"_s,                u"Manzana2011Handler"_s},
    {u"manzana2019"_s,            u"Manzana2019Handler"_s},
    {u"manzanaloyaltyonline"_s,   u"ManzanaLoyaltyOnlineHandler"_s},
    {u"markdown"_s,               u"MarkdownHandler"_s},
    {u"megar"_s,                  u"MegarHandler"_s},
    {u"mfg"_s,                    u"MfgHandler"_s},
    {u"mindbox"_s,                u"MindboxHandler"_s},
    {u"nochange"_s,               u"NoChangeHandler"_s},
    {u"nspkec"_s,                 u"NspkEcHandler"_s},
    {u"onlinecheck"_s,            u"OnlinecheckHandler"_s},
    {u"partialreservation"_s,     u"PartialReservationHandler"_s},
    {u"platiqr"_s,                u"PlatiQRHandler"_s},
    {u"platiqr3"_s,               u"PlatiQR3Handler"_s},
    {u"plazius"_s,                u"PlaziusHandler"_s},
    {u"pricecore"_s,              u"PriceCoreHandler"_s},
    {u"priorityapi"_s,            u"PriorityApiHandler"_s},
    {u"processing"_s,             u"ProcessingHandler"_s},
    {u"questiontocashier"_s,      u"QuestionToCashierHandler"_s},
    {u"raiffeisensbp"_s,          u"RaiffeisenSbpHandler"_s},
    {u"rrsocial"_s,               u"MegarHandler"_s},
    {u"rsbsbp"_s,                 u"RsbSbpHandler"_s},
    {u"rsloyalty"_s,              u"RSLoyaltyHandler"_s},
    {u"setomni"_s,                u"SetOmniHandler"_s},
    {u"smartscales"_s,            u"SmartScalesHandler"_s},
    {u"softcheck"_s,              u"SoftCheckHandler"_s},
    {u"spasibo"_s,                u"SpasiboHandler"_s},
    {u"spasiboBatch"_s,           u"GoldCrownHandler"_s},
    {u"spasiboReverse"_s,         u"GoldCrownHandler"_s},
    {u"tsum"_s,                   u"TsumHandler"_s},
    {u"uzofd"_s,                  u"UzOfdHandler"_s},
    {u"waybillnumber"_s,          u"WaybillNumberHandler"_s},
    {u"winelabbonus"_s,           u"WinelabBonusHandler"_s},
    {u"winelabcertificate"_s,     u"WinelabCertificateHandler"_s},
    {u"winelabsoftcheque"_s,      u"WinelabSoftChequeHandler"_s},
};
// clang-format on

QStringList allTypes()
{
    QStringList types;
    for (const Row &row : allRows)
        types.append(row.type);
    return types;
}

QStringList builtTypes()
{
    QStringList types;
    for (const HandlerRow &row : handlerTable())
        types.append(QString::fromUtf16(row.type));
    return types;
}

QString classNameOf(const BasicHandler &handler)
{
    const std::unique_ptr<char, decltype(&std::free)> name(
        abi::__cxa_demangle(typeid(handler).name(), nullptr, nullptr, nullptr), &std::free);
    return QString::fromUtf8(name.get());
}

} // namespace

class TestHandlerTable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void rowsAreInOrder();
    void everyRowBuildsItsHandler_data();
    void everyRowBuildsItsHandler();
};

void TestHandlerTable::rowsAreInOrder()
{
    QCOMPARE(allRows.size(), 58);
    QCOMPARE(builtTypes(), allTypes());
}

void TestHandlerTable::everyRowBuildsItsHandler_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("className");
    for (const Row &row : allRows)
        QTest::newRow(qPrintable(row.type)) << row.type << row.handler;
}

void TestHandlerTable::everyRowBuildsItsHandler()
{
    QFETCH(QString, type);
    QFETCH(QString, className);
    HandlerFactory factory(handlerTable());
    const std::unique_ptr<BasicHandler> handler(factory.create(type));
    QVERIFY(handler);
    QCOMPARE(handler->type(), type);
    QCOMPARE(handler->logger()->name(), type);
    QCOMPARE(classNameOf(*handler), className);
}

QTEST_GUILESS_MAIN(TestHandlerTable)
#include "tst_handlertable.moc"
