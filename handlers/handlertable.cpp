#include "handlers/handlertable.h"

#include "handlers/apmindbox/apmindboxhandler.h"
#include "handlers/forwarding/abmloyaltyhandler.h"
#include "handlers/forwarding/cardlabhandler.h"
#include "handlers/forwarding/customeraddresshandler.h"
#include "handlers/forwarding/estesishandler.h"
#include "handlers/forwarding/greenwichparkingtickethandler.h"
#include "handlers/forwarding/heinekenhandler.h"
#include "handlers/forwarding/nochangehandler.h"
#include "handlers/forwarding/setomnihandler.h"
#include "handlers/forwarding/smartscaleshandler.h"
#include "handlers/forwarding/softcheckhandler.h"
#include "handlers/forwarding/waybillnumberhandler.h"
#include "handlers/forwarding/winelabbonushandler.h"
#include "handlers/forwarding/winelabcertificatehandler.h"
#include "handlers/forwarding/winelabsoftchequehandler.h"
#include "handlers/loyalty/goldcrownhandler.h"
#include "handlers/loyalty/loymaxhandler.h"
#include "handlers/loyalty/manzana2011handler.h"
#include "handlers/loyalty/manzana2019handler.h"
#include "handlers/loyalty/manzanaloyaltyonlinehandler.h"
#include "handlers/loyalty/mfghandler.h"
#include "handlers/loyalty/spasibohandler.h"
#include "handlers/loyalty/tallobonushandler.h"
#include "handlers/mindbox/mindboxhandler.h"
#include "handlers/other/giftomanhandler.h"
#include "handlers/other/ituruphandler.h"
#include "handlers/other/loyahandler.h"
#include "handlers/other/megarhandler.h"
#include "handlers/other/plaziushandler.h"
#include "handlers/other/pricecorehandler.h"
#include "handlers/other/priorityapihandler.h"
#include "handlers/other/rsloyaltyhandler.h"
#include "handlers/other/tsumhandler.h"
#include "handlers/payment/atolpayhandler.h"
#include "handlers/payment/cftsbphandler.h"
#include "handlers/payment/iturupsbphandler.h"
#include "handlers/payment/nspkechandler.h"
#include "handlers/payment/platiqr3handler.h"
#include "handlers/payment/platiqrhandler.h"
#include "handlers/payment/processinghandler.h"
#include "handlers/payment/raiffeisensbphandler.h"
#include "handlers/payment/rsbsbphandler.h"
#include "handlers/retail/countershandler.h"
#include "handlers/retail/deferredcheckhandler.h"
#include "handlers/retail/dsslhandler.h"
#include "handlers/retail/epshandler.h"
#include "handlers/retail/excisemarkhandler.h"
#include "handlers/retail/frcashboxhandler.h"
#include "handlers/retail/markdownhandler.h"
#include "handlers/retail/onlinecheckhandler.h"
#include "handlers/retail/partialreservationhandler.h"
#include "handlers/retail/questiontocashierhandler.h"
#include "handlers/retail/uzofdhandler.h"

std::span<const HandlerRow> handlerTable()
{
    // clang-format off
    static constexpr HandlerRow rows[] = {
        row<AbmLoyaltyHandler>            (u"abmloyalty",             u"body.receipt"),
        row<ApMindboxHandler>             (u"apmindbox",              u"payload.order.ids.*"),
        typedRow<TalloBonusHandler>       (u"tallobonus",             u"additionalInfo.cheque sessionId parentSessionId"),
        typedRow<TalloBonusHandler>       (u"tallocertificate",       u"additionalInfo.cheque sessionId parentSessionId"),
        typedRow<TalloBonusHandler>       (u"tallocoupon",            u"additionalInfo.cheque sessionId parentSessionId"),
        row<AtolPayHandler>               (u"atolpay",                u"documentId rrn"),
        row<CardLabHandler>               (u"cardlab",                u"body.receipt"),
        row<CftSbpHandler>                (u"cftsbp",                 u"body.id"),
        row<CountersHandler>              (u"counterchange",          u"message.operationId"),
        row<CustomerAddressHandler>       (u"customeraddress",        u"body.receipt"),
        row<DeferredCheckHandler>         (u"deferredcheck",          u"body.check"),
        row<DsslHandler>                  (u"dssl",                   u"url"),
        row<EpsHandler>                   (u"eps",                    u"host"),
        row<EstesisHandler>               (u"estesis"),
        row<ExciseMarkHandler>            (u"excisemark",             u"body.*.exciseMarkId"),
        row<FrCashboxHandler>             (u"frcashbox",              u"body.check"),
        row<GiftomanHandler>              (u"giftoman"),
        typedRow<GoldCrownHandler>        (u"goldcrown"),
        row<GreenwichParkingTicketHandler>(u"greenwichparkingticket", u"body.ticket"),
        row<HeinekenHandler>              (u"heineken",               u"body.receipt"),
        row<IturupHandler>                (u"iturup",                 u"body.id"),
        row<IturupSbpHandler>             (u"iturupsbp",              u"qrOperationStatus.data.qrc"),
        row<LoyaHandler>                  (u"loya"),
        row<LoymaxHandler>                (u"loymax"),
        row<Manzana2011Handler>           (u"manzana"),
        row<Manzana2019Handler>           (u"manzana2019"),
        row<ManzanaLoyaltyOnlineHandler>  (u"manzanaloyaltyonline"),
        row<MarkdownHandler>              (u"markdown",               u"body.*.rawdata"),
        typedRow<MegarHandler>            (u"megar"),
        row<MfgHandler>                   (u"mfg",                    u"payload.orderID payload.basket"),
        row<MindboxHandler>               (u"mindbox",                u"payload.order.transaction.ids.externalId payload.order.ids.*"),
        row<NoChangeHandler>              (u"nochange",               u"body.receipt"),
        row<NspkEcHandler>                (u"nspkec",                 u"body.qrcId"),
        row<OnlinecheckHandler>           (u"onlinecheck",            u"body.check"),
        row<PartialReservationHandler>    (u"partialreservation",     u"body.markId"),
        row<PlatiQRHandler>               (u"platiqr",                u"orderStatus.data.order_id"),
        row<PlatiQR3Handler>              (u"platiqr3",               u"orderStatus.data.order_id"),
        row<PlaziusHandler>               (u"plazius",                u"request.requestData.order"),
        row<PriceCoreHandler>             (u"pricecore",              u"body.check"),
        row<PriorityApiHandler>           (u"priorityapi",            u"body.check"),
        row<ProcessingHandler>            (u"processing",             u"document.number"),
        row<QuestionToCashierHandler>     (u"questiontocashier"),
        row<RaiffeisenSbpHandler>         (u"raiffeisensbp",          u"body.order body.refundId"),
        typedRow<MegarHandler>            (u"rrsocial"),
        row<RsbSbpHandler>                (u"rsbsbp",                 u"bodyStatus.id"),
        row<RSLoyaltyHandler>             (u"rsloyalty"),
        row<SetOmniHandler>               (u"setomni"),
        row<SmartScalesHandler>           (u"smartscales",            u"body.receipt"),
        row<SoftCheckHandler>             (u"softcheck",              u"body.*.check"),
        row<SpasiboHandler>               (u"spasibo",                u"body.regId"),
        typedRow<GoldCrownHandler>        (u"spasiboBatch"),
        typedRow<GoldCrownHandler>        (u"spasiboReverse"),
        row<TsumHandler>                  (u"tsum"),
        row<UzOfdHandler>                 (u"uzofd",                  u"body.check"),
        row<WaybillNumberHandler>         (u"waybillnumber",          u"body.waybill body.receipt"),
        row<WinelabBonusHandler>          (u"winelabbonus"),
        row<WinelabCertificateHandler>    (u"winelabcertificate"),
        row<WinelabSoftChequeHandler>     (u"winelabsoftcheque",      u"body.receipt"),
    };
    // clang-format on
    return rows;
}
