#include "handlers/loyalty/mfg/interface.h"
#include "shared/core/basicexception.h"
#include "shared/core/config.h"
#include "shared/core/singleton.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/testsettings.h"
#include "tests/support/vtable.h"

#include <log4qt/logger.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

using Headers = QMap<QString, QString>;
/// An operation of the client, and what it returned as a text.
using Operation = std::function<QString(mfg::Interface &)>;

const QString category = u"mfg"_s;
const QString someSettings = u"[Mfg]\n"
                             "host = http://mfg.test:8080\n"
                             "user = till\n"
                             "password = secret\n"
                             "timeout = 2500\n"
                             "brand = Обувь & Ко\n"
                             "verificationBrand = other\n"
                             "onlineStore = S-1\n"
                             "terminal = T-7\n"_s;
const Headers sentHeaders{{u"Authorization"_s, u"Basic dGlsbDpzZWNyZXQ="_s},
                          {u"Content-Type"_s, u"application/json"_s}};
const QString api = u"http://mfg.test:8080/api/ax/xpp/v1/"_s;
const QString brandQuery = u"Brand=%D0%9E%D0%B1%D1%83%D0%B2%D1%8C%20%26%20%D0%9A%D0%BE"_s;

QString text(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QJsonObject object(const QByteArray &json)
{
    return QJsonDocument::fromJson(json).object();
}

DocumentCardRecord card()
{
    DocumentCardRecord result;
    result.setNumber(u"2200"_s);
    result.setOperationId(u"basket-1"_s);
    return result;
}

Document document()
{
    Document result;
    result.setOrderId(u"order-9"_s);
    result.setDateTime(QDateTime(QDate(2026, 1, 31), QTime(10, 0)));
    GoodsItem item;
    item.setPosnum(1);
    item.setAmount(100.0);
    result.setGoods({item});
    return result;
}

/// A document with its own way of naming its order.
class DeliveryDocument : public Document
{
public:
    QString getOrderId() const override { return u"delivery-5"_s; }
};

/// Returns each default and records which setting was read.
class RecordingConfig : public Config
{
public:
    explicit RecordingConfig(const QString &brand = QString())
        : brand(brand)
        , former(Singleton<Config>::replace(this))
    {
    }
    ~RecordingConfig() override { Singleton<Config>::replace(former); }

    QString getString(const QString &key, const QString &defaultValue) override
    {
        asked.append(key + u" '"_s + defaultValue + u'\'');
        return key == u"Mfg:brand" && !brand.isEmpty() ? brand : defaultValue;
    }
    int getInt(const QString &key, int defaultValue) override
    {
        asked.append(key + u' ' + QString::number(defaultValue));
        return defaultValue;
    }

    QStringList asked;

private:
    QString brand;
    Config *former;
};

/// Makes the fields accessible.
class OpenInterface : public mfg::Interface
{
public:
    using Interface::headers;
    using Interface::verificationBrand;
};

/// The text of the exception, "!" before it, or what the operation returned.
QString outcomeOf(mfg::Interface &interface, const Operation &operation)
{
    try {
        return operation(interface);
    } catch (const BasicException &error) {
        return u"!"_s + error.tr().ru();
    }
}

} // namespace

Q_DECLARE_METATYPE(Operation)

/// The client of the Mfg service.
class TestMfgInterface : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { settings.set(someSettings); }

    void operationsKeepTheirPlaces();
    void settingsAreReadInTheirOrder();
    void verificationBrandFollowsTheBrand();
    void configIsMadeWhenThereIsNone();
    void settingsAreReadOnce();
    void authorization_data();
    void authorization();
    void operationUrl_data();
    void operationUrl();
    void verificationUrl();
    void unreadableHost();
    void lookUps_data();
    void lookUps();
    void emptyValuesKeepTheirEqualsSign();
    void orders_data();
    void orders();
    void failedOrderLeavesTheCard_data();
    void failedOrderLeavesTheCard();
    void preparedRequests_data();
    void preparedRequests();
    void orderIdComesFromTheDocument();
    void storedBasketIsWhatIsPosted();
    void verifyBySms();
    void sendForResult();
    void exchange();
    void envelope_data();
    void envelope();
    void refusalIsThatOfTheLatestRequest();
    void callersGetTheFailure_data();
    void callersGetTheFailure();

private:
    TestSettings settings;
};

void TestMfgInterface::operationsKeepTheirPlaces()
{
    // The first two places are the destructor's.
    using mfg::Interface;
    const QList<int> places = {
        slotOf(&Interface::searchCustomer),     slotOf(&Interface::cardInfo),
        slotOf(&Interface::loyaltyBalanceInfo), slotOf(&Interface::calculateOrder),
        slotOf(&Interface::createOrder),        slotOf(&Interface::createOrderRequest),
        slotOf(&Interface::updateOrderRequest), slotOf(&Interface::postOrderRequest),
        slotOf(&Interface::bindOrderIdRequest), slotOf(&Interface::cancelOrderRequest),
        slotOf(&Interface::verifyBySms),        slotOf(&Interface::sendFromQueue),
        slotOf(&Interface::sendForResult),      slotOf(&Interface::generateBasketId),
        slotOf(&Interface::buildBasket),        slotOf(&Interface::execute),
        slotOf(&Interface::checkResponse),      slotOf(&Interface::operationUrl),
        slotOf(&Interface::verificationUrl),
    };
    for (int i = 0; i < places.size(); ++i)
        QCOMPARE(places.at(i), i + 2);
}

void TestMfgInterface::settingsAreReadInTheirOrder()
{
    const RecordingConfig config;
    const mfg::Interface interface;
    QCOMPARE(config.asked, (QStringList{
                               u"Mfg:host 'http://localhost'"_s,
                               u"Mfg:path '/api/ax/xpp/v1'"_s,
                               u"Mfg:verificationPath '/api/twofa/msg/v1'"_s,
                               u"Mfg:user ''"_s,
                               u"Mfg:password ''"_s,
                               u"Mfg:timeout 10000"_s,
                               u"Mfg:brand ''"_s,
                               u"Mfg:verificationBrand ''"_s,
                               u"Mfg:onlineStore ''"_s,
                               u"Mfg:terminal ''"_s,
                           }));
}

void TestMfgInterface::verificationBrandFollowsTheBrand()
{
    {
        const RecordingConfig config(u"Обувь"_s);
        const OpenInterface interface;
        QCOMPARE(config.asked.value(7), u"Mfg:verificationBrand 'Обувь'"_s);
        QCOMPARE(interface.verificationBrand, u"Обувь"_s);
    }
    QCOMPARE(OpenInterface().verificationBrand, u"other"_s);
}

void TestMfgInterface::configIsMadeWhenThereIsNone()
{
    Config *former = Singleton<Config>::replace(nullptr);
    const mfg::Interface interface;
    Config *made = Singleton<Config>::replace(former);
    QVERIFY(made);
    delete made;
}

void TestMfgInterface::settingsAreReadOnce()
{
    mfg::Interface interface;
    settings.set(u"[Mfg]\nhost = http://changed.test\n"_s);
    QCOMPARE(interface.operationUrl(u"x"_s, {}).toString(), api + u"x"_s);
    QCOMPARE(mfg::Interface().operationUrl(u"x"_s, {}).toString(),
             u"http://changed.test/api/ax/xpp/v1/x"_s);
}

void TestMfgInterface::authorization_data()
{
    QTest::addColumn<QString>("config");
    QTest::addColumn<QString>("value");
    QTest::newRow("nobody: a colon") << u""_s << u"Basic Og=="_s;
    QTest::newRow("both") << u"user = till\npassword = secret"_s << u"Basic dGlsbDpzZWNyZXQ="_s;
    QTest::newRow("user") << u"user = till"_s << u"Basic dGlsbDo="_s;
    QTest::newRow("password") << u"password = a:b"_s << u"Basic OmE6Yg=="_s;
    // The bytes of the till's locale, UTF-8, with the ordinary alphabet and its padding.
    QTest::newRow("letters") << u"user = ж\npassword = \?\?\?>>>"_s << u"Basic 0LY6Pz8/Pj4+"_s;
}

void TestMfgInterface::authorization()
{
    QFETCH(QString, config);
    QFETCH(QString, value);
    settings.set(u"[Mfg]\n"_s + config + u'\n');
    const OpenInterface interface;
    QCOMPARE(interface.headers,
             (QHash<QString, QString>{{u"Authorization"_s, value},
                                      {u"Content-Type"_s, u"application/json"_s}}));
}

void TestMfgInterface::operationUrl_data()
{
    QTest::addColumn<QString>("config");
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QUrlQuery>("query");
    QTest::addColumn<QByteArray>("expected");

    const QString host = u"host = http://h.test"_s;
    const QUrlQuery none;
    // clang-format off
    QTest::newRow("defaults")                  << u""_s                             << u"op"_s  << none                 << "http://localhost/api/ax/xpp/v1/op"_ba;
    QTest::newRow("host")                      << u"host = https://h.test:8443"_s   << u"op"_s  << none                 << "https://h.test:8443/api/ax/xpp/v1/op"_ba;
    QTest::newRow("path")                      << host + u"\npath = /a"_s           << u"op"_s  << none                 << "http://h.test/a/op"_ba;
    QTest::newRow("path ends in a slash")      << host + u"\npath = /a/"_s          << u"op"_s  << none                 << "http://h.test/a/op"_ba;
    QTest::newRow("path of the host is replaced") << u"host = http://h.test/own/path"_s << u"op"_s << none              << "http://h.test/api/ax/xpp/v1/op"_ba;
    QTest::newRow("slash before the operation replaces the path") << host           << u"/op"_s << none                 << "http://h.test/op"_ba;
    QTest::newRow("query")                     << host                              << u"op"_s  << QUrlQuery(u"a=1"_s)  << "http://h.test/api/ax/xpp/v1/op?a=1"_ba;
    QTest::newRow("query of the host is replaced") << u"host = http://h.test?x=1"_s << u"op"_s  << none                 << "http://h.test/api/ax/xpp/v1/op"_ba;
    QTest::newRow("path is taken decoded")     << host + u"\npath = /а%20b?c"_s     << u"op"_s  << none                 << "http://h.test/%D0%B0%2520b%3Fc/op"_ba;
    QTest::newRow("host with blanks in it")    << u"host = http://h.test/a b"_s     << u"op"_s  << none                 << "http://h.test/api/ax/xpp/v1/op"_ba;
    // clang-format on
}

void TestMfgInterface::operationUrl()
{
    QFETCH(QString, config);
    QFETCH(QString, operation);
    QFETCH(QUrlQuery, query);
    QFETCH(QByteArray, expected);
    settings.set(u"[Mfg]\n"_s + config + u'\n');
    QCOMPARE(mfg::Interface().operationUrl(operation, query).toEncoded(), expected);
}

void TestMfgInterface::verificationUrl()
{
    QCOMPARE(mfg::Interface().verificationUrl(u"send"_s).toString(),
             u"http://mfg.test:8080/api/twofa/msg/v1/send"_s);
    settings.set(u"[Mfg]\nhost = http://h.test/own\nverificationPath = /sms\n"_s);
    QCOMPARE(mfg::Interface().verificationUrl(u"send"_s).toString(), u"http://h.test/sms/send"_s);
    QCOMPARE(mfg::Interface().verificationUrl(u"/send"_s).toString(), u"http://h.test/send"_s);
}

/// The value must not turn the address into that of another server.
void TestMfgInterface::unreadableHost()
{
    settings.set(u"[Mfg]\nhost = http://h.test:99999\n"_s);
    mfg::Interface interface;
    for (const QUrl &url : {interface.operationUrl(u"op"_s, QUrlQuery(u"a=1"_s)),
                            interface.verificationUrl(u"send"_s)})
        QVERIFY(url.errorString().contains(u"http://h.test:99999"));
}

void TestMfgInterface::lookUps_data()
{
    QTest::addColumn<Operation>("operation");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("line");

    using mfg::SearchKind;
    const auto search = [](const QString &key, SearchKind kind) {
        return Operation(
            [key, kind](mfg::Interface &mfg) { return text(mfg.searchCustomer(key, kind)); });
    };
    const Operation info = [](mfg::Interface &mfg) {
        return text(mfg.cardInfo(u"22 00"_s, u"A&1"_s));
    };
    const Operation balance = [](mfg::Interface &mfg) {
        return QString::number(mfg.loyaltyBalanceInfo(u"2200"_s, u"A1"_s));
    };
    const QByteArray data = R"({"data":{"Name":"Я"},"result":{"a":1}})";
    const QString found = uR"({"Name":"Я"})"_s;
    const QString searchLine = u"DEBUG Получение информации о клиенте"_s;
    const QString infoLine = u"DEBUG Получение уровня программы лояльности"_s;
    const QString balanceLine = u"DEBUG Получение баллов для списания"_s;
    const QString searchTarget = u"searchCustomer?"_s + brandQuery;
    const QString infoTarget =
        u"cardInfo?"_s + brandQuery + u"&CardNumber=22%2000&CustAccountNum=A%261"_s;
    const QString balanceTarget =
        u"loyaltyBalanceInfo?"_s + brandQuery + u"&CardNumber=2200&CustAccountNum=A1"_s;

    // clang-format off
    QTest::newRow("search by phone")        << search(u"+7900%201"_s, SearchKind::Phone) << searchTarget + u"&Phone=%2B7900%25201"_s << data << found << searchLine;
    QTest::newRow("search by card")         << search(u"2200"_s, SearchKind::Card)  << searchTarget + u"&CardNumber=2200"_s << data << found << searchLine;
    QTest::newRow("any other kind: card")   << search(u"2200"_s, SearchKind(7))     << searchTarget + u"&CardNumber=2200"_s << data << found << searchLine;
    QTest::newRow("search: no data")        << search(u"2200"_s, SearchKind::Card)  << searchTarget + u"&CardNumber=2200"_s << "{}"_ba << u"{}"_s << searchLine;
    QTest::newRow("search: data is a list") << search(u"2200"_s, SearchKind::Card)  << searchTarget + u"&CardNumber=2200"_s << R"({"data":[1]})"_ba << u"{}"_s << searchLine;
    QTest::newRow("card info")              << info    << infoTarget    << data << found << infoLine;
    QTest::newRow("card info: not JSON")    << info    << infoTarget    << "<html/>"_ba << u"{}"_s << infoLine;
    QTest::newRow("balance")                << balance << balanceTarget << R"({"data":{"AmountQty":12.75}})"_ba << u"12.75"_s << balanceLine;
    QTest::newRow("balance: absent")        << balance << balanceTarget << R"({"data":{},"AmountQty":3})"_ba << u"0"_s << balanceLine;
    QTest::newRow("balance: a text")        << balance << balanceTarget << R"({"data":{"AmountQty":"12"}})"_ba << u"0"_s << balanceLine;
    // clang-format on
}

void TestMfgInterface::lookUps()
{
    QFETCH(Operation, operation);
    QFETCH(QString, target);
    QFETCH(QByteArray, answer);
    QFETCH(QString, result);
    QFETCH(QString, line);

    const LogCapture log(category);
    FakeRestClient net({reply(200, answer)});
    mfg::Interface interface;
    QCOMPARE(operation(interface), result);
    QCOMPARE(net.transcript(), QStringList{u"GET "_s + api + target});
    QCOMPARE(net.lastRequest().headers, sentHeaders);
    QCOMPARE(net.lastRequest().body, QByteArray());
    QCOMPARE(log.lines(), QStringList{line});
}

void TestMfgInterface::emptyValuesKeepTheirEqualsSign()
{
    settings.set(u"[Mfg]\nhost = http://mfg.test:8080\n"_s);
    FakeRestClient net({reply(200), reply(200)});
    mfg::Interface interface;
    interface.searchCustomer(QString(), mfg::SearchKind::Phone);
    interface.cardInfo(QString(), u""_s);
    QCOMPARE(net.transcript(),
             (QStringList{u"GET "_s + api + u"searchCustomer?Brand=&Phone="_s,
                          u"GET "_s + api + u"cardInfo?Brand=&CardNumber=&CustAccountNum="_s}));
}

void TestMfgInterface::orders_data()
{
    QTest::addColumn<bool>("create");
    QTest::addColumn<bool>("noDiscount");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QString>("line");
    QTest::newRow("calculate") << false << false << u"calculateOrder"_s
                               << u"DEBUG Предварительный расчёт баллов"_s;
    QTest::newRow("create") << true << false << u"createOrder"_s << u"DEBUG Создание заказа"_s;
    QTest::newRow("create without discounts")
        << true << true << u"createOrder"_s << u"DEBUG Создание заказа"_s;
}

void TestMfgInterface::orders()
{
    QFETCH(bool, create);
    QFETCH(bool, noDiscount);
    QFETCH(QString, target);
    QFETCH(QString, line);

    const LogCapture log(category);
    FakeRestClient net({reply(200, R"({"success":true,"result":{"basket":"other","sum":5}})")});
    mfg::Interface interface;
    DocumentCardRecord customer = card();
    const mfg::OrderResult order = create ? interface.createOrder(document(), customer, noDiscount)
                                          : interface.calculateOrder(document(), customer);

    QCOMPARE(net.transcript(), QStringList{u"POST "_s + api + target});
    QCOMPARE(net.lastRequest().headers, sentHeaders);
    const QJsonObject sent = net.lastRequest().jsonObject();
    QCOMPARE(sent, interface.buildBasket(document(), card(), noDiscount));
    QCOMPARE(order.result, object(R"({"basket":"other","sum":5})"));
    // The name that was sent, not the one in the reply.
    QCOMPARE(order.basket, u"basket-1"_s);
    QCOMPARE(customer.getOperationInfo().toMap(), sent.toVariantMap());
    QCOMPARE(customer.getOperationId(), u"basket-1"_s);
    QCOMPARE(log.lines(), QStringList{line});
}

void TestMfgInterface::failedOrderLeavesTheCard_data()
{
    QTest::addColumn<bool>("create");
    QTest::newRow("calculate") << false;
    QTest::newRow("create") << true;
}

void TestMfgInterface::failedOrderLeavesTheCard()
{
    QFETCH(bool, create);
    FakeRestClient net({reply(200, R"({"success":false,"message":"Нет"})")});
    mfg::Interface interface;
    DocumentCardRecord customer(3, u"2200"_s, u"op"_s, QVariantMap{{u"old"_s, 1}});
    QCOMPARE(outcomeOf(interface,
                       [&](mfg::Interface &mfg) {
                           if (create)
                               mfg.createOrder(document(), customer, false);
                           else
                               mfg.calculateOrder(document(), customer);
                           return u"done"_s;
                       }),
             u"!Нет"_s);
    QCOMPARE(customer.getOperationInfo().toMap(), (QVariantMap{{u"old"_s, 1}}));
    QVERIFY(!customer.isOperationInfoSet());
}

void TestMfgInterface::preparedRequests_data()
{
    using Maker = std::function<mfg::Request(mfg::Interface &)>;
    QTest::addColumn<Maker>("make");
    QTest::addColumn<QString>("target");
    QTest::addColumn<QJsonObject>("payload");

    settings.set(someSettings);
    mfg::Interface interface;
    const QJsonObject plain = interface.buildBasket(document(), card(), false);
    const QJsonObject noSpending = interface.buildBasket(document(), card(), true);
    QVERIFY(plain != noSpending);
    DocumentCardRecord calculated = card();
    calculated.setOperationInfo(QJsonObject{{u"basket"_s, u"b"_s}, {u"sum"_s, 1.5}});
    const QByteArray reference = R"("brand":"Обувь & Ко","cardNumber":"2200","onlineStore":"S-1",
                                    "basket":"basket-1","terminal":"T-7")";

    // clang-format off
    QTest::newRow("create")                   << Maker([](mfg::Interface &mfg) { return mfg.createOrderRequest(document(), card(), false); }) << u"createOrder"_s << plain;
    QTest::newRow("create without discounts") << Maker([](mfg::Interface &mfg) { return mfg.createOrderRequest(document(), card(), true); })  << u"createOrder"_s << noSpending;
    QTest::newRow("update")                   << Maker([](mfg::Interface &mfg) { return mfg.updateOrderRequest(document(), card()); })        << u"updateOrder"_s << plain;
    QTest::newRow("post")                     << Maker([calculated](mfg::Interface &mfg) { return mfg.postOrderRequest(calculated); })        << u"postOrder"_s   << object(R"({"basket":"b","sum":1.5})");
    QTest::newRow("post of nothing")          << Maker([](mfg::Interface &mfg) { return mfg.postOrderRequest(card()); })                      << u"postOrder"_s   << QJsonObject();
    QTest::newRow("bind")                     << Maker([](mfg::Interface &mfg) { return mfg.bindOrderIdRequest(document(), card()); })        << u"bindOrderId"_s << object("{" + reference + R"(,"orderID":"order-9"})");
    QTest::newRow("cancel")                   << Maker([](mfg::Interface &mfg) { return mfg.cancelOrderRequest(document(), card()); })        << u"cancelOrder"_s << object("{" + reference + "}");
    // clang-format on
}

void TestMfgInterface::preparedRequests()
{
    using Maker = std::function<mfg::Request(mfg::Interface &)>;
    QFETCH(Maker, make);
    QFETCH(QString, target);
    QFETCH(QJsonObject, payload);

    const LogCapture log(category);
    // Nothing is sent.
    const FakeRestClient net;
    mfg::Interface interface;
    const mfg::Request request = make(interface);
    QCOMPARE(request.op, 4);
    QCOMPARE(request.url.toString(), api + target);
    QVERIFY(!request.url.hasQuery());
    QCOMPARE(request.headers.size(), 2);
    for (const auto &[name, value] : sentHeaders.asKeyValueRange())
        QCOMPARE(request.headers.value(name), value);
    QVERIFY(request.payload.isObject());
    QCOMPARE(request.payload.object(), payload);
    QCOMPARE(log.lines(), QStringList());
}

void TestMfgInterface::orderIdComesFromTheDocument()
{
    mfg::Interface interface;
    const DeliveryDocument delivery;
    QCOMPARE(interface.bindOrderIdRequest(delivery, card()).payload.object().value(u"orderID"_s),
             QJsonValue(u"delivery-5"_s));
    QCOMPARE(interface.bindOrderIdRequest(Document(), card()).payload.object().value(u"orderID"_s),
             QJsonValue(u""_s));
}

void TestMfgInterface::storedBasketIsWhatIsPosted()
{
    FakeRestClient net({reply(200, "{}")});
    mfg::Interface interface;
    DocumentCardRecord customer;
    customer.setNumber(u"2200"_s);
    const mfg::OrderResult order = interface.calculateOrder(document(), customer);
    QVERIFY(!order.basket.isEmpty());
    QCOMPARE(order.result, QJsonObject());
    // The new name is part of the stored order; the card's operation stays empty.
    QVERIFY(customer.getOperationId().isEmpty());
    const QJsonObject posted = interface.postOrderRequest(customer).payload.object();
    QCOMPARE(posted, net.lastRequest().jsonObject());
    QCOMPARE(posted.value(u"basket"_s).toString(), order.basket);
}

void TestMfgInterface::verifyBySms()
{
    const LogCapture log(category);
    FakeRestClient net({reply(200, R"(["whatever"])")});
    mfg::Interface().verifyBySms(u"Код 1234"_s, u"+79001234567"_s);
    QCOMPARE(net.transcript(), QStringList{u"POST http://mfg.test:8080/api/twofa/msg/v1/send"_s});
    QCOMPARE(net.lastRequest().headers, sentHeaders);
    // The brand, not the one for verifications.
    QCOMPARE(net.lastRequest().jsonObject(),
             object(R"({"brand":"Обувь & Ко","phone":"+79001234567","text":"Код 1234",
                        "channel":"sms"})"));
    QCOMPARE(log.lines(), QStringList{u"INFO Верификация покупателя через СМС"_s});
}

void TestMfgInterface::sendForResult()
{
    const LogCapture log(category);
    FakeRestClient net({reply(200, R"({"result":{"basket":"b","sum":5}})")});
    mfg::Request request;
    request.op = 3;
    request.url = QUrl(u"http://elsewhere.test/x?y=1"_s);
    request.headers = {{u"X-Own"_s, u"1"_s}};
    request.payload = QJsonDocument(QJsonObject{{u"a"_s, 1}});
    const mfg::OrderResult order = mfg::Interface().sendForResult(request);
    QCOMPARE(order.result, object(R"({"basket":"b","sum":5})"));
    QCOMPARE(order.basket, QString());
    QCOMPARE(net.transcript(), QStringList{u"PUT http://elsewhere.test/x?y=1"_s});
    QCOMPARE(net.lastRequest().headers, (Headers{{u"X-Own"_s, u"1"_s}}));
    QCOMPARE(net.lastRequest().body, R"({"a":1})");
    QCOMPARE(log.lines(), QStringList());
}

void TestMfgInterface::exchange()
{
    FakeRestClient net({reply(201, R"({"a":1})")});
    mfg::Request request;
    request.op = 2;
    request.url = QUrl(u"http://elsewhere.test/x"_s);
    const http::Response response = mfg::Interface().execute(request, false);
    QCOMPARE(response.status, 201);
    QCOMPARE(response.responseObject(), object(R"({"a":1})"));
    QCOMPARE(net.steps(), (QStringList{u"setTimeoutMs 2500"_s, u"GET http://elsewhere.test/x"_s}));
    QCOMPARE(net.lastRequest().timeoutMs.value_or(-1), 2500);
    QVERIFY(net.lastRequest().logger);
    QCOMPARE(net.lastRequest().logger->name(), category);
}

void TestMfgInterface::envelope_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("strict");
    QTest::addColumn<QString>("tolerant");
    QTest::addColumn<bool>("isLogged");

    const QString good = u"good"_s;
    const auto same = [](const char *name, int status, const QByteArray &body,
                         const QString &outcome) {
        QTest::newRow(name) << reply(status, body) << outcome << outcome << false;
    };
    /// A caller gets an exception; the queue logs it and drops the message.
    const auto logged = [good](const char *name, const http::Response &answer,
                               const QString &failure) {
        QTest::newRow(name) << answer << u"!"_s + failure << good << true;
    };
    const auto cutOff = [](int status) {
        return http::Response::failed(2, tr::Tr(u"Соединение закрыто раньше времени"_s), status);
    };
    const QByteArray no = R"({"success":false,"message":"Карта %1 закрыта"})";
    const QString closed = u"Карта %1 закрыта"_s;
    const auto status = [](int code) {
        return u"Сервер ответил ошибкой, код состояния HTTP %1"_s.arg(code);
    };

    // clang-format off
    same("success",                          200, R"({"success":true})",                           good);
    same("success absent",                   200, R"({"data":{}})",                                good);
    same("empty object",                     200, "{}",                                            good);
    same("empty reply",                      200, "",                                              good);
    same("no JSON",                          200, "<html/>",                                       good);
    same("list",                             200, R"([{"success":false}])",                        good);
    same("another status of success",        204, "",                                              good);
    same("error 0",                          200, R"({"success":true,"error":{"errorCode":0,"description":"x"}})", good);
    same("error below 0",                    200, R"({"error":{"errorCode":-5}})",                 good);
    same("error without code",               200, R"({"success":true,"error":{"description":"x"}})", good);
    same("error code as text",               200, R"({"error":{"errorCode":"5"}})",                good);
    same("error code as fraction",           200, R"({"error":{"errorCode":5.5}})",                good);
    same("error null",                       200, R"({"error":null})",                             good);
    same("error as text",                    200, R"({"error":"5"})",                              good);
    same("error 5",                          200, R"({"success":true,"error":{"errorCode":5,"description":"Нет карты"}})", u"!Нет карты"_s);
    same("error 5, success absent",          200, R"({"error":{"errorCode":5,"description":"Нет %1"}})", u"!Нет %1"_s);
    same("error 5, no text",                 200, R"({"error":{"errorCode":5},"message":"x"})",    u"!"_s);
    same("error 5 under 201",                201, R"({"error":{"errorCode":5,"description":"Нет карты"}})", u"!Нет карты"_s);
    logged("no success",                     reply(200, no),                                       closed);
    logged("no success beside error 5",      reply(200, R"({"success":false,"message":"а","error":{"errorCode":5,"description":"б"}})"), u"а"_s);
    logged("no success, no text",            reply(200, R"({"success":false})"),                   u""_s);
    logged("success as text",                reply(200, R"({"success":"true","message":"а"})"),    u"а"_s);
    logged("success as number",              reply(200, R"({"success":1,"message":"а"})"),         u"а"_s);
    logged("success null",                   reply(200, R"({"success":null,"message":"а"})"),      u"а"_s);
    logged("no success under 400",           reply(400, no),                                       closed);
    logged("no success under 500",           reply(500, no),                                       closed);
    same("no success under 201",             201, no,                                              u"!"_s + closed);
    same("no success under 404",             404, no,                                              u"!"_s + closed);
    same("no success under 503",             503, no,                                              u"!"_s + closed);
    logged("400",                            reply(400),                                           status(400));
    logged("500",                            reply(500),                                           status(500));
    logged("400 with success",               reply(400, R"({"success":true})"),                    status(400));
    logged("400 with error 5",               reply(400, R"({"error":{"errorCode":5,"description":"б"}})"), status(400));
    logged("500 with a text",                reply(500, R"({"message":"Сбой"})"),                  u"Сбой"_s);
    logged("500, the text is no text",       reply(500, R"({"message":5})"),                       status(500));
    logged("200 that breaks off",            cutOff(200),                                          u"Соединение закрыто раньше времени"_s);
    logged("500 that breaks off",            cutOff(500),                                          u"Соединение закрыто раньше времени"_s);
    same("401",                              401, "",                                              u"!"_s + status(401));
    same("302",                              302, R"({"success":true})",                           u"!"_s + status(302));
    same("503 with a text",                  503, R"({"message":"Закрыто"})",                      u"!Закрыто"_s);
    QTest::newRow("201 that breaks off")     << cutOff(201)     << u"!Соединение закрыто раньше времени"_s << u"!Соединение закрыто раньше времени"_s << false;
    QTest::newRow("no connection")           << noConnection()  << u"!Сервер отклонил соединение"_s << u"!Сервер отклонил соединение"_s << false;
    QTest::newRow("no answer in time")       << timeout()       << u"!Сервер не ответил вовремя"_s << u"!Сервер не ответил вовремя"_s << false;
    // clang-format on
}

void TestMfgInterface::envelope()
{
    QFETCH(http::Response, answer);
    QFETCH(QString, strict);
    QFETCH(QString, tolerant);
    QFETCH(bool, isLogged);

    LogCapture log(category);
    mfg::Interface interface;
    const auto judged = [&](bool isTolerant) {
        return outcomeOf(interface, [&](mfg::Interface &mfg) {
            mfg.checkResponse(answer, isTolerant);
            return u"good"_s;
        });
    };
    QCOMPARE(judged(false), strict);
    QCOMPARE(log.lines(), QStringList());
    QCOMPARE(judged(true), tolerant);
    QCOMPARE(log.lines(), isLogged ? QStringList{u"ERROR "_s + strict.mid(1)} : QStringList());
    log.clear();

    // execute() passes the mode on and returns what is allowed in it.
    FakeRestClient net({answer, answer});
    const auto executed = [&](bool isTolerant) {
        return outcomeOf(interface, [&](mfg::Interface &mfg) {
            mfg::Request request;
            request.op = 4;
            request.url = QUrl(u"http://x.test"_s);
            return mfg.execute(request, isTolerant).body == answer.body ? u"good"_s : u"other"_s;
        });
    };
    QCOMPARE(executed(false), strict);
    QCOMPARE(executed(true), tolerant);
}

void TestMfgInterface::refusalIsThatOfTheLatestRequest()
{
    const QJsonObject queued{{u"op"_s, 4}, {u"url"_s, u"http://mfg.test/x"_s}};
    FakeRestClient net({reply(200, R"({"success":false,"message":"Карта 2200 закрыта"})"),
                        reply(200, R"({"success":true})"), noConnection()});
    mfg::Interface interface;
    QVERIFY(!interface.refusal());
    interface.sendFromQueue(queued);
    // The service's text may contain a card number, so it is only logged.
    QCOMPARE(interface.refusal().value_or(QString()), u"сервис отказал в операции"_s);
    interface.sendFromQueue(queued);
    QVERIFY(!interface.refusal());
    QVERIFY_EXCEPTION_THROWN(interface.sendFromQueue(queued), BasicException);
    QVERIFY(!interface.refusal());
}

void TestMfgInterface::callersGetTheFailure_data()
{
    QTest::addColumn<Operation>("operation");

    // clang-format off
    QTest::newRow("searchCustomer")     << Operation([](mfg::Interface &mfg) { mfg.searchCustomer(u"1"_s, mfg::SearchKind::Phone); return QString(); });
    QTest::newRow("cardInfo")           << Operation([](mfg::Interface &mfg) { mfg.cardInfo(u"1"_s, u"2"_s); return QString(); });
    QTest::newRow("loyaltyBalanceInfo") << Operation([](mfg::Interface &mfg) { mfg.loyaltyBalanceInfo(u"1"_s, u"2"_s); return QString(); });
    QTest::newRow("calculateOrder")     << Operation([](mfg::Interface &mfg) { DocumentCardRecord customer; mfg.calculateOrder(document(), customer); return QString(); });
    QTest::newRow("createOrder")        << Operation([](mfg::Interface &mfg) { DocumentCardRecord customer; mfg.createOrder(document(), customer, true); return QString(); });
    QTest::newRow("verifyBySms")        << Operation([](mfg::Interface &mfg) { mfg.verifyBySms(u"1"_s, u"2"_s); return QString(); });
    QTest::newRow("sendForResult")      << Operation([](mfg::Interface &mfg) { mfg.sendForResult({2, QUrl(u"http://x.test"_s), {}, {}}); return QString(); });
    // clang-format on
}

void TestMfgInterface::callersGetTheFailure()
{
    QFETCH(Operation, operation);
    // All in strict mode: the queue would drop these two.
    FakeRestClient net({reply(200, R"({"success":false,"message":"Нет"})"), reply(500)});
    mfg::Interface interface;
    QCOMPARE(outcomeOf(interface, operation), u"!Нет"_s);
    QCOMPARE(outcomeOf(interface, operation), u"!Сервер ответил ошибкой, код состояния HTTP 500"_s);
}

QTEST_GUILESS_MAIN(TestMfgInterface)
#include "tst_mfginterface.moc"
