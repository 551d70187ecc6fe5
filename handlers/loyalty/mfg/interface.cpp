#include "handlers/loyalty/mfg/interface.h"

#include "handlers/common/delivery.h"
#include "handlers/common/messagevalue.h"
#include "handlers/loyalty/mfg/settings.h"
#include "shared/core/basicexception.h"
#include "shared/net/urlquery.h"

#include <log4qt/logmanager.h>

#include <QJsonArray>
#include <QMap>
#include <QUuid>

using namespace Qt::StringLiterals;

namespace mfg {

namespace {

constexpr int getVerb = 2;
constexpr int postVerb = 4;

constexpr int paymentDiscountMode = 6;
constexpr int otherDiscountType = 5;
constexpr int salePriceSource = 5;

/// Discounts of one line that are added back to the amount sent to the service.
struct LineDiscounts
{
    double paymentDiscount = 0.0;
    double otherDiscount = 0.0;
};

struct Discounts
{
    QMap<int, LineDiscounts> lines;
    double paymentDiscAmount = 0.0;
};

std::filesystem::path pathOf(const QString &text)
{
    return {text.toStdString()};
}

QString amount(double value)
{
    return QString::number(value, 'f', 2);
}

bool isPaymentDiscount(const DocumentImpactDetail &totals)
{
    return !totals.getValutCode().isNull() || totals.getDiscountMode() == paymentDiscountMode;
}

Discounts discountsOf(const QList<DocumentImpact> &impacts)
{
    Discounts discounts;
    for (const DocumentImpact &impact : impacts) {
        const DocumentImpactDetail totals = impact.getTotals();
        const DocumentImpact::Details details = impact.getDetails();
        if (isPaymentDiscount(totals)) {
            for (const DocumentImpactDetail &detail : details)
                discounts.lines[detail.getPosition()].paymentDiscount += detail.getDiscountSum();
            discounts.paymentDiscAmount += totals.getDiscountSum();
        } else if (totals.getDiscountType() == otherDiscountType) {
            for (const DocumentImpactDetail &detail : details)
                discounts.lines[detail.getPosition()].otherDiscount += detail.getDiscountSum();
        }
    }
    return discounts;
}

QJsonObject orderLine(const GoodsItem &item, const LineDiscounts &discounts, bool noDiscount)
{
    const QStringList labels = item.getCampaignLabels();
    const double lineAmount =
        item.getDiscountApplyLimit(false) + discounts.otherDiscount + discounts.paymentDiscount;
    return {
        {u"barcode"_s, item.getAdditionalBarcode()},
        {u"lineID"_s, QString::number(item.getPosnum())},
        // The service counts lines, not pieces.
        {u"qty"_s, u"1"_s},
        {u"lineAmount"_s, amount(lineAmount)},
        {u"isSale"_s, item.getTmc().getPriceSourceType() == salePriceSource},
        {u"noDiscountAllowed"_s,
         labels.contains(u"NOSPEND"_s) || !item.isAllowDiscount() || noDiscount},
        {u"noEarnAllowed"_s, !item.isAllowBonusEarn() || labels.contains(u"NOBONUS"_s)},
        {u"paymentDiscAmount"_s, amount(discounts.paymentDiscount)},
    };
}

QUrl urlOf(const QString &host, const std::filesystem::path &folder, const QString &operation)
{
    QUrl url(host, QUrl::TolerantMode);
    // Changing an invalid address could make the rest of it valid, possibly as another server's
    // address.
    if (!url.isValid())
        return url;
    url.setPath(QString::fromStdString((folder / pathOf(operation)).string()), QUrl::DecodedMode);
    return url;
}

} // namespace

Interface::Interface()
    : logger(Log4Qt::LogManager::logger(u"mfg"_s))
{
    host = settings::mfg::host.value();
    path = pathOf(settings::mfg::path.value());
    verificationPath = pathOf(settings::mfg::verificationPath.value());
    const QString user = settings::mfg::user.value();
    const QString password = settings::mfg::password.value();
    timeout = static_cast<int>(settings::mfg::timeout.value().count());
    brand = settings::mfg::brand.value();
    verificationBrand = settings::mfg::verificationBrand.valueOr(brand);
    onlineStore = settings::mfg::onlineStore.value();
    terminal = settings::mfg::terminal.value();

    const QByteArray account = (user + u':' + password).toLocal8Bit();
    headers = {
        {u"Authorization"_s, u"Basic %1"_s.arg(QString::fromLatin1(account.toBase64()))},
        {u"Content-Type"_s, u"application/json"_s},
    };
}

Interface::~Interface() = default;

QJsonObject Interface::searchCustomer(const QString &key, SearchKind kind)
{
    logger->debug(u"Получение информации о клиенте"_s);
    QUrlQuery query;
    query.addQueryItem(u"Brand"_s, http::queryValue(brand));
    query.addQueryItem(kind == SearchKind::Phone ? u"Phone"_s : u"CardNumber"_s,
                       http::queryValue(key));
    return requestData(u"searchCustomer"_s, query);
}

QJsonObject Interface::cardInfo(const QString &cardNumber, const QString &custAccountNum)
{
    logger->debug(u"Получение уровня программы лояльности"_s);
    return requestData(u"cardInfo"_s, customerQuery(cardNumber, custAccountNum));
}

double Interface::loyaltyBalanceInfo(const QString &cardNumber, const QString &custAccountNum)
{
    logger->debug(u"Получение баллов для списания"_s);
    const QJsonObject data =
        requestData(u"loyaltyBalanceInfo"_s, customerQuery(cardNumber, custAccountNum));
    return data.value("AmountQty"_L1).toDouble(0.0);
}

OrderResult Interface::calculateOrder(const Document &document, DocumentCardRecord &card)
{
    logger->debug(u"Предварительный расчёт баллов"_s);
    return sendOrder(u"calculateOrder"_s, document, card, false);
}

OrderResult Interface::createOrder(const Document &document, DocumentCardRecord &card,
                                   bool noDiscount)
{
    logger->debug(u"Создание заказа"_s);
    return sendOrder(u"createOrder"_s, document, card, noDiscount);
}

Request Interface::createOrderRequest(const Document &document, const DocumentCardRecord &card,
                                      bool noDiscount)
{
    return orderRequest(u"createOrder"_s, buildBasket(document, card, noDiscount));
}

Request Interface::updateOrderRequest(const Document &document, const DocumentCardRecord &card)
{
    return orderRequest(u"updateOrder"_s, buildBasket(document, card, false));
}

Request Interface::postOrderRequest(const DocumentCardRecord &card)
{
    return orderRequest(u"postOrder"_s,
                        QJsonObject::fromVariantMap(card.getOperationInfo().toMap()));
}

Request Interface::bindOrderIdRequest(const Document &document, const DocumentCardRecord &card)
{
    QJsonObject payload = orderReference(card);
    payload.insert(u"orderID"_s, document.getOrderId());
    return orderRequest(u"bindOrderId"_s, payload);
}

Request Interface::cancelOrderRequest(const Document & /*document*/, const DocumentCardRecord &card)
{
    return orderRequest(u"cancelOrder"_s, orderReference(card));
}

void Interface::verifyBySms(const QString &text, const QString &phone)
{
    logger->info(u"Верификация покупателя через СМС"_s);
    const QJsonObject payload{
        {u"brand"_s, brand},
        {u"phone"_s, phone},
        {u"text"_s, text},
        {u"channel"_s, u"sms"_s},
    };
    execute(postRequest(verificationUrl(u"send"_s), payload), false);
}

void Interface::sendFromQueue(const QJsonObject &object)
{
    logger->info(u"Отправка сообщения из очереди"_s);
    Request request;
    request.op = object.value("op"_L1).toVariant().toInt();
    request.url = QUrl(object.value("url"_L1).toString(), QUrl::TolerantMode);
    request.headers = messageHeaders(object.value("headers"_L1).toObject().toVariantMap());
    request.payload = QJsonDocument(object.value("payload"_L1).toObject());
    execute(request, true);
}

OrderResult Interface::sendForResult(const Request &request)
{
    const http::Response response = execute(request, false);
    return {response.responseObject().value("result"_L1).toObject(), QString()};
}

QString Interface::generateBasketId()
{
    return QUuid::createUuid().toString(QUuid::WithoutBraces);
}

QJsonObject Interface::buildBasket(const Document &document, const DocumentCardRecord &card,
                                   bool noDiscount)
{
    const Discounts discounts = discountsOf(document.getImpacts());
    const QList<GoodsItem> goods = document.getGoods();
    QJsonArray orderLines;
    for (const GoodsItem &item : goods)
        orderLines.append(orderLine(item, discounts.lines.value(item.getPosnum()), noDiscount));

    const QString operationId = card.getOperationId();
    return {
        {u"brand"_s, brand},
        {u"cardNumber"_s, card.getNumber().toString()},
        {u"onlineStore"_s, onlineStore},
        {u"basket"_s, operationId.isEmpty() ? generateBasketId() : operationId},
        // Under this name the service expects only the date.
        {u"basketDatetime"_s, document.getDateTime().date().toString(u"yyyy-MM-dd"_s)},
        {u"orderLines"_s, orderLines},
        {u"paymentDiscAmount"_s, amount(discounts.paymentDiscAmount)},
        {u"terminal"_s, terminal},
    };
}

http::Response Interface::execute(const Request &request, bool tolerant)
{
    const auto client = createClient(*logger);
    client->setTimeoutMs(timeout);
    client->request(request.op, request.url, request.payload, request.headers);
    const http::Response response = client->response();
    checkResponse(response, tolerant);
    return response;
}

void Interface::checkResponse(const http::Response &response, bool tolerant)
{
    refusal_.reset();
    const QJsonObject object = response.responseObject();
    const bool isRefused =
        object.contains("success"_L1) && !object.value("success"_L1).toBool(false);
    if (response.errorCode == http::noError && !isRefused) {
        checkError(object.value("error"_L1).toObject());
        return;
    }

    const QString message = object.value("message"_L1).toString();
    const tr::Tr failure = message.isEmpty() ? response.errorText : tr::Tr(message);
    // The service has processed the request and would refuse it again.
    const bool isFinal = response.status == 200 || response.status == 400 || response.status == 500;
    const bool isTolerated = tolerant && isFinal;
    if (isTolerated || response.errorCode == http::noError)
        refusal_ = isRefused ? u"сервис отказал в операции"_s : response.errorText.ru();
    if (!isTolerated)
        throw BasicException(failure);
    logger->error(failure.ru());
}

QUrl Interface::operationUrl(const QString &operation, const QUrlQuery &query)
{
    QUrl url = urlOf(host, path, operation);
    http::setQuery(url, query);
    return url;
}

QUrl Interface::verificationUrl(const QString &operation)
{
    return urlOf(host, verificationPath, operation);
}

void Interface::checkError(const QJsonObject &error)
{
    const int code = error.value("errorCode"_L1).toInt(0);
    if (code <= 0)
        return;
    refusal_ = u"сервис ответил кодом ошибки %1"_s.arg(code);
    throw BasicException(error.value("description"_L1).toString());
}

QJsonObject Interface::requestData(const QString &operation, const QUrlQuery &query)
{
    const Request request{getVerb, operationUrl(operation, query), headers, QJsonDocument()};
    return execute(request, false).responseObject().value("data"_L1).toObject();
}

QUrlQuery Interface::customerQuery(const QString &cardNumber, const QString &custAccountNum) const
{
    QUrlQuery query;
    query.addQueryItem(u"Brand"_s, http::queryValue(brand));
    query.addQueryItem(u"CardNumber"_s, http::queryValue(cardNumber));
    query.addQueryItem(u"CustAccountNum"_s, http::queryValue(custAccountNum));
    return query;
}

OrderResult Interface::sendOrder(const QString &operation, const Document &document,
                                 DocumentCardRecord &card, bool noDiscount)
{
    const QJsonObject basket = buildBasket(document, card, noDiscount);
    const http::Response response = execute(orderRequest(operation, basket), false);
    const OrderResult order{response.responseObject().value("result"_L1).toObject(),
                            basket.value("basket"_L1).toString()};
    // A later post sends the order that was answered here.
    card.setOperationInfo(basket);
    return order;
}

Request Interface::postRequest(const QUrl &url, const QJsonObject &payload) const
{
    return {postVerb, url, headers, QJsonDocument(payload)};
}

Request Interface::orderRequest(const QString &operation, const QJsonObject &payload)
{
    return postRequest(operationUrl(operation, QUrlQuery()), payload);
}

QJsonObject Interface::orderReference(const DocumentCardRecord &card) const
{
    return {
        {u"brand"_s, brand},
        {u"cardNumber"_s, card.getNumber().toString()},
        {u"onlineStore"_s, onlineStore},
        {u"basket"_s, card.getOperationId()},
        {u"terminal"_s, terminal},
    };
}

} // namespace mfg
