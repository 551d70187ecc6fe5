#include "engine/dao.h"
#include "tests/engine/daofixture.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <QTest>

using namespace Qt::StringLiterals;

/// What the store reads and writes.
class TestDao : public DaoFixture
{
    Q_OBJECT

public:
    using DaoFixture::DaoFixture;

private Q_SLOTS:
    void emptyTable();
    void oldestFirst();
    void descending();
    void failIdIsExceeded();
    void rowsOfOtherTypesAreNotRead_data();
    void rowsOfOtherTypesAreNotRead();
    void emptyCardSelectsAllCards();
    void cardNarrows();
    void fieldsOfAMessage();
    void bodies_data();
    void bodies();
    void tenMegabytes();
    void countsInOrderOfType();
    void typesDifferByCase();
    void trailingBlanksCount();
    void deletesOneRow();
    void statusCode();
    void earlierMessage_data();
    void earlierMessage();
    void queueInfo();
    void timeWithAZone_data();
    void timeWithAZone();
    void traceOfARead();
    void operationsKeepTheirPlaces();
};

void TestDao::emptyTable()
{
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, -1);
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QVERIFY(dao.getMessageTypeCounts().isEmpty());
    QCOMPARE(dao.getQueueInfo().count, 0);
    QVERIFY(!dao.getQueueInfo().firstMessageTime.isValid());
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TestDao::oldestFirst()
{
    const int first = database->put(u"cardlab"_s, u"{}"_s);
    database->put(u"heineken"_s, u"{}"_s);
    const int second = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, first);
    QCOMPARE(dao.getMessage(u"cardlab"_s, first, false, QString()).id, second);
}

void TestDao::descending()
{
    const int first = database->put(u"cardlab"_s, u"{}"_s, u"1"_s);
    const int second = database->put(u"cardlab"_s, u"{}"_s, u"2"_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, true, QString()).id, second);
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, true, u"1"_s).id, first);
    const QList<Message> all = dao.getMessages(u"cardlab"_s, -1, 10, true, QString());
    QCOMPARE(all.size(), 2);
    QCOMPARE(all.at(0).id, second);
    QCOMPARE(dao.getMessages(u"cardlab"_s, -1, 1, true, QString()).size(), 1);
}

void TestDao::failIdIsExceeded()
{
    database->put(u"cardlab"_s, u"{}"_s);
    const int last = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"cardlab"_s, last, false, QString()).id, -1);
    QVERIFY(dao.hasMessages(u"cardlab"_s, QString()));
}

void TestDao::rowsOfOtherTypesAreNotRead_data()
{
    QTest::addColumn<int>("own");
    QTest::newRow("one row") << 1;
    QTest::newRow("a few rows") << 100;
    QTest::newRow("as many rows") << 5000;
    QTest::newRow("most rows") << 20'000;
}

/// The rows of a service that is down come first. A query that scans them would slow down with each
/// of them, and all types would wait for it.
void TestDao::rowsOfOtherTypesAreNotRead()
{
    QFETCH(int, own);
    if (!server) {
        const QList<QVariantList> plan = database->query(
            u"EXPLAIN QUERY PLAN SELECT messageid, type, body, cardnumber, statuscode FROM message "
            "WHERE type = 'cardlab' AND messageid > -1 ORDER BY messageid asc LIMIT 1"_s);
        QCOMPARE(plan.size(), 1);
        QCOMPARE(plan.first().last().toString(),
                 u"SEARCH message USING INDEX message_type (type=? AND messageid>?)"_s);
        return;
    }
    const QString body = u"{\"a\":\"%1\"}"_s.arg(QString(400, u'x'));
    server->run(
        u"USE queues; INSERT INTO message (type, body) SELECT 'heineken', '%1' FROM seq_1_to_5000;"
        "INSERT INTO message (type, body, cardnumber)"
        " SELECT 'cardlab', '%1', seq FROM seq_1_to_%2;"
        "ANALYZE TABLE message"_s.arg(body, QString::number(own)));
    const auto walked = [this] {
        return server->run(u"SHOW GLOBAL STATUS LIKE 'Handler_read_%'"_s).simplified();
    };
    const auto countOf = [](const QByteArray &status, const QByteArray &name) {
        const QList<QByteArray> words = status.split(' ');
        return words.value(words.indexOf("Handler_read_" + name) + 1).toInt();
    };
    queue::DAO dao;
    dao.connect();
    const QByteArray before = walked();
    QVERIFY(dao.getMessage(u"cardlab"_s, -1, false, QString()).id > 5000);
    QVERIFY(dao.getMessage(u"cardlab"_s, -1, true, QString()).id > 5000);
    const QByteArray after = walked();
    for (const char *name : {"next", "prev", "key"}) {
        const int rows = countOf(after, name) - countOf(before, name);
        QVERIFY2(rows < 10, qPrintable(u"%1: %2"_s.arg(QLatin1String(name)).arg(rows)));
    }
}

void TestDao::emptyCardSelectsAllCards()
{
    const int withCard = database->put(u"mindbox"_s, u"{}"_s, u"777"_s);
    database->put(u"mindbox"_s, u"{}"_s, u""_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessages(u"mindbox"_s, -1, 10, false, QString()).size(), 2);
    QCOMPARE(dao.getMessage(u"mindbox"_s, -1, false, u""_s).id, withCard);
    QVERIFY(dao.hasMessages(u"mindbox"_s, u""_s));
}

void TestDao::cardNarrows()
{
    database->put(u"mindbox"_s, u"{}"_s, u"1"_s);
    const int wanted = database->put(u"mindbox"_s, u"{}"_s, u"2"_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"mindbox"_s, -1, false, u"2"_s).id, wanted);
    QVERIFY(dao.hasMessages(u"mindbox"_s, u"2"_s));
    QVERIFY(!dao.hasMessages(u"mindbox"_s, u"3"_s));
    QVERIFY(!dao.hasMessages(u"cardlab"_s, u"2"_s));
}

void TestDao::fieldsOfAMessage()
{
    const int id = database->put(u"spasibo"_s, uR"({"url":"http://x/ю","n":7})"_s, u"карта"_s);
    database->query(u"UPDATE message SET statuscode = '3'"_s);
    queue::DAO dao;
    dao.connect();
    const Message message = dao.getMessage(u"spasibo"_s, -1, false, QString());
    QCOMPARE(message.id, id);
    QCOMPARE(message.type, u"spasibo"_s);
    QCOMPARE(message.body, (QVariantMap{{u"url"_s, u"http://x/ю"_s}, {u"n"_s, 7}}));
    QCOMPARE(message.cardNumber, u"карта"_s);
    QCOMPARE(message.statusCode, u"3"_s);
}

void TestDao::bodies_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QVariantMap>("read");
    QTest::addColumn<bool>("isError");

    QTest::newRow("not JSON") << u"<xml/>"_s << QVariantMap{} << true;
    QTest::newRow("cut off") << uR"({"url":"http)"_s << QVariantMap{} << true;
    QTest::newRow("empty text") << u""_s << QVariantMap{} << true;
    QTest::newRow("placeholders in the text") << u"%1 %2 {"_s << QVariantMap{} << true;
    QTest::newRow("array") << u"[1,2]"_s << QVariantMap{} << false;
    QTest::newRow("empty object") << u"{}"_s << QVariantMap{} << false;
    QTest::newRow("duplicate keys: the last")
        << uR"({"a":"1","a":"2"})"_s << QVariantMap{{u"a"_s, u"2"_s}} << false;
    QTest::newRow("emoji") << u"{\"a\":\"😀\"}"_s << QVariantMap{{u"a"_s, u"😀"_s}} << false;
}

void TestDao::bodies()
{
    QFETCH(QString, body);
    QFETCH(QVariantMap, read);
    QFETCH(bool, isError);

    const int id = database->put(u"cardlab"_s, body);
    queue::DAO dao;
    dao.connect();
    const LogCapture log(u"dao"_s);
    const Message message = dao.getMessage(u"cardlab"_s, -1, false, QString());
    QCOMPARE(message.id, id);
    QCOMPARE(message.body, read);
    const QString line = u"ERROR Не удалось получить сообщение из БД: id = "_s + QString::number(id)
                         + u", тип = cardlab, сообщение = '"_s + body + u"'"_s;
    QCOMPARE(log.lines().contains(line), isError);
    QCOMPARE(dao.getErrorsCount(), isError ? 1 : 0);
    QCOMPARE(database->ids(), QList<int>{id});
}

void TestDao::tenMegabytes()
{
    const QString text(10 * 1024 * 1024, u'ж');
    database->put(u"cardlab"_s, u"{\"body\":\""_s + text.left(5 * 1024 * 1024) + u"\"}"_s);
    queue::DAO dao;
    dao.connect();
    const Message message = dao.getMessage(u"cardlab"_s, -1, false, QString());
    QCOMPARE(message.body.value(u"body"_s).toString().size(), 5 * 1024 * 1024);
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TestDao::countsInOrderOfType()
{
    for (const QString &type : {u"mindbox"_s, u"cardlab"_s, u"mindbox"_s, u"Zeta"_s})
        database->put(type, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QStringList seen;
    const QList<TypeCount> counts = dao.getMessageTypeCounts();
    for (const TypeCount &entry : counts)
        seen.append(u"%1 %2"_s.arg(entry.type).arg(entry.count));
    QCOMPARE(seen, (QStringList{u"Zeta 1"_s, u"cardlab 1"_s, u"mindbox 2"_s}));
}

void TestDao::typesDifferByCase()
{
    database->put(u"spasiboBatch"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QVERIFY(dao.hasMessages(u"spasiboBatch"_s, QString()));
    QVERIFY(!dao.hasMessages(u"spasibobatch"_s, QString()));
    QCOMPARE(dao.getMessage(u"spasibobatch"_s, -1, false, QString()).id, -1);
}

/// A row of type `cardlab ` has no handler, and card `77 ` differs from card `77`.
void TestDao::trailingBlanksCount()
{
    const int blank = database->put(u"cardlab "_s, u"{}"_s, u"77"_s);
    const int last = database->put(u"excisemark"_s, u"{\"mark\":\"АБВ\"}"_s, u"77 "_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, -1);
    QCOMPARE(dao.getMessage(u"cardlab "_s, -1, false, QString()).id, blank);
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QVERIFY(!dao.hasMessages(u"cardlab"_s, u"77"_s));
    QVERIFY(!dao.hasMessages(u"excisemark"_s, u"77"_s));
    QVERIFY(dao.hasMessages(u"excisemark"_s, u"77 "_s));
    QVERIFY(!dao.hasMessages(u"excisemark"_s, u"77  "_s));
    QCOMPARE(dao.getMessage(u"excisemark"_s, -1, false, u"77"_s).id, -1);
    QCOMPARE(dao.getMessage(u"excisemark"_s, -1, true, u"77 "_s).id, last);

    database->put(u"cardlab"_s, u"{}"_s);
    QStringList seen;
    const QList<TypeCount> counts = dao.getMessageTypeCounts();
    for (const TypeCount &entry : counts)
        seen.append(u"'%1' %2"_s.arg(entry.type).arg(entry.count));
    QCOMPARE(seen, (QStringList{u"'cardlab' 1"_s, u"'cardlab ' 1"_s, u"'excisemark' 1"_s}));

    QVERIFY(dao.hasEarlierMessage(u"excisemark"_s, last + 1, u"АБВ"_s));
    QVERIFY(!dao.hasEarlierMessage(u"excisemark"_s, last + 1, u"АБВ "_s));
    QVERIFY(!dao.hasEarlierMessage(u"excisemark "_s, last + 1, u"АБВ"_s));
    QVERIFY(!dao.hasEarlierMessage(u"cardlab"_s, last + 1, QString()));
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TestDao::deletesOneRow()
{
    const int first = database->put(u"cardlab"_s, u"{}"_s);
    const int second = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    const LogCapture log(u"dao"_s);
    dao.deleteMessage(first);
    QCOMPARE(database->ids(), QList<int>{second});
    QCOMPARE(log.lines(),
             QStringList{u"DEBUG Удаление сообщения с идентификатором '%1'"_s.arg(first)});
    dao.deleteMessage(second);
    const int third = database->put(u"cardlab"_s, u"{}"_s);
    QVERIFY2(third > second, "the number of a deleted row came back");
}

void TestDao::statusCode()
{
    const int first = database->put(u"spasibo"_s, u"{}"_s);
    database->put(u"spasibo"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    dao.updateStatusCode(first, u"2"_s);
    const QList<Message> messages = dao.getMessages(u"spasibo"_s, -1, 10, false, QString());
    QCOMPARE(messages.at(0).statusCode, u"2"_s);
    QCOMPARE(messages.at(1).statusCode, u""_s);
}

void TestDao::earlierMessage_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("marker");
    QTest::addColumn<bool>("found");

    QTest::newRow("within the text") << uR"({"mark":"АБВ123"})"_s << u"БВ1"_s << true;
    QTest::newRow("not there") << uR"({"mark":"АБВ123"})"_s << u"ГД"_s << false;
    QTest::newRow("other case") << uR"({"mark":"abc"})"_s << u"ABC"_s << false;
    QTest::newRow("empty marker: any row") << u"{}"_s << u""_s << true;
    QTest::newRow("percent sign is a wildcard") << uR"({"mark":"a-b"})"_s << u"a%b"_s << true;
    QTest::newRow("underscore is a wildcard") << uR"({"mark":"a-b"})"_s << u"a_b"_s << true;
    QTest::newRow("quote") << uR"({"mark":"it's"})"_s << u"it's"_s << true;
}

void TestDao::earlierMessage()
{
    QFETCH(QString, body);
    QFETCH(QString, marker);
    QFETCH(bool, found);

    const int earlier = database->put(u"excisemark"_s, body);
    const int later = database->put(u"excisemark"_s, body);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.hasEarlierMessage(u"excisemark"_s, later, marker), found);
    QVERIFY(!dao.hasEarlierMessage(u"excisemark"_s, earlier, marker));
    QVERIFY(!dao.hasEarlierMessage(u"markdown"_s, later, marker));
}

void TestDao::queueInfo()
{
    const int first = database->put(u"cardlab"_s, u"{}"_s);
    database->put(u"mindbox"_s, u"{}"_s);
    database->put(u"abmloyalty"_s, u"{}"_s);
    // SQLite returns the value of the oldest row; a server may return that of any row.
    database->query(
        u"UPDATE message SET creationtime = '2026-02-03 04:05:06' WHERE messageid <= ?"_s,
        {server ? first + 2 : first});
    queue::DAO dao;
    dao.connect();
    const QueueInfo info = dao.getQueueInfo();
    QCOMPARE(info.count, 3);
    QCOMPARE(info.firstMessageTime, QDateTime(QDate(2026, 2, 3), QTime(4, 5, 6)));
}

void TestDao::timeWithAZone_data()
{
    QTest::addColumn<QString>("time");
    QTest::addColumn<QTime>("shown");
    // The time zone of the test is five hours ahead of UTC.
    QTest::newRow("none") << u"2026-02-03 04:05:06"_s << QTime(4, 5, 6);
    QTest::newRow("Greenwich") << u"2026-02-03T04:05:06Z"_s << QTime(9, 5, 6);
    QTest::newRow("Moscow") << u"2026-02-03T04:05:06.500+03:00"_s << QTime(6, 5, 6, 500);
}

/// A till writes it as text if the column allows that.
void TestDao::timeWithAZone()
{
    QFETCH(QString, time);
    QFETCH(QTime, shown);
    if (server)
        change(u"ALTER TABLE message MODIFY creationtime VARCHAR(40) NOT NULL DEFAULT ''"_s);
    database->query(u"INSERT INTO message (type, body, cardnumber, statuscode, creationtime) "
                    "VALUES ('cardlab', '{}', '', '', ?)"_s,
                    {time});
    {
        queue::DAO dao;
        dao.connect();
        QCOMPARE(dao.getQueueInfo().firstMessageTime, QDateTime(QDate(2026, 2, 3), shown));
    }
    if (server)
        change(u"DELETE FROM message; ALTER TABLE message MODIFY creationtime DATETIME NOT NULL "
               "DEFAULT CURRENT_TIMESTAMP"_s);
}

void TestDao::traceOfARead()
{
    queue::DAO dao;
    dao.connect();
    const LogCapture log(u"dao"_s);
    dao.getMessage(u"%1"_s, -1, false, QString());
    dao.getMessage(u"cardlab"_s, 15, false, QString());
    QCOMPARE(log.lines(),
             (QStringList{u"TRACE Получение сообщения типа %1"_s,
                          u"TRACE Получение сообщения типа cardlab с идентификатором > 15"_s}));
}

void TestDao::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&queue::DAO::hasMessages), 2);
    QCOMPARE(slotOf(&queue::DAO::getMessage), 3);
    QCOMPARE(slotOf(&queue::DAO::getMessages), 4);
    QCOMPARE(slotOf(&queue::DAO::deleteMessage), 5);
    QCOMPARE(slotOf(&queue::DAO::connect), 6);
    QCOMPARE(slotOf(&queue::DAO::hasEarlierMessage), 7);
}

int main(int argc, char **argv)
{
    return DaoFixture::runOnBoth<TestDao>(argc, argv);
}

#include "tst_dao.moc"
