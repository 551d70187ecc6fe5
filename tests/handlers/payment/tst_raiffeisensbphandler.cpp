#include "handlers/payment/raiffeisensbphandler.h"

#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

using ReplyClass = RaiffeisenSbpHandler::ReplyClass;

const QString opening = u"INFO Отправка сообщения"_s;
const QString codeInfo = u"INFO Получение информации по QR-коду/заказа"_s;
const QString deletion = u"INFO Отмена невостребованного QR-кода/заказа"_s;
const QString refund = u"INFO Оформление возврата по платежу"_s;
const QString refundInfo = u"INFO Получение информации по возврату"_s;

/// The amount as the till writes it; the handler must not change it.
const QString refundBody = u"{\"amount\": 1990.50, \"note\": \"%1\"}"_s;

QString message(const QJsonArray &urls)
{
    const QJsonObject body{
        {u"urls"_s, urls},
        {u"headers"_s, QJsonObject{{u"Authorization"_s, u"Bearer 1"_s}, {u"X-Shop"_s, 42}}},
        {u"timeout"_s, 9},
        {u"body"_s, refundBody},
    };
    return QString::fromUtf8(QJsonDocument(body).toJson());
}

QString withState()
{
    return message(
        {u"http://sbp.test/qr"_s, u"http://sbp.test/refund"_s, u"http://sbp.test/info"_s});
}

QString paid()
{
    return message({u"http://sbp.test/refund"_s, u"http://sbp.test/info"_s});
}

http::Response qr(const QString &state)
{
    return json(200, {{u"qrStatus"_s, state}});
}

http::Response order(const QString &state)
{
    return json(200, {{u"status"_s, QJsonObject{{u"value"_s, state}}}});
}

http::Response bothShapes(const QString &qrState, const QString &orderState)
{
    return json(200,
                {{u"qrStatus"_s, qrState}, {u"status"_s, QJsonObject{{u"value"_s, orderState}}}});
}

http::Response refundIs(const QString &status)
{
    return json(200, {{u"refundStatus"_s, status}});
}

http::Response problem(int status, const QString &code)
{
    return json(status, {{u"code"_s, code}, {u"message"_s, u"%1 %2"_s}});
}

http::Response noAddress()
{
    return http::Response::failed(301, tr::Tr(u"Не указан адрес запроса"_s));
}

const QString askCode = u"GET http://sbp.test/qr"_s;
const QString deleteCode = u"DELETE http://sbp.test/qr"_s;
const QString askRefund = u"POST http://sbp.test/refund"_s;
const QString refundState = u"GET http://sbp.test/info"_s;

/// The log lines of a delivery with these requests, the last of which failed with `error`.
QStringList withFailure(QStringList lines, const http::Response &last)
{
    if (last.errorCode > 0)
        lines.append(u"ERROR Ошибка при отправке сообщения: "_s + last.errorText.ru());
    return lines;
}

} // namespace

class TestRaiffeisenSbpHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void operationsKeepTheirPlaces();
    void members_data();
    void members();
    void classification_data();
    void classification();
    void deliveryByState_data();
    void deliveryByState();
    void deliveryOfPaid_data();
    void deliveryOfPaid();
    void requests();
    void requestsOfPaid();
    void anyNumberOfAddresses_data();
    void anyNumberOfAddresses();
    void everyReplyLostOnce_data();
    void everyReplyLostOnce();
};

void TestRaiffeisenSbpHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&RaiffeisenSbpHandler::sendMessage), 5);
    QCOMPARE(slotOf(&RaiffeisenSbpHandler::memberFromReply), 9);
    QCOMPARE(slotOf(&RaiffeisenSbpHandler::statusValueFromReply), 10);
    QCOMPARE(slotOf(&RaiffeisenSbpHandler::classifyReply), -1);
}

void TestRaiffeisenSbpHandler::members_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("statusValue");
    QTest::newRow("text") << QByteArray(R"({"m":"a"})") << u"a"_s << QString();
    QTest::newRow("number") << QByteArray(R"({"m":12})") << u"12"_s << QString();
    QTest::newRow("object") << QByteArray(R"({"m":{"a":"b"}})") << QString() << QString();
    QTest::newRow("status") << QByteArray(R"({"status":{"value":"b"}})") << QString() << u"b"_s;
    QTest::newRow("status is a text") << QByteArray(R"({"status":"b"})") << QString() << QString();
    QTest::newRow("value elsewhere") << QByteArray(R"({"value":"b"})") << QString() << QString();
    QTest::newRow("array") << QByteArray(R"([{"m":"a"}])") << QString() << QString();
    QTest::newRow("not JSON") << QByteArray("OK") << QString() << QString();
    QTest::newRow("null") << QByteArray("null") << QString() << QString();
    QTest::newRow("empty") << QByteArray() << QString() << QString();
}

void TestRaiffeisenSbpHandler::members()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, member);
    QFETCH(QString, statusValue);
    FakeRestClient net({reply(200, body)});
    net.get(QUrl(), {}, {});
    RaiffeisenSbpHandler handler;
    QCOMPARE(handler.memberFromReply(net, u"m"_s), member);
    QCOMPARE(handler.statusValueFromReply(net), statusValue);
}

void TestRaiffeisenSbpHandler::classification_data()
{
    QTest::addColumn<http::Response>("answer");
    QTest::addColumn<int>("expected");
    QTest::newRow("good") << reply(200) << 0;
    QTest::newRow("good, whatever its code") << problem(200, u"ORDER_NOT_FOUND"_s) << 0;
    QTest::newRow("no such order") << problem(404, u"ORDER_NOT_FOUND"_s) << 1;
    QTest::newRow("no such code") << problem(404, u"ERROR.NOT_FOUND"_s) << 1;
    QTest::newRow("not found with another status") << problem(400, u"ERROR.NOT_FOUND"_s) << 1;
    QTest::newRow("another code") << problem(404, u"NOT_FOUND"_s) << 2;
    QTest::newRow("another case") << problem(404, u"order_not_found"_s) << 2;
    QTest::newRow("no code") << json(404, {{u"message"_s, u"ORDER_NOT_FOUND"_s}}) << 2;
    QTest::newRow("not JSON") << reply(404, "ORDER_NOT_FOUND") << 2;
    QTest::newRow("no connection") << noConnection() << 2;
}

void TestRaiffeisenSbpHandler::classification()
{
    QFETCH(http::Response, answer);
    QFETCH(int, expected);
    const LogCapture log(u"raiffeisensbp"_s);
    FakeRestClient net({answer});
    net.get(QUrl(), {}, {});
    QCOMPARE(static_cast<int>(RaiffeisenSbpHandler().classifyReply(net)), expected);
    QCOMPARE(log.lines(), withFailure({}, answer));
}

void TestRaiffeisenSbpHandler::deliveryByState_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<QStringList>("transcript");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<QString>("outcome");

    const QStringList asked{askCode};
    const QStringList deleting{askCode, deleteCode};
    const QStringList deleted{askCode, deleteCode, askCode};
    const QStringList refunding{askCode, askRefund};
    const QStringList refunded{askCode, askRefund, refundState};
    const auto row = [](const char *name, const Script &script, const QStringList &transcript,
                        const QString &outcome) {
        QStringList log{opening, codeInfo};
        if (transcript.size() > 1 && transcript[1] == deleteCode)
            log.append(deletion);
        if (transcript.size() > 1 && transcript[1] == askRefund)
            log.append(refund);
        if (transcript.contains(refundState))
            log.append(refundInfo);
        QTest::newRow(name) << script << transcript << withFailure(log, script.last()) << outcome;
    };
    const QString done = u"delivered"_s;
    const QString expired = u"dropped: срок действия QR-кода или заказа истёк, отмены не было"_s;
    const QString unknownOrder =
        u"delivered: заказ или QR-код сервису неизвестен, отменять нечего"_s;
    const QString stillRunning = u"kept service: возврат ещё выполняется"_s;
    const http::Response notFound = problem(404, u"ORDER_NOT_FOUND"_s);
    const http::Response codeNotFound = problem(404, u"ERROR.NOT_FOUND"_s);

    row("order not found: done", {notFound}, asked, unknownOrder);
    row("code not found: done", {codeNotFound}, asked, unknownOrder);
    row("404 without a word", {reply(404)}, asked, keptBy(reply(404)));
    row("500", {reply(500, R"({"qrStatus":"CANCELLED"})")}, asked, keptBy(reply(500)));
    row("no connection", {noConnection()}, asked, keptBy(noConnection()));

    row("cancelled: done", {qr(u"CANCELLED"_s)}, asked,
        u"delivered: QR-код или заказ уже отменён"_s);
    row("expired: dropped", {qr(u"EXPIRED"_s)}, asked, expired);
    row("order cancelled: done", {order(u"CANCELLED"_s)}, asked,
        u"delivered: QR-код или заказ уже отменён"_s);
    row("order expired: dropped", {order(u"EXPIRED"_s)}, asked, expired);
    row("empty qrStatus: the order's", {bothShapes({}, u"EXPIRED"_s)}, asked, expired);
    // Here the state of the code takes precedence over that of the order, which is not read.
    row("qrStatus goes first", {bothShapes(u"IN_PROGRESS"_s, u"CANCELLED"_s)}, asked,
        u"kept service: неизвестное состояние QR-кода или заказа: IN_PROGRESS"_s);
    row("unknown state: silent", {qr(u"INACTIVE"_s)}, asked,
        u"kept service: неизвестное состояние QR-кода или заказа: INACTIVE"_s);
    row("another case", {qr(u"cancelled"_s)}, asked,
        u"kept service: неизвестное состояние QR-кода или заказа: cancelled"_s);
    row("no state", {json(200, {})}, asked,
        u"kept service: неизвестное состояние QR-кода или заказа: не указано"_s);
    row("not JSON", {reply(200, "CANCELLED")}, asked,
        u"kept service: неизвестное состояние QR-кода или заказа: не указано"_s);
    row("empty reply", {reply(200)}, asked,
        u"kept service: неизвестное состояние QR-кода или заказа: не указано"_s);

    row("new: deleted", {qr(u"NEW"_s), reply(200), qr(u"CANCELLED"_s)}, deleted, done);
    row("new order: deleted", {order(u"NEW"_s), reply(204), order(u"CANCELLED"_s)}, deleted, done);
    row("new: delete refused", {qr(u"NEW"_s), reply(409)}, deleting, keptBy(reply(409)));
    // A code that somebody else deleted is not known to be deleted by us: the next attempt finds
    // that it does not exist, and only that first answer removes the message.
    row("new: not found when deleting", {qr(u"NEW"_s), notFound}, deleting, keptBy(reply(404)));
    row("new: not found when deleted", {qr(u"NEW"_s), reply(200), codeNotFound}, deleted,
        keptBy(reply(404)));
    row("new: check fails", {qr(u"NEW"_s), reply(200), reply(500)}, deleted, keptBy(reply(500)));
    row("new: still new", {qr(u"NEW"_s), reply(200), qr(u"NEW"_s)}, deleted,
        u"kept service: QR-код или заказ не отменён, состояние: NEW"_s);
    row("new: paid meanwhile", {qr(u"NEW"_s), reply(200), qr(u"PAID"_s)}, deleted,
        u"kept service: QR-код или заказ не отменён, состояние: PAID"_s);
    // The till counts an expired code as gone before the deletion, but not after it.
    row("new: expired meanwhile", {qr(u"NEW"_s), reply(200), qr(u"EXPIRED"_s)}, deleted,
        u"kept service: QR-код или заказ не отменён, состояние: EXPIRED"_s);
    // After the deletion both members are read, even if they differ: a code may keep its last state
    // while its order is cancelled.
    row("new: only the order is cancelled",
        {qr(u"NEW"_s), reply(200), bothShapes(u"NEW"_s, u"CANCELLED"_s)}, deleted, done);
    row("new: only the code is cancelled",
        {qr(u"NEW"_s), reply(200), bothShapes(u"CANCELLED"_s, u"NEW"_s)}, deleted, done);
    row("new: no state after it", {qr(u"NEW"_s), reply(200), reply(200)}, deleted,
        u"kept service: QR-код или заказ не отменён, состояние: не указано"_s);

    row("paid: refunded", {qr(u"PAID"_s), refundIs(u"IN_PROGRESS"_s), refundIs(u"COMPLETED"_s)},
        refunded, done);
    row("paid order: refunded", {order(u"PAID"_s), reply(200), refundIs(u"COMPLETED"_s)}, refunded,
        done);
    // When the state is unknown, the refund is always requested, even if its own reply says that it
    // is done.
    row("paid: completed at once, asked nevertheless",
        {qr(u"PAID"_s), refundIs(u"COMPLETED"_s), refundIs(u"IN_PROGRESS"_s)}, refunded,
        stillRunning);
    row("paid: refund is running", {qr(u"PAID"_s), reply(200), refundIs(u"IN_PROGRESS"_s)},
        refunded, stillRunning);
    // Only a running refund is retried: the till learns of a declined one elsewhere, and an endless
    // retry would request the money again and again.
    row("paid: refund declined: dropped", {qr(u"PAID"_s), reply(200), refundIs(u"DECLINED"_s)},
        refunded, u"dropped: возврат не подтверждён, его состояние: DECLINED"_s);
    row("paid: no word of the refund", {qr(u"PAID"_s), reply(200), reply(200)}, refunded,
        u"dropped: возврат не подтверждён, его состояние: не указано"_s);
    row("paid: refund refused", {qr(u"PAID"_s), reply(400)}, refunding, keptBy(reply(400)));
    row("paid: not found when refunding", {qr(u"PAID"_s), notFound}, refunding, keptBy(reply(404)));
    row("paid: no connection when refunding", {qr(u"PAID"_s), noConnection()}, refunding,
        keptBy(noConnection()));
    row("paid: refund not found", {qr(u"PAID"_s), reply(200), notFound}, refunded,
        keptBy(reply(404)));
    row("paid: look-up fails", {qr(u"PAID"_s), reply(200), reply(503)}, refunded,
        keptBy(reply(503)));
}

void TestRaiffeisenSbpHandler::deliveryByState()
{
    QFETCH(Script, script);
    QFETCH(QStringList, transcript);
    QFETCH(QStringList, log);
    const LogCapture capture(u"raiffeisensbp"_s);
    FakeRestClient net(script);
    QTEST(outcomeOf(u"raiffeisensbp"_s, withState()), "outcome");
    QCOMPARE(net.transcript(), transcript);
    QCOMPARE(capture.lines(), log);
}

void TestRaiffeisenSbpHandler::deliveryOfPaid_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<int>("requests");
    QTest::addColumn<QString>("outcome");

    const http::Response running = refundIs(u"IN_PROGRESS"_s);
    const http::Response notFound = problem(404, u"ORDER_NOT_FOUND"_s);
    // Here a refund that is done at once is trusted, and its state is not requested.
    QTest::newRow("completed at once") << Script{refundIs(u"COMPLETED"_s)} << 1 << u"delivered"_s;
    QTest::newRow("completed by now")
        << Script{running, refundIs(u"COMPLETED"_s)} << 2 << u"delivered"_s;
    QTest::newRow("declined at once: asked") << Script{refundIs(u"DECLINED"_s), running} << 2
                                             << u"kept service: возврат ещё выполняется"_s;
    QTest::newRow("declined: dropped")
        << Script{running, refundIs(u"DECLINED"_s)} << 2
        << u"dropped: возврат не подтверждён, его состояние: DECLINED"_s;
    QTest::newRow("running") << Script{running, running} << 2
                             << u"kept service: возврат ещё выполняется"_s;
    QTest::newRow("another case is not a running one")
        << Script{running, refundIs(u"in_progress"_s)} << 2
        << u"dropped: возврат не подтверждён, его состояние: in_progress"_s;
    QTest::newRow("no word of it")
        << Script{reply(200), reply(200)} << 2
        << u"dropped: возврат не подтверждён, его состояние: не указано"_s;
    QTest::newRow("refused") << Script{json(400, {{u"refundStatus"_s, u"COMPLETED"_s}})} << 1
                             << keptBy(reply(400));
    // "Not found" removes a message only when the state was requested first.
    QTest::newRow("not found") << Script{notFound} << 1 << keptBy(reply(404));
    QTest::newRow("no connection") << Script{noConnection()} << 1 << keptBy(noConnection());
    QTest::newRow("refund not found") << Script{running, notFound} << 2 << keptBy(reply(404));
    QTest::newRow("look-up fails") << Script{running, timeout()} << 2 << keptBy(timeout());
}

void TestRaiffeisenSbpHandler::deliveryOfPaid()
{
    QFETCH(Script, script);
    QFETCH(int, requests);
    const LogCapture log(u"raiffeisensbp"_s);
    FakeRestClient net(script);
    QTEST(outcomeOf(u"raiffeisensbp"_s, paid()), "outcome");
    QCOMPARE(net.transcript(), (QStringList{askRefund, refundState}.first(requests)));
    // Logged twice, before and after the preparation: this distinguishes the two forms in the log.
    QStringList lines{opening, refund, refund};
    if (requests == 2)
        lines.append(refundInfo);
    QCOMPARE(log.lines(), withFailure(lines, script.last()));
}

void TestRaiffeisenSbpHandler::requests()
{
    const QMap<QString, QString> headers{{u"Authorization"_s, u"Bearer 1"_s},
                                         {u"X-Shop"_s, u"42"_s}};
    FakeRestClient net({qr(u"NEW"_s), reply(200), qr(u"CANCELLED"_s)});
    QVERIFY(deliver(u"raiffeisensbp"_s, withState()));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 9"_s, askCode, deleteCode, askCode}));
    for (const FakeRestClient::Request &made : net.requests()) {
        QCOMPARE(made.headers, headers);
        QCOMPARE(made.body, QByteArray());
        QCOMPARE(made.timeoutMs.value_or(-1), 9000);
        QCOMPARE(made.logger, RaiffeisenSbpHandler().logger());
    }

    net.nextDelivery();
    net.play({qr(u"PAID"_s), reply(200), reply(200)});
    QVERIFY(deliver(u"raiffeisensbp"_s, withState()));
    QCOMPARE(net.requestAt(4).body, refundBody.toUtf8());
    QCOMPARE(net.requestAt(4).headers, headers);
    QCOMPARE(net.requestAt(5).body, QByteArray());
    QCOMPARE(net.requestAt(5).headers, headers);
}

void TestRaiffeisenSbpHandler::requestsOfPaid()
{
    FakeRestClient net({reply(200), reply(200)});
    QVERIFY(deliver(u"raiffeisensbp"_s, paid()));
    QCOMPARE(net.steps(), (QStringList{u"setTimeout 9"_s, askRefund, refundState}));
    QCOMPARE(net.requestAt(0).body, refundBody.toUtf8());
    QCOMPARE(net.requestAt(1).body, QByteArray());
    QCOMPARE(net.requestAt(1).header(u"X-Shop"_s), u"42"_s);
    QCOMPARE(net.requestAt(1).logger, RaiffeisenSbpHandler().logger());

    net.nextDelivery();
    net.play({reply(200), reply(200)});
    QVERIFY(deliver(u"raiffeisensbp"_s, u"{\"urls\":[\"http://a/1\",\"http://a/2\"]}"_s));
    QCOMPARE(net.requestAt(2).timeoutMs.value_or(-1), 0);
    QCOMPARE(net.requestAt(2).body, QByteArray());
    QCOMPARE(net.requestAt(2).headers, (QMap<QString, QString>()));
}

void TestRaiffeisenSbpHandler::anyNumberOfAddresses_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<Script>("script");
    QTest::addColumn<QStringList>("transcript");
    QTest::addColumn<QString>("outcome");

    const QJsonArray urls{u"http://a/1"_s, u"http://a/2"_s, u"http://a/3"_s, u"http://a/4"_s};
    const auto first = [&urls](int count) {
        QJsonArray some;
        for (int i = 0; i < count; ++i)
            some.append(urls[i]);
        return message(some);
    };
    const http::Response running = refundIs(u"IN_PROGRESS"_s);
    const http::Response done = refundIs(u"COMPLETED"_s);
    const QStringList asked{u"POST http://a/1"_s, u"GET http://a/2"_s};

    QTest::newRow("none") << first(0) << Script{noAddress()} << QStringList{u"POST "_s}
                          << keptBy(noAddress());
    QTest::newRow("absent") << u"{}"_s << Script{noAddress()} << QStringList{u"POST "_s}
                            << keptBy(noAddress());
    QTest::newRow("a number") << u"{\"urls\":5}"_s << Script{noAddress()} << QStringList{u"POST "_s}
                              << keptBy(noAddress());
    QTest::newRow("one, completed") << first(1) << Script{done} << asked.first(1) << u"delivered"_s;
    QTest::newRow("one, running") << first(1) << Script{running, noAddress()}
                                  << QStringList{u"POST http://a/1"_s, u"GET "_s}
                                  << keptBy(noAddress());
    QTest::newRow("two") << first(2) << Script{running, done} << asked << u"delivered"_s;
    QTest::newRow("three ask for the state")
        << first(3) << Script{qr(u"EXPIRED"_s)} << QStringList{u"GET http://a/1"_s}
        << u"dropped: срок действия QR-кода или заказа истёк, отмены не было"_s;
    QTest::newRow("four are a refund again")
        << first(4) << Script{running, done} << asked << u"delivered"_s;
}

void TestRaiffeisenSbpHandler::anyNumberOfAddresses()
{
    QFETCH(QString, body);
    QFETCH(Script, script);
    QFETCH(QStringList, transcript);
    FakeRestClient net(script);
    QTEST(outcomeOf(u"raiffeisensbp"_s, body), "outcome");
    QCOMPARE(net.transcript(), transcript);
}

void TestRaiffeisenSbpHandler::everyReplyLostOnce_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<Script>("script");
    QTest::addColumn<Script>("nextScript");
    QTest::addColumn<QStringList>("nextTranscript");

    const http::Response lost = http::Response::failed(2, tr::Tr(u"Сервер закрыл соединение"_s));
    const http::Response done = refundIs(u"COMPLETED"_s);
    QTest::newRow("state") << withState() << Script{lost} << Script{qr(u"EXPIRED"_s)}
                           << QStringList{askCode};
    // It is deleted already and not deleted again.
    QTest::newRow("deletion") << withState() << Script{qr(u"NEW"_s), lost}
                              << Script{qr(u"CANCELLED"_s)} << QStringList{askCode};
    QTest::newRow("check of the deletion") << withState() << Script{qr(u"NEW"_s), reply(200), lost}
                                           << Script{qr(u"CANCELLED"_s)} << QStringList{askCode};
    // The state is requested again. As long as it is "paid", the refund is sent again with the same
    // body, whose identifiers the service recognizes.
    QTest::newRow("refund, still paid")
        << withState() << Script{qr(u"PAID"_s), lost} << Script{qr(u"PAID"_s), done, done}
        << QStringList{askCode, askRefund, refundState};
    QTest::newRow("refund, code gone") << withState() << Script{qr(u"PAID"_s), lost}
                                       << Script{qr(u"CANCELLED"_s)} << QStringList{askCode};
    QTest::newRow("look-up of the refund")
        << withState() << Script{qr(u"PAID"_s), reply(200), lost}
        << Script{qr(u"PAID"_s), done, done} << QStringList{askCode, askRefund, refundState};
    QTest::newRow("refund of a paid order")
        << paid() << Script{lost} << Script{done} << QStringList{askRefund};
    QTest::newRow("look-up of a paid order's refund")
        << paid() << Script{reply(200), lost} << Script{done} << QStringList{askRefund};
}

void TestRaiffeisenSbpHandler::everyReplyLostOnce()
{
    QFETCH(QString, body);
    QFETCH(Script, script);
    QFETCH(Script, nextScript);
    QFETCH(QStringList, nextTranscript);
    FakeRestClient net(script);
    QVERIFY(!deliver(u"raiffeisensbp"_s, body));
    const QStringList before = net.transcript();
    QCOMPARE(before.size(), script.size());
    net.nextDelivery();
    net.play(nextScript);
    QVERIFY(deliver(u"raiffeisensbp"_s, body));
    QCOMPARE(net.transcript(), before + nextTranscript);
    for (const FakeRestClient::Request &made : net.requests())
        QCOMPARE(made.body, made.verb == "POST" ? refundBody.toUtf8() : QByteArray());
}

QTEST_GUILESS_MAIN(TestRaiffeisenSbpHandler)
#include "tst_raiffeisensbphandler.moc"
