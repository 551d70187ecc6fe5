#include "engine/basichandler.h"
#include "handlers/loyalty/goldcrownhandler.h"
#include "handlers/loyalty/spasibohandler.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"

#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

/// A request as most types hold it.
const QString prepared = uR"({"url":"http://shop.test/a","body":"<a/>"})"_s;

const QString delivered = u"delivered"_s;

QString dropped(const QString &reason)
{
    return u"dropped: "_s + reason;
}

QString doneBefore(const QString &reason)
{
    return u"delivered: "_s + reason;
}

/// The exchange succeeded, but the reply refuses.
QString kept(const QString &reason)
{
    return u"kept service: "_s + reason;
}

http::Response xml(const QByteArray &text)
{
    return reply(200, text);
}

const QString refused = u"сервис отказал, повтор не предусмотрен"_s;

} // namespace

/// What the service records of a message of each type, by the answer of the outside service.
class TestVerdicts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void forwarding_data();
    void forwarding() { compare(); }
    void loyalty_data();
    void loyalty() { compare(); }
    void goldCrown_data();
    void goldCrown();
    void spasiboGivesUpAtItsLimit();
    void other_data();
    void other() { compare(); }
    void retail_data();
    void retail() { compare(); }

private:
    static void addColumns();
    static void add(const QString &type, const char *name, const QString &body,
                    const Script &script, const QString &verdict);
    static void compare();
};

void TestVerdicts::addColumns()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("body");
    QTest::addColumn<Script>("script");
    QTest::addColumn<QString>("verdict");
}

void TestVerdicts::add(const QString &type, const char *name, const QString &body,
                       const Script &script, const QString &verdict)
{
    QTest::addRow("%s: %s", qPrintable(type), name) << type << body << script << verdict;
}

void TestVerdicts::compare()
{
    QFETCH(QString, type);
    QFETCH(QString, body);
    QFETCH(Script, script);

    const FakeRestClient net(script);
    QTEST(outcomeOf(type, body), "verdict");
}

void TestVerdicts::forwarding_data()
{
    addColumns();
    // The reply is not read, so only the exchange decides.
    const QStringList plain{u"abmloyalty"_s,       u"cardlab"_s,       u"customeraddress"_s,
                            u"estesis"_s,          u"heineken"_s,      u"nochange"_s,
                            u"smartscales"_s,      u"waybillnumber"_s, u"winelabbonus"_s,
                            u"winelabsoftcheque"_s};
    for (const QString &type : plain) {
        add(type, "200", prepared, {reply(200, "{\"error\":1}")}, delivered);
        add(type, "500", prepared, {reply(500)}, keptBy(reply(500)));
        add(type, "no connection", prepared, {noConnection()}, keptBy(noConnection()));
    }
    const QString softCheck = u"softcheck"_s;
    add(softCheck, "204", prepared, {reply(204)}, delivered);
    add(softCheck, "404", prepared, {reply(404)}, dropped(refused));
    add(softCheck, "no connection", prepared, {noConnection()}, keptBy(noConnection()));

    const QString parking = u"greenwichparkingticket"_s;
    const QJsonObject explained{{u"message"_s, u"Нет такого билета"_s}};
    // clang-format off
    add(parking, "200",                    prepared, {reply(200)},                            delivered);
    add(parking, "201",                    prepared, {reply(201)},                            delivered);
    add(parking, "404, explained",         prepared, {json(404, explained)},                  dropped(u"сервис отказал: Нет такого билета"_s));
    add(parking, "422, an empty message",  prepared, {json(422, {{u"message"_s, u""_s}})},    dropped(u"сервис отказал"_s));
    add(parking, "404",                    prepared, {reply(404)},                            dropped(refused));
    add(parking, "500, explained",         prepared, {json(500, explained)},                  dropped(refused));
    add(parking, "no connection",          prepared, {noConnection()},                        keptBy(noConnection()));
    add(parking, "cut off after 404",      prepared, {http::Response::failed(2, tr::Tr(u"оборвано"_s), 404)}, u"kept network: оборвано"_s);

    const QString omni = u"setomni"_s;
    add(omni, "any XML",        prepared,                                                 {xml("<error/>")}, delivered);
    add(omni, "no XML",         prepared,                                                 {xml("OK")},       kept(u"ответ не прочитан"_s));
    add(omni, "a broken body",  uR"({"url":"http://shop.test/a","body":"<a>"})"_s,        {},                u"kept request: в сообщении нет правильного документа XML"_s);
    add(omni, "500",            prepared,                                                 {reply(500)},      keptBy(reply(500)));
    add(omni, "no connection",  prepared,                                                 {noConnection()},  keptBy(noConnection()));

    const QString wine = u"winelabcertificate"_s;
    add(wine, "create",         prepared, {xml("<r><status>Create</status></r>")}, delivered);
    add(wine, "another status", prepared, {xml("<r><status>error</status></r>")},  kept(u"в ответе нет статуса create"_s));
    add(wine, "no XML",         prepared, {xml("create")},                         kept(u"в ответе нет статуса create"_s));
    add(wine, "no connection",  prepared, {noConnection()},                        keptBy(noConnection()));
    // clang-format on
}

void TestVerdicts::loyalty_data()
{
    addColumns();
    const auto loymax = [](const QByteArray &code) {
        return xml("<r><RefundResponse ErrorCode='" + code + "'/></r>");
    };
    const QString max = u"loymax"_s;
    // clang-format off
    add(max, "0",                       prepared, {loymax("0")},                     delivered);
    add(max, "207",                     prepared, {loymax("207")},                   doneBefore(u"запрос был доставлен ранее"_s));
    add(max, "allowed",                 prepared, {loymax("101")},                   dropped(u"допустимая ошибка, код 101"_s));
    add(max, "another code",            prepared, {loymax("1")},                     kept(u"код ошибки: 1"_s));
    add(max, "no known element",        prepared, {xml("<r/>")},                     kept(u"в ответе нет известного элемента"_s));
    add(max, "217, then 0",             prepared, {loymax("217"), loymax("0")},      delivered);
    add(max, "217, then allowed",       prepared, {loymax("217"), loymax("101")},    dropped(u"допустимая ошибка, код 101"_s));
    add(max, "217, then not reached",   prepared, {loymax("217"), noConnection()},   keptBy(noConnection()));
    add(max, "217 to a broken body",    uR"({"url":"http://shop.test/a","body":"<a>"})"_s, {loymax("217")}, u"kept request: в сообщении нет правильного документа XML"_s);
    add(max, "500",                     prepared, {reply(500)},                      keptBy(reply(500)));

    const QByteArray forbidden = "<r><ReturnCode>80420</ReturnCode><Message>Операция запрещена по статусу карты</Message></r>";
    for (const QString &type : {u"manzana"_s, u"manzana2019"_s}) {
        add(type, "0",             prepared, {xml("<r><ReturnCode>0</ReturnCode></r>")},     delivered);
        add(type, "81301",         prepared, {xml("<r><ReturnCode>81301</ReturnCode></r>")}, delivered);
        add(type, "80420",         prepared, {xml(forbidden)},                               dropped(u"сервис отказал: Операция запрещена по статусу карты"_s));
        add(type, "another code",  prepared, {xml("<r><ReturnCode>5</ReturnCode></r>")},     kept(u"код ошибки 5"_s));
        add(type, "no code",       prepared, {xml("<r/>")},                                  kept(u"в ответе нет поля ReturnCode"_s));
        add(type, "no connection", prepared, {noConnection()},                               keptBy(noConnection()));
    }
    const QString online = u"manzanaloyaltyonline"_s;
    add(online, "0",              prepared, {xml("<r><ReturnCode>0</ReturnCode></r>")}, delivered);
    add(online, "another code",   prepared, {xml("<r><ReturnCode>5</ReturnCode></r>")}, kept(u"код ошибки 5"_s));
    add(online, "no code",        prepared, {xml("<r/>")},                              kept(u"в ответе нет поля ReturnCode"_s));
    add(online, "no connection",  prepared, {noConnection()},                           keptBy(noConnection()));

    for (const QString &type : {u"goldcrown"_s, u"spasiboBatch"_s, u"spasiboReverse"_s})
        add(type, "no certificate", prepared, {}, u"kept certificate: нет сертификата для соединения"_s);

    const QString spasibo = u"spasibo"_s;
    add(spasibo, "204",             prepared,               {reply(204)},    delivered);
    add(spasibo, "no address",      u"{}"_s,                {},              dropped(u"в сообщении нет правильного адреса"_s));
    add(spasibo, "400",             prepared,               {reply(400)},    dropped(u"сервис отказал окончательно: HTTP 400"_s));
    add(spasibo, "422 with a code", prepared,               {json(422, {{u"errorCode"_s, u"NO"_s}})}, dropped(u"сервис отказал окончательно: HTTP 422 (NO)"_s));
    add(spasibo, "503",             prepared,               {reply(503)},    kept(u"HTTP 503, попытка 1 из 20"_s));
    add(spasibo, "no connection",   prepared,               {noConnection()}, keptBy(noConnection()));

    const QString bonus = uR"({"method":"rollback","hosts":["http://bonus.test"]})"_s;
    for (const QString &type : {u"tallobonus"_s, u"tallocertificate"_s, u"tallocoupon"_s}) {
        add(type, "0",              bonus,                      {json(200, {{u"result"_s, 0}})}, delivered);
        add(type, "uncritical",     bonus,                      {json(200, {{u"result"_s, 5}, {u"critical"_s, false}, {u"message"_s, u"Карта закрыта"_s}})}, dropped(u"сервис отказал: Карта закрыта"_s));
        add(type, "critical",       bonus,                      {json(200, {{u"result"_s, 5}})}, u"kept service"_s);
        add(type, "unknown method", uR"({"method":"x"})"_s,     {},                              u"kept request: неизвестный метод сообщения"_s);
        add(type, "no connection",  bonus,                      {noConnection()},                keptBy(noConnection()));
    }
    // clang-format on
}

void TestVerdicts::goldCrown_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<QString>("verdict");
    const auto status = [](const QByteArray &inside) {
        return xml("<r><status>" + inside + "</status></r>");
    };
    // clang-format off
    QTest::newRow("0")             << status("<code>0</code>") << delivered;
    QTest::newRow("allowed")       << status("<code>7</code>") << dropped(u"допустимая ошибка, код 7"_s);
    QTest::newRow("another code")  << status("<code>8</code>") << kept(u"код ошибки 8"_s);
    QTest::newRow("no code")       << status("")               << kept(u"в ответе нет поля code"_s);
    QTest::newRow("no status")     << xml("<r/>")              << kept(u"в ответе нет поля status"_s);
    QTest::newRow("500")           << reply(500)               << keptBy(reply(500));
    QTest::newRow("no connection") << noConnection()           << keptBy(noConnection());
    // clang-format on
}

void TestVerdicts::goldCrown()
{
    QFETCH(http::Response, answer);

    struct WithCertificate : GoldCrownHandler
    {
        WithCertificate()
            : GoldCrownHandler(u"goldcrown"_s)
        {
            allowedErrors = {7};
        }
        QString prepareCertificate(const QString &, const QString &) override
        {
            return u"/certs/till.pem"_s;
        }
    } handler;
    const FakeRestClient net({answer});
    QTEST(told(handler.attempt(Message())), "verdict");
}

void TestVerdicts::spasiboGivesUpAtItsLimit()
{
    Message message;
    message.body = {{u"url"_s, u"http://shop.test/a"_s}};
    const auto verdictAfter = [&message](int attempts) {
        const FakeRestClient net({reply(503)});
        message.statusCode = QString::number(attempts);
        return told(SpasiboHandler().attempt(message));
    };
    QCOMPARE(verdictAfter(18), kept(u"HTTP 503, попытка 19 из 20"_s));
    QCOMPARE(verdictAfter(19), dropped(u"исчерпаны попытки отправки: 20, HTTP 503"_s));
}

void TestVerdicts::other_data()
{
    addColumns();
    const auto id = [](const QString &value) {
        return json(200, {{u"result"_s, QJsonObject{{u"id"_s, value}}}});
    };
    const auto error = [](int code) {
        return json(200, {{u"error"_s, QJsonObject{{u"code"_s, code}}}});
    };
    const QString last = u"исчерпаны попытки, третий ответ не рассматривается"_s;
    const QString gift = u"giftoman"_s;
    const http::Response again = id(u"0"_s);
    // clang-format off
    add(gift, "an id",             prepared, {id(u"5"_s)},                  delivered);
    add(gift, "0, then an id",     prepared, {again, id(u"5"_s)},           delivered);
    add(gift, "no error, no id",   prepared, {json(200, {})},               delivered);
    add(gift, "another error",     prepared, {error(-32600)},               dropped(u"сервис ответил ошибкой"_s));
    add(gift, "0 three times",     prepared, {again, again, again},         dropped(last));
    add(gift, "an id at last",     prepared, {again, again, id(u"5"_s)},    dropped(last));
    add(gift, "an error at last",  prepared, {again, again, error(1)},      dropped(last));
    add(gift, "internal error",    prepared, {error(-32605)},               kept(u"внутренняя ошибка сервиса"_s));
    add(gift, "lost at the second", prepared, {again, noConnection()},      keptBy(noConnection()));

    const QString iturup = u"iturup"_s;
    add(iturup, "success",           prepared, {json(200, {{u"success"_s, true}})},                          delivered);
    add(iturup, "refused",           prepared, {json(200, {{u"success"_s, false}, {u"message"_s, u"чек чужой"_s}})}, dropped(u"сервис отказал: чек чужой"_s));
    add(iturup, "refused with 400",  prepared, {reply(400)},                                                 dropped(u"сервис отказал"_s));
    add(iturup, "no connection",     prepared, {noConnection()},                                             keptBy(noConnection()));

    const QString loya = u"loya"_s;
    add(loya, "a chain",        uR"({"urls":{"0":"http://a.test/","1":"http://b.test/"}})"_s, {reply(200), reply(200)}, delivered);
    add(loya, "no link",        u"{}"_s,                                                      {},                       dropped(u"в сообщении нет ни одного адреса"_s));
    add(loya, "a link is lost", uR"({"urls":{"0":"http://a.test/","1":"http://b.test/"}})"_s, {reply(200), noConnection()}, keptBy(noConnection()));

    for (const QString &type : {u"megar"_s, u"rrsocial"_s}) {
        add(type, "approved",       prepared, {xml("<a><Rspn>APPR</Rspn></a>")},                          delivered);
        add(type, "handled before", prepared, {xml("<a><Rspn>DECL</Rspn><RspnRsn>331</RspnRsn></a>")},    doneBefore(u"транзакция была обработана ранее"_s));
        add(type, "declined",       prepared, {xml("<a><Rspn>DECL</Rspn><RspnRsn>5</RspnRsn></a>")},      kept(u"операция не выполнена, код 5"_s));
        add(type, "no result",      prepared, {xml("<a/>")},                                              kept(u"в ответе нет поля Rspn"_s));
        add(type, "no XML",         prepared, {xml("APPR")},                                              kept(u"ответ не прочитан"_s));
        add(type, "no connection",  prepared, {noConnection()},                                           keptBy(noConnection()));
    }
    const QString plazius = u"plazius"_s;
    add(plazius, "both answered",    u"{}"_s, {reply(200), reply(200)},      delivered);
    add(plazius, "the second fails", u"{}"_s, {reply(200), reply(500)},      keptBy(reply(500)));
    add(plazius, "no session",       u"{}"_s, {noConnection()},              keptBy(noConnection()));

    const QString core = u"pricecore"_s;
    for (const QString &subtype : {u"prizeapi"_s, u"metropolia"_s}) {
        const QString body = uR"({"url":"http://shop.test/a","subtype":"%1"})"_s.arg(subtype);
        add(core, qPrintable(subtype + u", 200"_s),           body, {reply(200)},      delivered);
        add(core, qPrintable(subtype + u", 500"_s),           body, {reply(500)},      dropped(refused));
        add(core, qPrintable(subtype + u", no connection"_s), body, {noConnection()},  keptBy(noConnection()));
    }
    add(core, "another subtype", prepared, {}, dropped(u"неизвестный вид сообщения"_s));

    const QString priority = u"priorityapi"_s;
    add(priority, "0",             prepared, {json(200, {{u"code"_s, 0}})},  delivered);
    add(priority, "another code",  prepared, {json(200, {{u"code"_s, -7}})}, kept(u"код ошибки -7"_s));
    add(priority, "no code",       prepared, {reply(204)},                   kept(u"в ответе нет поля code"_s));
    add(priority, "no connection", prepared, {noConnection()},               keptBy(noConnection()));

    const QString rs = u"rsloyalty"_s;
    const QByteArray unknown = "<a><faultstring>Дисконтная карта не найдена.</faultstring></a>";
    add(rs, "true",            prepared, {xml("<a><Result>true</Result></a>")},   delivered);
    add(rs, "false",           prepared, {xml("<a><Result>false</Result></a>")},  kept(u"сервис не подтвердил операцию"_s));
    add(rs, "204",             prepared, {reply(204)},                            kept(u"сервис не подтвердил операцию"_s));
    add(rs, "unknown card",    prepared, {reply(500, unknown)},                   dropped(u"сервис отказал: Дисконтная карта не найдена"_s));
    add(rs, "another fault",   prepared, {reply(500, "<a/>")},                    keptBy(reply(500)));
    add(rs, "cut off",         prepared, {http::Response::failed(2, tr::Tr(u"оборвано"_s), 200)}, u"kept network: оборвано"_s);

    const QString tsum = u"tsum"_s;
    add(tsum, "200",           prepared, {reply(200)},     delivered);
    add(tsum, "500",           prepared, {reply(500)},     keptBy(reply(500)));
    add(tsum, "no connection", prepared, {noConnection()}, keptBy(noConnection()));
    // clang-format on
}

void TestVerdicts::retail_data()
{
    addColumns();
    for (const QString &type :
         {u"excisemark"_s, u"partialreservation"_s, u"questiontocashier"_s, u"uzofd"_s}) {
        add(type, "200", prepared, {reply(200)}, delivered);
        add(type, "500", prepared, {reply(500)}, keptBy(reply(500)));
        add(type, "no connection", prepared, {noConnection()}, keptBy(noConnection()));
    }
    for (const QString &type : {u"onlinecheck"_s, u"deferredcheck"_s}) {
        add(type, "200", prepared, {reply(200)}, delivered);
        add(type, "500", prepared, {reply(500)}, dropped(refused));
        add(type, "no connection", prepared, {noConnection()}, keptBy(noConnection()));
    }
    const auto exists = [](bool result) {
        return json(200, {{u"result"_s, result}});
    };
    const QString counter = u"counterchange"_s;
    // clang-format off
    add(counter, "200",                   prepared, {reply(200)},                   delivered);
    add(counter, "400, there already",    prepared, {reply(400), exists(true)},     doneBefore(u"сервис уже принял операцию"_s));
    add(counter, "400, not there",        prepared, {reply(400), exists(false)},    keptBy(reply(400)));
    add(counter, "400, question lost",    prepared, {reply(400), noConnection()},   keptBy(reply(400)));
    add(counter, "500",                   prepared, {reply(500)},                   keptBy(reply(500)));
    add(counter, "no connection",         prepared, {noConnection()},               keptBy(noConnection()));

    const QString register_ = u"frcashbox"_s;
    const QJsonObject error{{u"error"_s, QJsonObject{{u"code"_s, 7}, {u"message"_s, u"Нет бумаги"_s}}}};
    add(register_, "done",          prepared, {json(200, {{u"ok"_s, 1}})},                                     delivered);
    add(register_, "logged in",     prepared, {reply(401), json(200, {}), json(200, {{u"ok"_s, 1}})},          delivered);
    add(register_, "an error",      prepared, {json(200, error)},                                              kept(u"код ошибки 7: Нет бумаги"_s));
    add(register_, "empty",         prepared, {reply(200)},                                                    kept(u"ответ пуст или не прочитан"_s));
    add(register_, "no connection", prepared, {noConnection()},                                                keptBy(noConnection()));

    const QString markdown = u"markdown"_s;
    add(markdown, "200",            prepared, {json(200, {{u"errorCode"_s, -2}})}, delivered);
    add(markdown, "allowed",        prepared, {json(400, {{u"errorCode"_s, -2}})}, dropped(u"допустимая ошибка, код -2"_s));
    add(markdown, "another error",  prepared, {json(500, {{u"errorCode"_s, -3}})}, keptBy(reply(500)));
    add(markdown, "no connection",  prepared, {noConnection()},                    keptBy(noConnection()));
    // clang-format on
}

QTEST_GUILESS_MAIN(TestVerdicts)
#include "tst_verdicts.moc"
