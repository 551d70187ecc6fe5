#include "shared/core/basicexception.h"
#include "shared/core/dbqueuebroker.h"
#include "shared/core/singleton.h"
#include "shared/core/writegate.h"
#include "tests/shared/core/bothdatabases.h"
#include "tests/shared/core/ownconnection.h"

#include <QJsonDocument>
#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;

class TestDBQueueBroker : public BothDatabases
{
    Q_OBJECT

private Q_SLOTS:
    void brokerWritesOneRow_data() { bothDatabases(); }
    void brokerWritesOneRow();
    void brokerWaitsForItsTurn_data() { bothDatabases(); }
    void brokerWaitsForItsTurn();
    void brokerThrowsWithoutTable_data() { bothDatabases(); }
    void brokerThrowsWithoutTable();
    void brokerThrowsWhenTheTillForbidsTheRow();
};

void TestDBQueueBroker::brokerWritesOneRow()
{
    useDatabase();
    const QJsonObject message{{u"заказ"_s, 7}, {u"сумма"_s, u"1'\"00%1 🙂"_s}};
    Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, message, u"4'2"_s);
    Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());

    const QList<QVariantList> rows = queue->query(
        u"SELECT type, body, cardnumber, statuscode FROM message ORDER BY messageid"_s);
    QCOMPARE(rows.size(), 2);
    QCOMPARE(rows[0][0].toString(), u"mindbox"_s);
    QCOMPARE(QJsonDocument::fromJson(rows[0][1].toByteArray()).object(), message);
    QCOMPARE(rows[0][2].toString(), u"4'2"_s);
    QCOMPARE(rows[0][3].toString(), u""_s);
    QCOMPARE(rows[1][1].toByteArray(), "{}");
    QVERIFY(!rows[1][2].isNull());
    QCOMPARE(rows[1][2].toString(), u""_s);
}

void TestDBQueueBroker::brokerWaitsForItsTurn()
{
    useDatabase();
    WriteGate *gate = factory->gateOf(factory->getConnection());
    QCOMPARE(gate == nullptr, isServer());
    WriteGate::Turn held = WriteGate::enter(gate);
    std::thread writer([] {
        Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());
        removeOwnConnection();
    });
    if (gate) {
        while (gate->waiting() == 0)
            std::this_thread::yield();
        QCOMPARE(queue->ids().size(), 0);
    }
    held.end();
    writer.join();
    QCOMPARE(queue->ids().size(), 1);
}

void TestDBQueueBroker::brokerThrowsWithoutTable()
{
    useDatabase();
    queue->ids();
    if (isServer())
        server->run(u"RENAME TABLE queues.message TO queues.away"_s);
    else
        queue->query(u"DROP TABLE message"_s);
    QString text;
    try {
        Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());
    } catch (const BasicException &exception) {
        text = exception.tr().ru();
    }
    if (isServer())
        server->run(u"RENAME TABLE queues.away TO queues.message"_s);
    QVERIFY2(text.startsWith(u"Не удалось записать сообщение типа 'mindbox' в очередь: "_s)
                 && text.contains(u"message"_s),
             qPrintable(text));
}

void TestDBQueueBroker::brokerThrowsWhenTheTillForbidsTheRow()
{
    queue->query(u"CREATE TRIGGER queues.closed BEFORE INSERT ON message "
                 "BEGIN SELECT RAISE(ABORT, 'the day is closed'); END"_s);
    QString text;
    try {
        Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());
    } catch (const BasicException &exception) {
        text = exception.tr().ru();
    }
    QVERIFY2(text.startsWith(u"Не удалось записать сообщение типа 'mindbox' в очередь: "_s)
                 && text.contains(u"the day is closed"_s),
             qPrintable(text));
    QCOMPARE(queue->ids(), QList<int>());
}

QTEST_GUILESS_MAIN(TestDBQueueBroker)
#include "tst_dbqueuebroker.moc"
