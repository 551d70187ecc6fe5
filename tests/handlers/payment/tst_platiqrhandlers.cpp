#include "handlers/payment/platiqr3handler.h"
#include "handlers/payment/platiqrhandler.h"
#include "shared/core/paths.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/fixedtime.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString newer = u"platiqr3"_s;
const QString older = u"platiqr"_s;
const QByteArray certificate = "a client's certificate";

const QString opening = u"INFO Отправка сообщения"_s;
const QString noToken = u"ERROR Ошибка при авторизации в Плати QR"_s;

// The steps of a delivery by the addresses of the requests.
const QStringList asking{u"POST https://qr.test/token/status"_s, u"POST https://qr.test/status"_s};
const QStringList revoking{u"POST https://qr.test/token/revoke"_s,
                           u"POST https://qr.test/revoke"_s};
const QStringList cancelling{u"POST https://qr.test/token/cancel"_s,
                             u"POST https://qr.test/cancel"_s};

QJsonObject tokenRequest(const QString &step)
{
    return {{u"url"_s, u"https://qr.test/token/"_s + step},
            {u"headers"_s, QJsonObject{{u"X-Step"_s, step}}},
            {u"data"_s, u"scope="_s + step}};
}

QJsonObject orderRequest(const QString &step, const QString &data)
{
    return {{u"url"_s, u"https://qr.test/"_s + step},
            {u"headers"_s, QJsonObject{{u"authorization"_s, u"Bearer {token}"_s}, {u"X-Id"_s, 5}}},
            {u"data"_s, data}};
}

QJsonObject message()
{
    return {
        {u"timeout"_s, 12},
        {u"certificatePath"_s, rootedPath(u"/certs/till.p12"_s)},
        {u"certificatePassword"_s, u"secret"_s},
        {u"orderStatusToken"_s, tokenRequest(u"status"_s)},
        {u"orderStatus"_s, orderRequest(u"status"_s, u"{\"rq_tm\":\"{rq_tm}\"}"_s)},
        {u"orderRevokeToken"_s, tokenRequest(u"revoke"_s)},
        {u"orderRevoke"_s, orderRequest(u"revoke"_s, u"{\"rq_tm\":\"{rq_tm}\"}"_s)},
        {u"orderCancelToken"_s, tokenRequest(u"cancel"_s)},
        {u"orderCancel"_s, orderRequest(u"cancel"_s, u"{\"rq_tm\":\"{rq_tm}\",\"sum\":199095}"_s)},
    };
}

/// The message with one member of a request, or one request, replaced.
QJsonObject with(const QString &member, const QJsonValue &value)
{
    QJsonObject changed = message();
    changed.insert(member, value);
    return changed;
}

QJsonObject withData(const QString &request, const QString &data)
{
    QJsonObject changed = message().value(request).toObject();
    changed.insert(u"data"_s, data);
    return with(request, changed);
}

QString text(const QJsonObject &body)
{
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

bool deliverMessage(const QString &type, const QJsonObject &body = message())
{
    return deliver(type, text(body));
}

http::Response token(const QString &text = u"t1"_s)
{
    return json(200, {{u"access_token"_s, text}});
}

/// The members of a reply at the places where the service of that type puts them.
QJsonObject placed(const QString &type, const QJsonObject &members)
{
    return type == newer ? members : QJsonObject{{u"status"_s, members}};
}

http::Response answer(const QString &type, const QString &member, const QString &text)
{
    return json(200, placed(type, {{member, text}}));
}

http::Response state(const QString &type, const QString &text)
{
    return answer(type, u"order_state"_s, text);
}

/// The state of a paid order, with what `order_operation_params` says of the payment.
http::Response paid(const QString &type, const QJsonValue &operations)
{
    return json(200, placed(type, {{u"order_state"_s, u"PAID"_s},
                                   {u"order_operation_params"_s, operations}}));
}

QJsonObject operation(const QJsonValue &id, const QJsonValue &code)
{
    return {{u"operation_id"_s, id}, {u"auth_code"_s, code}};
}

http::Response paid(const QString &type)
{
    return paid(type, QJsonArray{operation(u"OP-1"_s, u"0042"_s)});
}

http::Response cancelled(const QString &type)
{
    return answer(type, u"order_status"_s, u"REFUNDED"_s);
}

QString failure(const http::Response &response)
{
    return u"ERROR Ошибка при отправке сообщения: "_s + response.errorText.ru();
}

QString unknownState(const QString &text)
{
    return u"ERROR Необрабатываемый статус заказа: "_s + text;
}

} // namespace

/// Both versions of the Плати QR service, which differ where a row says so.
class TestPlatiQrHandlers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void operationsKeepTheirPlaces();
    void requestsOfACancellation_data() { bothTypes(); }
    void requestsOfACancellation();
    void outcome_data();
    void outcome();
    void lostReply_data();
    void lostReply();
    void statusReplyIsReadBeforeTheTokenRequest_data() { bothTypes(); }
    void statusReplyIsReadBeforeTheTokenRequest();
    void paidOperation_data();
    void paidOperation();
    void cancelData_data();
    void cancelData();
    void tokenPlaces_data();
    void tokenPlaces();
    void presentTime_data();
    void presentTime();
    void tokenRequestsGoOutAsPrepared_data() { bothTypes(); }
    void tokenRequestsGoOutAsPrepared();
    void emptyMessage_data() { bothTypes(); }
    void emptyMessage();
    void certificateIsConvertedOnce_data();
    void certificateIsConvertedOnce();
    void certificateFailures_data() { bothTypes(); }
    void certificateFailures();

private:
    static void bothTypes();
    static QString pemPath(const QByteArray &content);
    static void write(const QString &path, const QByteArray &content);

    QueueDatabase till;
};

void TestPlatiQrHandlers::bothTypes()
{
    QTest::addColumn<QString>("type");
    QTest::newRow("platiqr3") << newer;
    QTest::newRow("platiqr") << older;
}

QString TestPlatiQrHandlers::pemPath(const QByteArray &content)
{
    const QByteArray digest = QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex();
    return rootedPath(u"/tmp/queue_platiqr_%1.pem"_s.arg(QString::fromLatin1(digest)));
}

void TestPlatiQrHandlers::write(const QString &path, const QByteArray &content)
{
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(content), content.size());
}

void TestPlatiQrHandlers::initTestCase()
{
    // Simulates a certificate that was converted before.
    write(rootedPath(u"/certs/till.p12"_s), certificate);
    write(pemPath(certificate), "PEM");
}

void TestPlatiQrHandlers::operationsKeepTheirPlaces()
{
    const int first = slotOf(&BasicHandler::onQueueEmpty) + 1;
    const QList<int> expected{first, first + 1, first + 2, first + 3, first + 4};
    QCOMPARE((QList<int>{
                 slotOf(&PlatiQR3Handler::prepareCertificate),
                 slotOf(&PlatiQR3Handler::requestToken), slotOf(&PlatiQR3Handler::tokenFromReply),
                 slotOf(&PlatiQR3Handler::stateFromReply), slotOf(&PlatiQR3Handler::sendRequest)}),
             expected);
    QCOMPARE(
        (QList<int>{slotOf(&PlatiQRHandler::prepareCertificate),
                    slotOf(&PlatiQRHandler::requestToken), slotOf(&PlatiQRHandler::tokenFromReply),
                    slotOf(&PlatiQRHandler::stateFromReply), slotOf(&PlatiQRHandler::sendRequest)}),
        expected);
}

void TestPlatiQrHandlers::requestsOfACancellation()
{
    QFETCH(QString, type);
    const FixedTime clock(1'700'000'000);
    const QByteArray now =
        QDateTime::fromSecsSinceEpoch(1'700'000'000).toString(Qt::ISODate).toUtf8() + 'Z';
    const LogCapture log(type);
    FakeRestClient net({token(u"t-status"_s), paid(type), token(u"t-cancel"_s), cancelled(type)});
    QVERIFY(deliverMessage(type));

    // One client with one certificate for the whole delivery, which is the PEM file's password too.
    const QStringList setUp{u"setTimeout 12"_s, u"setCertificatePath "_s + pemPath(certificate),
                            u"setCertificatePassword secret"_s};
    QCOMPARE(net.steps(), setUp + asking + cancelling);

    const QList<FakeRestClient::Request> requests = net.requests();
    QCOMPARE(requests[0].body, QByteArray("scope=status"));
    QCOMPARE(requests[0].headers, (QMap<QString, QString>{{u"X-Step"_s, u"status"_s}}));
    QCOMPARE(requests[1].body, QByteArray(R"({"rq_tm":")" + now + R"("})"));
    QCOMPARE(
        requests[1].headers,
        (QMap<QString, QString>{{u"X-Id"_s, u"5"_s}, {u"authorization"_s, u"Bearer t-status"_s}}));
    QCOMPARE(requests[2].body, QByteArray("scope=cancel"));
    // Each request has its own token: the token of the status query is not used again.
    QCOMPARE(requests[3].header(u"authorization"_s), u"Bearer t-cancel"_s);
    QCOMPARE(requests[3].body, QByteArray(R"({"auth_code":"0042","operation_id":"OP-1","rq_tm":")"
                                          + now + R"(","sum":199095})"));
    for (const FakeRestClient::Request &request : requests)
        QVERIFY(request.logger);
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestPlatiQrHandlers::outcome_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<Script>("script");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QStringList>("requests");
    QTest::addColumn<QString>("line");

    const QStringList revocation = asking + revoking;
    const QStringList cancellation = asking + cancelling;
    const QString none;
    const QString tokenless = u"kept credentials: сервис не выдал токен"_s;
    const http::Response refusal = reply(403, R"({"access_token":"t1"})");
    for (const QString &type : {newer, older}) {
        const auto row = [&type](const char *name, const Script &script, const QString &outcome,
                                 const QStringList &requests, const QString &line) {
            QTest::addRow("%s, %s", qPrintable(type), name)
                << type << script << outcome << requests.mid(0, script.size()) << line;
        };
        const auto order = [&type](const QString &text) {
            return state(type, text);
        };
        const auto ended = [&type](const QString &text) {
            return answer(type, u"order_status"_s, text);
        };
        // clang-format off
        row("created: revoked",                {token(), order(u"CREATED"_s), token(), order(u"REVOKED"_s)},    u"delivered"_s,  revocation,   none);
        row("created: revocation not made",    {token(), order(u"CREATED"_s), token(), order(u"CREATED"_s)},    u"kept service: заказ не отозван, его состояние: CREATED"_s, revocation,   none);
        row("created: paid in between",        {token(), order(u"CREATED"_s), token(), order(u"PAID"_s)},       u"kept service: заказ не отозван, его состояние: PAID"_s, revocation,   none);
        row("created: revoked under another name", {token(), order(u"CREATED"_s), token(), ended(u"REVOKED"_s)}, u"kept service: заказ не отозван, его состояние: не указано"_s, revocation,  none);
        row("created: no token",               {token(), order(u"CREATED"_s), json(200, {})},                   tokenless, revocation,   noToken);
        row("created: token not reached",      {token(), order(u"CREATED"_s), noConnection()},                  keptBy(noConnection()), revocation,   failure(noConnection()));
        row("created: revocation not reached", {token(), order(u"CREATED"_s), token(), noConnection()},         keptBy(noConnection()), revocation,   failure(noConnection()));
        row("paid: refunded",                  {token(), paid(type), token(), ended(u"REFUNDED"_s)},            u"delivered"_s,  cancellation, none);
        row("paid: reversed",                  {token(), paid(type), token(), ended(u"REVERSED"_s)},            u"delivered"_s,  cancellation, none);
        row("paid: revoked is not refunded",   {token(), paid(type), token(), ended(u"REVOKED"_s)},             u"kept service: заказ не отменён, его состояние: REVOKED"_s, cancellation, none);
        row("paid: refused",                   {token(), paid(type), token(), ended(u"DECLINED"_s)},            u"kept service: заказ не отменён, его состояние: DECLINED"_s, cancellation, none);
        // The service reports the state of a cancelled order under another name.
        row("paid: refunded under another name", {token(), paid(type), token(), order(u"REFUNDED"_s)},          u"kept service: заказ не отменён, его состояние: не указано"_s, cancellation, none);
        row("paid: no token",                  {token(), paid(type), json(200, {})},                            tokenless, cancellation, noToken);
        row("paid: token not reached",         {token(), paid(type), noConnection()},                           keptBy(noConnection()), cancellation, failure(noConnection()));
        row("paid: cancellation not reached",  {token(), paid(type), token(), noConnection()},                  keptBy(noConnection()), cancellation, failure(noConnection()));
        row("refunded: done already",          {token(), order(u"REFUNDED"_s)},                                 u"delivered: заказ уже отменён, его состояние: REFUNDED"_s,  asking,       none);
        row("reversed: done already",          {token(), order(u"REVERSED"_s)},                                 u"delivered: заказ уже отменён, его состояние: REVERSED"_s,  asking,       none);
        row("revoked: done already",           {token(), order(u"REVOKED"_s)},                                  u"delivered: заказ уже отменён, его состояние: REVOKED"_s,  asking,       none);
        row("another state",                   {token(), order(u"EXPIRED %1"_s)},                               u"kept service: необрабатываемое состояние заказа: EXPIRED %1"_s, asking,       unknownState(u"EXPIRED %1"_s));
        row("compared exactly",                {token(), order(u"paid"_s)},                                     u"kept service: необрабатываемое состояние заказа: paid"_s, asking,       unknownState(u"paid"_s));
        row("no state",                        {token(), json(200, {})},                                        u"kept service: необрабатываемое состояние заказа: не указано"_s, asking,       unknownState(u""_s));
        row("status is not JSON",               {token(), reply(200, "PAID")},                                   u"kept service: необрабатываемое состояние заказа: не указано"_s, asking,       unknownState(u""_s));
        row("status not reached",              {token(), timeout()},                                            keptBy(timeout()), asking,       failure(timeout()));
        row("status: HTTP error",              {token(), reply(500, R"({"order_state":"REFUNDED"})")},          keptBy(reply(500)), asking,       failure(reply(500)));
        row("token not reached",               {noConnection()},                                                keptBy(noConnection()), asking,       failure(noConnection()));
        row("token: HTTP error",               {refusal},                                                       keptBy(reply(403)), asking,       failure(refusal));
        row("no token",                        {json(200, {{u"token"_s, u"t1"_s}})},                            tokenless, asking,       noToken);
        row("empty token",                     {token(u""_s)},                                                  tokenless, asking,       noToken);
        row("token in an array",               {reply(200, R"(["t1"])")},                                       tokenless, asking,       noToken);
        row("no reply to the token request",   {reply(204)},                                                    tokenless, asking,       noToken);
        // Both find the token at the top level, unlike the other members.
        row("token inside the status",         {json(200, {{u"status"_s, QJsonObject{{u"access_token"_s, u"t1"_s}}}})}, tokenless, asking, noToken);
        // clang-format on
    }
    // The till relies on both: a declined order is dropped with the newer service, and stays in the
    // table with the older one.
    QTest::newRow("platiqr3, declined: dropped")
        << newer << Script{token(), state(newer, u"DECLINED"_s)}
        << u"dropped: заказ отклонён, отмены не было"_s << asking << none;
    QTest::newRow("platiqr, declined: unknown there")
        << older << Script{token(), state(older, u"DECLINED"_s)}
        << u"kept service: необрабатываемое состояние заказа: DECLINED"_s << asking
        << unknownState(u"DECLINED"_s);
    // Each reads the state at its own place only.
    QTest::newRow("platiqr3, state inside the status")
        << newer << Script{token(), state(older, u"REFUNDED"_s)}
        << u"kept service: необрабатываемое состояние заказа: не указано"_s << asking
        << unknownState(u""_s);
    QTest::newRow("platiqr, state at the top")
        << older << Script{token(), state(newer, u"REFUNDED"_s)}
        << u"kept service: необрабатываемое состояние заказа: не указано"_s << asking
        << unknownState(u""_s);
}

void TestPlatiQrHandlers::outcome()
{
    QFETCH(QString, type);
    QFETCH(Script, script);
    QFETCH(QStringList, requests);
    QFETCH(QString, line);

    const LogCapture log(type);
    FakeRestClient net(script);
    QTEST(outcomeOf(type, text(message())), "outcome");
    QCOMPARE(net.transcript(), requests);
    QCOMPARE(log.lines(), line.isEmpty() ? QStringList{opening} : (QStringList{opening, line}));
}

void TestPlatiQrHandlers::lostReply_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<Script>("first");
    QTest::addColumn<Script>("second");
    QTest::addColumn<QStringList>("requests");

    const QStringList revocation = asking + revoking;
    const QStringList cancellation = asking + cancelling;
    for (const QString &type : {newer, older}) {
        const http::Response created = state(type, u"CREATED"_s);
        const http::Response revoked = state(type, u"REVOKED"_s);
        const Script revoke{token(), created, token(), revoked};
        const Script cancel{token(), paid(type), token(), cancelled(type)};
        const auto row = [&type](const char *name, const Script &first, const Script &second,
                                 const QStringList &requests) {
            QTest::addRow("%s, %s", qPrintable(type), name) << type << first << second << requests;
        };
        // clang-format off
        row("of the status token",     {timeout()},                               cancel, asking.mid(0, 1) + cancellation);
        row("of the status",           {token(), timeout()},                      cancel, asking + cancellation);
        row("of the revocation token", {token(), created, timeout()},             revoke, revocation.mid(0, 3) + revocation);
        row("of the revocation",       {token(), created, token(), timeout()},    {token(), revoked}, revocation + asking);
        row("of the cancellation token", {token(), paid(type), timeout()},        cancel, cancellation.mid(0, 3) + cancellation);
        row("of the cancellation",     {token(), paid(type), token(), timeout()}, {token(), state(type, u"REFUNDED"_s)}, cancellation + asking);
        row("of the cancellation, reversed", {token(), paid(type), token(), timeout()}, {token(), state(type, u"REVERSED"_s)}, cancellation + asking);
        // clang-format on
    }
}

void TestPlatiQrHandlers::lostReply()
{
    QFETCH(QString, type);
    QFETCH(Script, first);
    QFETCH(Script, second);
    QFETCH(QStringList, requests);

    FakeRestClient net(first);
    QVERIFY(!deliverMessage(type));
    net.nextDelivery();
    net.play(second);
    QVERIFY(deliverMessage(type));
    QCOMPARE(net.transcript(), requests);
}

void TestPlatiQrHandlers::statusReplyIsReadBeforeTheTokenRequest()
{
    QFETCH(QString, type);
    // The client keeps only its latest reply, and this one also describes a payment.
    QJsonObject tokenReply =
        placed(type, {{u"order_operation_params"_s, QJsonArray{operation(u"OP-9"_s, u"9999"_s)}}});
    tokenReply.insert(u"access_token"_s, u"t2"_s);
    FakeRestClient net({token(), paid(type), json(200, tokenReply), cancelled(type)});
    QVERIFY(deliverMessage(type));
    const QJsonObject sent = net.lastRequest().jsonObject();
    QCOMPARE(sent.value(u"operation_id"_s), QJsonValue(u"OP-1"_s));
    QCOMPARE(sent.value(u"auth_code"_s), QJsonValue(u"0042"_s));
}

void TestPlatiQrHandlers::paidOperation_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QJsonValue>("operations");
    QTest::addColumn<QString>("operationId");
    QTest::addColumn<QString>("authCode");

    const QString none = u""_s;
    for (const QString &type : {newer, older}) {
        const auto row = [&type](const char *name, const QJsonValue &operations,
                                 const QString &operationId, const QString &authCode) {
            QTest::addRow("%s, %s", qPrintable(type), name)
                << type << operations << operationId << authCode;
        };
        // clang-format off
        row("one",                  QJsonArray{operation(u"OP-1"_s, u"0042"_s)}, u"OP-1"_s, u"0042"_s);
        row("the first of two",     QJsonArray{operation(u"OP-1"_s, u"0042"_s), operation(u"OP-2"_s, u"0043"_s)}, u"OP-1"_s, u"0042"_s);
        row("without a code",       QJsonArray{QJsonObject{{u"operation_id"_s, u"OP-1"_s}}}, u"OP-1"_s, none);
        row("empty list",           QJsonArray(),                                none, none);
        row("not a list",              operation(u"OP-1"_s, u"0042"_s),             none, none);
        row("absent",               QJsonValue(QJsonValue::Undefined),           none, none);
        row("null",                 QJsonValue(),                                none, none);
        row("the first is not an object", QJsonArray{u"OP-1"_s},                     none, none);
        row("empty object",         QJsonArray{QJsonObject()},                   none, none);
        // clang-format on
    }
    // The newer service must send a text; from the older one a number is accepted, too.
    QTest::newRow("platiqr3, numbers")
        << newer << QJsonValue(QJsonArray{operation(15, 42)}) << none << none;
    QTest::newRow("platiqr, numbers")
        << older << QJsonValue(QJsonArray{operation(15, 42)}) << u"15"_s << u"42"_s;
}

void TestPlatiQrHandlers::paidOperation()
{
    QFETCH(QString, type);
    QFETCH(QJsonValue, operations);
    QFETCH(QString, operationId);
    QFETCH(QString, authCode);

    FakeRestClient net({token(), paid(type, operations), token(), cancelled(type)});
    QVERIFY(deliverMessage(type));
    const QJsonObject sent = net.lastRequest().jsonObject();
    QCOMPARE(sent.value(u"operation_id"_s), QJsonValue(operationId));
    QCOMPARE(sent.value(u"auth_code"_s), QJsonValue(authCode));
}

void TestPlatiQrHandlers::cancelData_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("prepared");
    QTest::addColumn<QByteArray>("sent");
    for (const QString &type : {newer, older}) {
        const auto row = [&type](const char *name, const QString &prepared,
                                 const QByteArray &sent) {
            QTest::addRow("%s, %s", qPrintable(type), name) << type << prepared << sent;
        };
        // clang-format off
        row("amounts keep their value", u"{ \"a\": 0, \"b\": 2147483647, \"c\": 9007199254740993, \"d\": 1990.95 }"_s,
            R"({"a":0,"auth_code":"0042","b":2147483647,"c":9007199254740993,"d":1990.95,"operation_id":"OP-1"})");
        row("both members are replaced", uR"({"operation_id":"","auth_code":"?"})"_s,
            R"({"auth_code":"0042","operation_id":"OP-1"})");
        row("letters", u"{\"order\":\"заказ %1\"}"_s,
            R"({"auth_code":"0042","operation_id":"OP-1","order":"заказ %1"})");
        row("not JSON", u"order=42"_s, R"({"auth_code":"0042","operation_id":"OP-1"})");
        row("none", u""_s, R"({"auth_code":"0042","operation_id":"OP-1"})");
        // clang-format on
    }
}

void TestPlatiQrHandlers::cancelData()
{
    QFETCH(QString, type);
    QFETCH(QString, prepared);
    QFETCH(QByteArray, sent);
    FakeRestClient net({token(), paid(type), token(), cancelled(type)});
    QVERIFY(deliverMessage(type, withData(u"orderCancel"_s, prepared)));
    QCOMPARE(net.lastRequest().body, sent);
    QCOMPARE(net.lastRequest().header(u"X-Id"_s), u"5"_s);
}

void TestPlatiQrHandlers::tokenPlaces_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QJsonObject>("prepared");
    QTest::addColumn<QStringList>("sent");
    for (const QString &type : {newer, older}) {
        const auto row = [&type](const char *name, const QJsonObject &prepared,
                                 const QStringList &sent) {
            QTest::addRow("%s, %s", qPrintable(type), name) << type << prepared << sent;
        };
        // clang-format off
        row("one", {{u"authorization"_s, u"Bearer {token}"_s}}, {u"authorization: Bearer t{1}%1"_s});
        row("several in one header", {{u"authorization"_s, u"{token} {token}"_s}}, {u"authorization: t{1}%1 t{1}%1"_s});
        row("none", {{u"authorization"_s, u"Basic abc"_s}}, {u"authorization: Basic abc"_s});
        row("in no other header", {{u"X-Token"_s, u"{token}"_s}, {u"authorization"_s, u"{token}"_s}}, {u"X-Token: {token}"_s, u"authorization: t{1}%1"_s});
        // The header name is compared with case; without it the value is empty.
        row("header in another case", {{u"Authorization"_s, u"Bearer {token}"_s}}, {u"Authorization: Bearer {token}"_s, u"authorization: "_s});
        row("no headers", {}, {u"authorization: "_s});
        // clang-format on
    }
}

void TestPlatiQrHandlers::tokenPlaces()
{
    QFETCH(QString, type);
    QFETCH(QJsonObject, prepared);
    QFETCH(QStringList, sent);
    QJsonObject request = message().value(u"orderStatus"_s).toObject();
    request.insert(u"headers"_s, prepared);
    FakeRestClient net({token(u"t{1}%1"_s), state(type, u"REFUNDED"_s)});
    QVERIFY(deliverMessage(type, with(u"orderStatus"_s, request)));
    QStringList headers;
    for (const auto &[name, value] : net.lastRequest().headers.asKeyValueRange())
        headers.append(name + u": "_s + value);
    QCOMPARE(headers, sent);
}

void TestPlatiQrHandlers::presentTime_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("prepared");
    QTest::addColumn<QByteArray>("sent");
    for (const QString &type : {newer, older}) {
        const auto row = [&type](const char *name, const QString &prepared,
                                 const QByteArray &sent) {
            QTest::addRow("%s, %s", qPrintable(type), name) << type << prepared << sent;
        };
        row("one", u"{\"rq_tm\": \"{rq_tm}\"}"_s, "{\"rq_tm\": \"2026-01-02T03:04:05Z\"}");
        row("two", u"{rq_tm}|{rq_tm}"_s, "2026-01-02T03:04:05Z|2026-01-02T03:04:05Z");
        row("none: sent unchanged", u"{ \"a\" : 1.0, \"{token}\": \"ж\" }"_s,
            "{ \"a\" : 1.0, \"{token}\": \"ж\" }");
        row("empty", u""_s, "");
    }
}

void TestPlatiQrHandlers::presentTime()
{
    QFETCH(QString, type);
    QFETCH(QString, prepared);
    QFETCH(QByteArray, sent);
    // The local time of the till: the Z at the end is only a letter.
    const FixedTime clock(QDateTime(QDate(2026, 1, 2), QTime(3, 4, 5)).toSecsSinceEpoch());
    FakeRestClient net({token(), state(type, u"REFUNDED"_s)});
    QVERIFY(deliverMessage(type, withData(u"orderStatus"_s, prepared)));
    QCOMPARE(net.lastRequest().body, sent);
}

void TestPlatiQrHandlers::tokenRequestsGoOutAsPrepared()
{
    QFETCH(QString, type);
    const QJsonObject prepared{{u"url"_s, u"https://qr.test/token"_s},
                               {u"headers"_s, QJsonObject{{u"X"_s, u"{token}"_s}}},
                               {u"data"_s, u"at={rq_tm}"_s}};
    FakeRestClient net({token(), state(type, u"REFUNDED"_s)});
    QVERIFY(deliverMessage(type, with(u"orderStatusToken"_s, prepared)));
    QCOMPARE(net.requestAt(0).body, QByteArray("at={rq_tm}"));
    QCOMPARE(net.requestAt(0).headers, (QMap<QString, QString>{{u"X"_s, u"{token}"_s}}));
}

void TestPlatiQrHandlers::emptyMessage()
{
    QFETCH(QString, type);
    const QJsonObject body{{u"certificatePath"_s, rootedPath(u"/certs/till.p12"_s)}};
    FakeRestClient net({token(), state(type, u"REFUNDED"_s)});
    QVERIFY(deliverMessage(type, body));
    QCOMPARE(net.transcript(), (QStringList{u"POST "_s, u"POST "_s}));
    QCOMPARE(net.requestAt(0).timeoutMs.value_or(-1), 0);
    QCOMPARE(net.requestAt(1).body, QByteArray());
}

void TestPlatiQrHandlers::certificateIsConvertedOnce_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QStringList>("further");
    QTest::newRow("platiqr3") << newer << QStringList{u"-legacy"_s};
    QTest::newRow("platiqr") << older << QStringList();
}

void TestPlatiQrHandlers::certificateIsConvertedOnce()
{
    QFETCH(QString, type);
    QFETCH(QStringList, further);

    // A tool that records its call and writes the requested file.
    const QString tools = rootedPath(u"/tools-"_s + type);
    const QString notes = tools + u"/notes"_s;
    write(tools + u"/openssl"_s,
          "#!/bin/sh\nprintf '%s\\n' \"$@\" >>\"" + notes.toUtf8() + "\"\necho PEM >\"$7\"\n");
    QVERIFY(QFile::setPermissions(tools + u"/openssl"_s,
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    const QByteArray path = qgetenv("PATH");
    qputenv("PATH", tools.toUtf8() + ':' + path);

    const QByteArray content = "a certificate of " + type.toUtf8();
    const QString source = rootedPath(u"/certs/%1.p12"_s.arg(type));
    write(source, content);
    FakeRestClient net({token(), state(type, u"REFUNDED"_s)});
    const bool isFirstDone = deliverMessage(type, with(u"certificatePath"_s, source));
    net.nextDelivery();
    net.play({token(), state(type, u"REFUNDED"_s)});
    const bool isSecondDone = deliverMessage(type, with(u"certificatePath"_s, source));
    qputenv("PATH", path);

    QVERIFY(isFirstDone && isSecondDone);
    QCOMPARE(net.requestAt(0).certificatePath, pemPath(content));
    QCOMPARE(net.requestAt(2).certificatePath, pemPath(content));
    QFile file(notes);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList arguments{u"pkcs12"_s,      u"-in"_s,         source,
                                u"-passin"_s,     u"pass:secret"_s, u"-out"_s,
                                pemPath(content), u"-passout"_s,    u"pass:secret"_s};
    QCOMPARE(QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts),
             arguments + further);
}

void TestPlatiQrHandlers::certificateFailures()
{
    QFETCH(QString, type);
    const LogCapture log(type);
    const FakeRestClient net;

    const auto outcomeWith = [&](const QString &path) {
        return outcomeOf(type, text(with(u"certificatePath"_s, path)));
    };
    const QString kept = u"kept certificate: нет сертификата для соединения"_s;
    const QString absent = rootedPath(u"/certs/absent.p12"_s);
    QCOMPARE(outcomeWith(absent), kept);
    QCOMPARE(outcomeWith(u""_s), kept);
    // The tool finds that this is not a certificate.
    const QString broken = rootedPath(u"/certs/broken.p12"_s);
    write(broken, "broken for " + type.toUtf8());
    QCOMPARE(outcomeWith(broken), kept);
    QCOMPARE(net.steps(),
             (QStringList{u"setTimeout 12"_s, u"setTimeout 12"_s, u"setTimeout 12"_s}));
    QCOMPARE(log.lines(), (QStringList{opening, u"ERROR Ошибка чтения сертификата "_s + absent,
                                       opening, u"ERROR Ошибка чтения сертификата "_s, opening,
                                       u"ERROR Ошибка генерации сертификата"_s}));
}

QTEST_GUILESS_MAIN(TestPlatiQrHandlers)
#include "tst_platiqrhandlers.moc"
