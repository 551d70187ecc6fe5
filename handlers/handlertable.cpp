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

std::span<const HandlerRow> handlerTable()
{
    // clang-format off
    static constexpr HandlerRow rows[] = {
        row<AbmLoyaltyHandler>            (u"abmloyalty"),
        row<ApMindboxHandler>             (u"apmindbox"),
        typedRow<TalloBonusHandler>       (u"tallobonus"),
        typedRow<TalloBonusHandler>       (u"tallocertificate"),
        typedRow<TalloBonusHandler>       (u"tallocoupon"),
        row<AtolPayHandler>               (u"atolpay"),
        row<CardLabHandler>               (u"cardlab"),
        row<CftSbpHandler>                (u"cftsbp"),
        row<CustomerAddressHandler>       (u"customeraddress"),
        row<EstesisHandler>               (u"estesis"),
        row<GiftomanHandler>              (u"giftoman"),
        row<GoldCrownHandler>             (u"goldcrown"),
        row<GreenwichParkingTicketHandler>(u"greenwichparkingticket"),
        row<HeinekenHandler>              (u"heineken"),
        row<IturupHandler>                (u"iturup"),
        row<IturupSbpHandler>             (u"iturupsbp"),
        row<LoyaHandler>                  (u"loya"),
        row<LoymaxHandler>                (u"loymax"),
        row<Manzana2011Handler>           (u"manzana"),
        row<Manzana2019Handler>           (u"manzana2019"),
        row<ManzanaLoyaltyOnlineHandler>  (u"manzanaloyaltyonline"),
        typedRow<MegarHandler>            (u"megar"),
        row<MfgHandler>                   (u"mfg"),
        row<MindboxHandler>               (u"mindbox"),
        row<NoChangeHandler>              (u"nochange"),
        row<NspkEcHandler>                (u"nspkec"),
        row<PlatiQRHandler>               (u"platiqr"),
        row<PlatiQR3Handler>              (u"platiqr3"),
        row<PlaziusHandler>               (u"plazius"),
        row<PriceCoreHandler>             (u"pricecore"),
        row<PriorityApiHandler>           (u"priorityapi"),
        row<ProcessingHandler>            (u"processing"),
        row<RaiffeisenSbpHandler>         (u"raiffeisensbp"),
        typedRow<MegarHandler>            (u"rrsocial"),
        row<RsbSbpHandler>                (u"rsbsbp"),
        row<RSLoyaltyHandler>             (u"rsloyalty"),
        row<SetOmniHandler>               (u"setomni"),
        row<SmartScalesHandler>           (u"smartscales"),
        row<SoftCheckHandler>             (u"softcheck"),
        typedRow<SpasiboHandler>          (u"spasibo"),
        typedRow<SpasiboHandler>          (u"spasiboBatch"),
        typedRow<SpasiboHandler>          (u"spasiboReverse"),
        row<TsumHandler>                  (u"tsum"),
        row<WaybillNumberHandler>         (u"waybillnumber"),
        row<WinelabBonusHandler>          (u"winelabbonus"),
        row<WinelabCertificateHandler>    (u"winelabcertificate"),
        row<WinelabSoftChequeHandler>     (u"winelabsoftcheque"),
    };
    // clang-format on
    return rows;
}
