#include "handlers/mindbox/interface.h"
#include "rig/loopbackserver.h"
#include "rig/serviceprocess.h"
#include "rig/waiting.h"
#include "tests/support/fixedtime.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;
using rig::LoopbackServer;
using rig::waitUntil;

namespace {

LoopbackServer::Reply answer(const QByteArray &json)
{
    return LoopbackServer::answer(200, json);
}

/// The connection ends without a reply.
LoopbackServer::Reply lost()
{
    return LoopbackServer::raw({}).closing();
}

const QByteArray success = R"({"status":"Success"})";
const QByteArray found =
    R"({"status":"Success","customer":{"processingStatus":"Found","mobilePhone":79990000001}})";

/// One shop: a loyalty platform that plays a script, the test as the till, and the service, both
/// with the same table and settings. The service polls the table once a second.
class Shop
{
public:
    Shop()
        : service(QStringLiteral(QUEUE_PROGRAM), database.till())
    {
        database.setSettings(
            database.till().queueSettings()
            + u"[Mindbox]\nurl = %1\nendpoint = till-7\nsecretKey = k\n"
              "pointOfContact = shop-7\ntimeout = 60\nuseIdempotencyKey = true\n"_s.arg(
                  platform.url(u"/sync"_s).toString()));
    }

    /// The operations that the platform was asked for, such as "Offline.CheckCustomer", with the id
    /// of a transaction if it was sent.
    QStringList requests() const
    {
        QStringList lines;
        for (const LoopbackServer::Request &request : platform.requests())
            lines.append(
                QString::fromUtf8(request.query).remove(u"endpointId=till-7&operation="_s));
        return lines;
    }

    QJsonObject body(int index) const
    {
        return QJsonDocument::fromJson(platform.requests().value(index).body).object();
    }

    bool waitForRequests(int count) const
    {
        return waitUntil([&] { return service.hasEnded() || platform.requests().size() >= count; })
               && !service.hasEnded();
    }

    bool waitForEmptyTable()
    {
        return waitUntil([&] { return service.hasEnded() || database.ids().isEmpty(); })
               && !service.hasEnded();
    }

    /// Ends the service and returns its fault; empty if it ended cleanly.
    QString close()
    {
        service.terminate();
        if (!waitUntil([&] { return service.hasEnded(); }))
            return u"it does not end"_s;
        return service.endFault() + service.errors();
    }

    QStringList errorLines() const
    {
        QStringList lines;
        for (const rig::LogRecord &record : service.log().records()) {
            if (record.level == "ERROR"_L1)
                lines.append(record.line());
        }
        return lines;
    }

    QueueDatabase database;
    LoopbackServer platform;
    rig::ServiceProcess service;
};

} // namespace

class TestMindboxOrder : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void wholeOrder();
    void rollbackAfterABeginningThatFailed();
    void deferredOrder_data();
    void deferredOrder();
};

void TestMindboxOrder::wholeOrder()
{
    const LogCapture log(u"mindbox"_s);
    Shop shop;
    mindbox::Interface till;
    const QJsonObject ids{{u"externalId"_s, u"7-15"_s}};
    QJsonObject transaction{{u"ids"_s, ids}};
    QJsonObject order{{u"order"_s, QJsonObject{{u"transaction"_s, transaction}}}};

    // The receipt is calculated.
    const QByteArray calculated = R"({"status":"Success","order":{
        "processingStatus":"Calculated","totalPrice":1890.5,
        "lines":[{"lineId":"1","discountedPriceOfLine":1890.5,"earnedAmount":18}]}})";
    shop.platform.play({answer(calculated)});
    const mindbox::PreorderResult preorder = till.authorizedPreorder(order);
    QVERIFY(preorder.isSuccess());
    QCOMPARE(preorder.totalPrice, 1890.5);
    QCOMPARE(preorder.lines.value(0).lineId, 1);
    QCOMPARE(preorder.earnedBalances.value(0).amount, 18.0);

    // The order begins; the first reply is lost, and the till tries once more.
    const QByteArray processed = R"({"status":"Success","order":{"processingStatus":"Processed",
        "ids":{"offlineTransactionIdTallo":"tx-501"}}})";
    shop.platform.play({lost(), answer(processed)});
    const mindbox::BeginResult unheard = till.beginAuthorizedOrderTransaction(order);
    QVERIFY(!unheard.isSuccess() && unheard.noConnection);
    const mindbox::BeginResult begun = till.beginAuthorizedOrderTransaction(order);
    QVERIFY(begun.isSuccess());
    QCOMPARE(begun.transactionId, u"tx-501"_s);

    // The sale is paid. The service has to send the commit, and fails at first.
    transaction.insert(u"ids"_s,
                       QJsonObject{{u"offlineTransactionIdTallo"_s, begun.transactionId}});
    const QJsonObject commit{{u"order"_s, QJsonObject{{u"transaction"_s, transaction}}}};
    till.queueCommit(commit);
    QCOMPARE(shop.database.ids(u"mindbox"_s).size(), 1);
    QCOMPARE(shop.platform.requests().size(), 3);
    shop.platform.play({lost(), answer(success).held()});
    shop.service.start();
    QVERIFY(shop.waitForRequests(5));
    QCOMPARE(shop.database.ids(u"mindbox"_s).size(), 1);

    // The connection is back, and the platform has done its part.
    shop.platform.release();
    QVERIFY(shop.waitForEmptyTable());
    QCOMPARE(shop.close(), QString());
    const QString beginning = u"Offline.BeginAuthorizedOrderTransaction&transactionId=7-15"_s;
    const QString closing = u"Offline.CommitOrderTransaction"_s;
    QCOMPARE(shop.requests(), (QStringList{u"Offline.AuthorizedPreorder"_s, beginning, beginning,
                                           closing, closing}));
    QJsonObject expected = commit;
    expected.insert(u"pointOfContact"_s, u"shop-7"_s);
    for (const int attempt : {3, 4})
        QCOMPARE(shop.body(attempt), expected);
    QCOMPARE(shop.platform.requests().last().header("Authorization"),
             QByteArray("Mindbox secretKey=\"k\""));
    QCOMPARE(shop.errorLines(), QStringList());
}

void TestMindboxOrder::rollbackAfterABeginningThatFailed()
{
    const LogCapture log(u"mindbox"_s);
    Shop shop;
    mindbox::Interface till;
    const QJsonObject order{{u"order"_s, QJsonObject{{u"sum"_s, 10}}}};
    shop.platform.play({lost()});
    QCOMPARE(till.beginAnonymousOrderTransaction(order).error().ru(), u"Ошибка связи с сервером"_s);

    till.queueRollback(order);
    shop.platform.play(
        {LoopbackServer::answer(400, R"({"status":"ProtocolError","errorMessage":"Нет заказа"})")});
    shop.service.start();
    QVERIFY(shop.waitForEmptyTable());
    QCOMPARE(shop.close(), QString());
    QCOMPARE(shop.requests(), (QStringList{u"Offline.BeginAnonymousOrderTransaction"_s,
                                           u"Offline.RollbackOrderTransaction"_s}));
    QCOMPARE(shop.errorLines(), (QStringList{u"ERROR [mindbox] Статус: ProtocolError"_s,
                                             u"ERROR [mindbox] Ошибка: Нет заказа"_s}));
}

void TestMindboxOrder::deferredOrder_data()
{
    QTest::addColumn<QString>("cardNumber");
    QTest::addColumn<QList<QByteArray>>("replies");
    QTest::addColumn<QStringList>("requests");
    QTest::addColumn<QJsonValue>("customer");
    QTest::addColumn<QStringList>("errors");

    // An empty reply counts as lost.
    using Replies = QList<QByteArray>;
    const QByteArray none;
    const QByteArray notFound =
        R"({"status":"Success","customer":{"processingStatus":"NotFound"}})";
    const QString check = u"Offline.CheckCustomer"_s;
    const QString save = u"Offline.SaveOfflineOrder"_s;
    const QString card = u"96430017"_s;
    const QJsonValue asWritten(QJsonObject{{u"name"_s, u"Анна"_s}});
    const QJsonValue byPhone(QJsonObject{{u"mobilePhone"_s, u"79990000001"_s}});
    const QStringList dropped{u"ERROR [mindbox] Клиент не найден"_s};

    QTest::newRow("found") << card << Replies{found, success} << QStringList{check, save} << byPhone
                           << QStringList();
    QTest::newRow("not found: given up") << card << Replies{notFound} << QStringList{check}
                                         << QJsonValue(QJsonValue::Undefined) << dropped;
    QTest::newRow("no connection, then found")
        << card << Replies{none, none, found, success} << QStringList{check, save, check, save}
        << byPhone << QStringList();
    QTest::newRow("no connection for the check alone")
        << card << Replies{none, success} << QStringList{check, save} << asWritten << QStringList();
    QTest::newRow("without a card") << QString() << Replies{none, success}
                                    << QStringList{save, save} << asWritten << QStringList();
}

void TestMindboxOrder::deferredOrder()
{
    QFETCH(QString, cardNumber);
    QFETCH(QList<QByteArray>, replies);
    QFETCH(QStringList, requests);
    QFETCH(QJsonValue, customer);
    const LogCapture log(u"mindbox"_s);
    Shop shop;
    const FixedTime clock(1'770'000'000);
    mindbox::Interface till;
    QJsonObject order{{u"sum"_s, 10}, {u"customer"_s, QJsonObject{{u"name"_s, u"Анна"_s}}}};
    till.queueSaveOfflineOrder(order, cardNumber);
    QCOMPARE(shop.database.ids(u"mindbox"_s).size(), 1);

    QList<LoopbackServer::Reply> script;
    for (const QByteArray &reply : replies)
        script.append(reply.isEmpty() ? lost() : answer(reply));
    shop.platform.play(script);
    shop.service.start();
    QVERIFY(shop.waitForEmptyTable());
    QCOMPARE(shop.close(), QString());

    QCOMPARE(shop.requests(), requests);
    if (!customer.isUndefined()) {
        // The time is that of the sale, whenever the order is delivered.
        QCOMPARE(shop.body(static_cast<int>(requests.size()) - 1),
                 (QJsonObject{{u"sum"_s, 10},
                              {u"customer"_s, customer},
                              {u"executionDateTimeUtc"_s, u"02.02.2026 02:40:00"_s},
                              {u"pointOfContact"_s, u"shop-7"_s}}));
    }
    QTEST(shop.errorLines(), "errors");
}

QTEST_GUILESS_MAIN(TestMindboxOrder)
#include "tst_mindboxorder.moc"
