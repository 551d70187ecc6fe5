#include "engine/dao.h"
#include "rig/mariadbserver.h"
#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QSqlError>
#include <QSqlRecord>
#include <QTest>

#include <csignal>
#include <sys/resource.h>
#include <thread>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;

namespace {

QStringList qtWarnings;

void collectQtWarnings(QtMsgType type, const QMessageLogContext & /*context*/, const QString &text)
{
    if (type == QtWarningMsg)
        qtWarnings.append(text);
    else if (type == QtFatalMsg)
        fprintf(stderr, "%s\n", qPrintable(text));
}

/// The file as the till has it open: a connection of its own, with the file as its main database.
class TillConnection
{
public:
    explicit TillConnection(const QString &file)
        : database(QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s))
    {
        database.setDatabaseName(file);
        database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=0"_s);
        if (!database.open())
            qFatal("%s", qPrintable(database.lastError().text()));
    }
    ~TillConnection()
    {
        database = QSqlDatabase();
        QSqlDatabase::removeDatabase(u"till"_s);
    }
    TillConnection(const TillConnection &) = delete;

    /// The first row of the result.
    QVariantList run(const QString &statement)
    {
        QSqlQuery query(database);
        if (!query.exec(statement))
            qFatal("%s: %s", qPrintable(statement), qPrintable(query.lastError().text()));
        QVariantList row;
        if (query.next()) {
            for (int column = 0; column < query.record().count(); ++column)
                row.append(query.value(column));
        }
        return row;
    }

private:
    QSqlDatabase database;
};

} // namespace

/// Every case runs on SQLite and on a real server.
class TstDao : public QObject
{
    Q_OBJECT

public:
    explicit TstDao(MariaDbServer *server)
        : server(server)
    {
    }

private Q_SLOTS:
    void init();
    void cleanup();

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
    void failedStatementKeepsTheConnection();
    void causeThatGoesAway_data();
    void causeThatGoesAway();
    void lostTableReconnects();
    void unreachableAtFirstCall();
    void unreachableThrowsFromConnect();
    void queueInfoOfALostTable();
    void queueInfoWithoutConnection();
    void endRemovesTheConnection();
    void deletedFile();
    void deletedFileOfABusyStore();
    void replacedFile();
    void noOperationHoldsTheLog();
    void logShrinksWhenAPassEnds_data();
    void logShrinksWhenAPassEnds();
    void logShrinksInATurnOfItsOwn();
    void logShrinksByItself();
    void lockedByAnotherProgram();
    void workersRemoveTogether();
    void oneOfSeveralIsNotRemoved();
    void fullDiskForSeveral();
    void deletedFileOfSeveral();
    void otherWritesWaitForTheirTurn();
    void readOnlyFile();
    void fullDisk();
    void serverRestart();
    void idleLongerThanTheServerAllows();
    void operationsKeepTheirPlaces();

private:
    qint64 logSize() const { return QFileInfo(database->file() + u"-wal"_s).size(); }
    /// Has the log grow to more than `bytes` while `till` reads, which keeps it from beginning
    /// again.
    void growLog(TillConnection &till, qint64 bytes);
    void change(const QString &statement);
    void dropConnection();
    void breakConnection();
    WriteGate *gate();

    MariaDbServer *server;
    std::unique_ptr<QueueDatabase> database;
};

void TstDao::init()
{
    qtWarnings.clear();
    qInstallMessageHandler(collectQtWarnings);
    database = std::make_unique<QueueDatabase>();
    if (server) {
        database->setSettings(server->settings());
        server->run(u"TRUNCATE TABLE queues.message"_s);
    }
}

void TstDao::cleanup()
{
    database.reset();
    qInstallMessageHandler(nullptr);
    QCOMPARE(qtWarnings.join(u'\n'), QString());
}

void TstDao::emptyTable()
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

void TstDao::oldestFirst()
{
    const int first = database->put(u"cardlab"_s, u"{}"_s);
    database->put(u"heineken"_s, u"{}"_s);
    const int second = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, first);
    QCOMPARE(dao.getMessage(u"cardlab"_s, first, false, QString()).id, second);
}

void TstDao::descending()
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

void TstDao::failIdIsExceeded()
{
    database->put(u"cardlab"_s, u"{}"_s);
    const int last = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessage(u"cardlab"_s, last, false, QString()).id, -1);
    QVERIFY(dao.hasMessages(u"cardlab"_s, QString()));
}

void TstDao::rowsOfOtherTypesAreNotRead_data()
{
    QTest::addColumn<int>("own");
    QTest::newRow("one row") << 1;
    QTest::newRow("a few rows") << 100;
    QTest::newRow("as many rows") << 5000;
    QTest::newRow("most rows") << 20'000;
}

/// The rows of a service that is down lie in front. A reading that walked past them would take the longer
/// the more there are, and all types would wait for it.
void TstDao::rowsOfOtherTypesAreNotRead()
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

void TstDao::emptyCardSelectsAllCards()
{
    const int withCard = database->put(u"mindbox"_s, u"{}"_s, u"777"_s);
    database->put(u"mindbox"_s, u"{}"_s, u""_s);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(dao.getMessages(u"mindbox"_s, -1, 10, false, QString()).size(), 2);
    QCOMPARE(dao.getMessage(u"mindbox"_s, -1, false, u""_s).id, withCard);
    QVERIFY(dao.hasMessages(u"mindbox"_s, u""_s));
}

void TstDao::cardNarrows()
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

void TstDao::fieldsOfAMessage()
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

void TstDao::bodies_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QVariantMap>("read");
    QTest::addColumn<bool>("isError");

    QTest::newRow("no JSON") << u"<xml/>"_s << QVariantMap{} << true;
    QTest::newRow("cut off") << uR"({"url":"http)"_s << QVariantMap{} << true;
    QTest::newRow("empty text") << u""_s << QVariantMap{} << true;
    QTest::newRow("placeholders in the text") << u"%1 %2 {"_s << QVariantMap{} << true;
    QTest::newRow("array") << u"[1,2]"_s << QVariantMap{} << false;
    QTest::newRow("empty object") << u"{}"_s << QVariantMap{} << false;
    QTest::newRow("duplicate keys: the last")
        << uR"({"a":"1","a":"2"})"_s << QVariantMap{{u"a"_s, u"2"_s}} << false;
    QTest::newRow("emoji") << u"{\"a\":\"😀\"}"_s << QVariantMap{{u"a"_s, u"😀"_s}} << false;
}

void TstDao::bodies()
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

void TstDao::tenMegabytes()
{
    const QString text(10 * 1024 * 1024, u'ж');
    database->put(u"cardlab"_s, u"{\"body\":\""_s + text.left(5 * 1024 * 1024) + u"\"}"_s);
    queue::DAO dao;
    dao.connect();
    const Message message = dao.getMessage(u"cardlab"_s, -1, false, QString());
    QCOMPARE(message.body.value(u"body"_s).toString().size(), 5 * 1024 * 1024);
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TstDao::countsInOrderOfType()
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

void TstDao::typesDifferByCase()
{
    database->put(u"spasiboBatch"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QVERIFY(dao.hasMessages(u"spasiboBatch"_s, QString()));
    QVERIFY(!dao.hasMessages(u"spasibobatch"_s, QString()));
    QCOMPARE(dao.getMessage(u"spasibobatch"_s, -1, false, QString()).id, -1);
}

/// A row of type `cardlab ` has no handler, and card `77 ` is another card than `77`.
void TstDao::trailingBlanksCount()
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

void TstDao::deletesOneRow()
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

void TstDao::statusCode()
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

void TstDao::earlierMessage_data()
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

void TstDao::earlierMessage()
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

void TstDao::queueInfo()
{
    const int first = database->put(u"cardlab"_s, u"{}"_s);
    database->put(u"mindbox"_s, u"{}"_s);
    database->put(u"abmloyalty"_s, u"{}"_s);
    // SQLite shows the oldest row's; which row's a server shows is its own affair.
    database->query(
        u"UPDATE message SET creationtime = '2026-02-03 04:05:06' WHERE messageid <= ?"_s,
        {server ? first + 2 : first});
    queue::DAO dao;
    dao.connect();
    const QueueInfo info = dao.getQueueInfo();
    QCOMPARE(info.count, 3);
    QCOMPARE(info.firstMessageTime, QDateTime(QDate(2026, 2, 3), QTime(4, 5, 6)));
}

void TstDao::timeWithAZone_data()
{
    QTest::addColumn<QString>("time");
    QTest::addColumn<QTime>("shown");
    // The test's zone is five hours ahead of Greenwich.
    QTest::newRow("none") << u"2026-02-03 04:05:06"_s << QTime(4, 5, 6);
    QTest::newRow("Greenwich") << u"2026-02-03T04:05:06Z"_s << QTime(9, 5, 6);
    QTest::newRow("Moscow") << u"2026-02-03T04:05:06.500+03:00"_s << QTime(6, 5, 6, 500);
}

/// A till writes it as text where the column lets it.
void TstDao::timeWithAZone()
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

void TstDao::traceOfARead()
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

void TstDao::failedStatementKeepsTheConnection()
{
    const int id = database->put(u"spasibo"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    change(u"ALTER TABLE message RENAME COLUMN statuscode TO gone"_s);
    const LogCapture log(u"dao"_s);
    dao.updateStatusCode(id, u"1"_s);
    change(u"ALTER TABLE message RENAME COLUMN gone TO statuscode"_s);

    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(log.lines().first().startsWith(u"WARN Ошибка при выполнении запроса: "_s));
    QVERIFY(dao.hasMessages(u"spasibo"_s, QString()));
    QVERIFY2(!log.lines().contains(u"DEBUG Подключение к базе данных"_s), "it reconnected");
    dao.resetErrorsCount();
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TstDao::causeThatGoesAway_data()
{
    QTest::addColumn<bool>("isThereFromTheStart");
    QTest::addColumn<int>("calls");
    for (const int calls : {1, 2, 5}) {
        QTest::addRow("%d calls", calls) << false << calls;
        QTest::addRow("%d calls, and the connection", calls) << true << calls;
    }
}

/// A column that a till's update takes away and gives back. Each call fails and is counted once;
/// the first one afterwards succeeds.
void TstDao::causeThatGoesAway()
{
    QFETCH(bool, isThereFromTheStart);
    QFETCH(int, calls);
    const int id = database->put(u"spasibo"_s, u"{}"_s);
    queue::DAO dao;
    if (!isThereFromTheStart) {
        dao.connect();
        QCOMPARE(dao.getMessage(u"spasibo"_s, -1, false, QString()).id, id);
        dao.updateStatusCode(id, u"1"_s);
    }
    change(u"ALTER TABLE message RENAME COLUMN statuscode TO gone"_s);
    if (isThereFromTheStart)
        dao.connect();
    const LogCapture log(u"dao"_s);
    for (int call = 0; call < calls; ++call) {
        dao.updateStatusCode(id, u"2"_s);
        QCOMPARE(dao.getErrorsCount(), 2 * call + 1);
        QCOMPARE(dao.getMessage(u"spasibo"_s, -1, false, QString()).id, -1);
        QCOMPARE(dao.getErrorsCount(), 2 * call + 2);
    }
    change(u"ALTER TABLE message RENAME COLUMN gone TO statuscode"_s);
    dao.updateStatusCode(id, u"3"_s);
    QCOMPARE(dao.getMessage(u"spasibo"_s, -1, false, QString()).statusCode, u"3"_s);
    QCOMPARE(dao.getErrorsCount(), 2 * calls);

    const QStringList errors = log.lines().filter(u"WARN "_s);
    QCOMPARE(errors.size(), 2 * calls);
    for (const QString &line : errors)
        QVERIFY2(line.startsWith(u"WARN Ошибка при выполнении запроса: "_s)
                     && line.contains(u"statuscode"),
                 qPrintable(line));
    QVERIFY(log.lines().filter(u"ERROR "_s).isEmpty());
    QVERIFY2(!log.lines().contains(u"DEBUG Подключение к базе данных"_s), "it reconnected");
}

void TstDao::lostTableReconnects()
{
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    change(u"ALTER TABLE message RENAME TO away"_s);
    const LogCapture log(u"dao"_s);
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, -1);
    QCOMPARE(dao.getErrorsCount(), 2);
    QVERIFY(log.lines().contains(u"ERROR База данных недоступна"_s));

    change(u"ALTER TABLE away RENAME TO message"_s);
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, id);
    QCOMPARE(log.lines().count(u"DEBUG Подключение к базе данных"_s), 1);
    QCOMPARE(dao.getErrorsCount(), 2);
}

/// Changes the table as its owner.
void TstDao::change(const QString &statement)
{
    if (server)
        server->run(u"USE queues; "_s + statement);
    else
        database->query(statement);
}

void TstDao::dropConnection()
{
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    const QString name = factory->getConnection().connectionName();
    factory->removeConnection(name);
}

void TstDao::breakConnection()
{
    // The test's own connection must not be handed out.
    dropConnection();
    database->setSettings(server ? u"[database]\ndriver = QMYSQL\nsocket = /nowhere/db.sock\n"_s
                                 : u"[database]\nname = /nowhere/queues.db\n"_s);
}

void TstDao::unreachableAtFirstCall()
{
    breakConnection();
    queue::DAO dao;
    const LogCapture log(u"dao"_s);
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(log.lines().size(), 2);
    QVERIFY(log.lines().at(1).startsWith(u"ERROR Не удалось "_s));

    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);
    database->setSettings(server ? server->settings() : QString());
    database->put(u"cardlab"_s, u"{}"_s);
    QVERIFY(dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);
}

void TstDao::unreachableThrowsFromConnect()
{
    breakConnection();
    {
        queue::DAO dao;
        QVERIFY_EXCEPTION_THROWN(dao.connect(), BasicException);
        QCOMPARE(dao.getErrorsCount(), 0);
    }
    database->setSettings(server ? server->settings() : QString());
}

void TstDao::queueInfoOfALostTable()
{
    queue::DAO dao;
    dao.connect();
    change(u"ALTER TABLE message RENAME TO away"_s);
    const LogCapture log(u"dao"_s);
    QCOMPARE(dao.getQueueInfo().count, -1);
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(log.lines().first().startsWith(u"WARN Ошибка при выполнении запроса: "_s));
    change(u"ALTER TABLE away RENAME TO message"_s);
}

/// The main thread is asked for it while the database is away.
void TstDao::queueInfoWithoutConnection()
{
    change(u"ALTER TABLE message RENAME TO away"_s);
    {
        queue::DAO dao;
        // No statement can be prepared.
        dao.connect();
        dao.hasMessages(u"cardlab"_s, QString());
        QCOMPARE(dao.getErrorsCount(), 2);
        change(u"ALTER TABLE away RENAME TO message"_s);
        breakConnection();
        dao.hasMessages(u"cardlab"_s, QString());
        QCOMPARE(dao.getErrorsCount(), 3);

        const LogCapture log(u"dao"_s);
        QCOMPARE(dao.getQueueInfo().count, -1);
        QCOMPARE(dao.getErrorsCount(), 4);
        QCOMPARE(log.lines().size(), 1);
        QVERIFY2(log.lines().first().startsWith(u"WARN Ошибка при выполнении запроса: "_s)
                     && log.lines().first().size() > 50,
                 qPrintable(log.lines().first()));
        database->setSettings(server ? server->settings() : QString());
        QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
        QCOMPARE(dao.getQueueInfo().count, 0);
        QCOMPARE(dao.getErrorsCount(), 4);
    }
}

void TstDao::endRemovesTheConnection()
{
    database->put(u"cardlab"_s, u"{}"_s);
    QString name;
    const LogCapture log(u"dao"_s);
    std::thread worker([&name] {
        queue::DAO dao;
        dao.connect();
        name = Singleton<ConnectionFactory>::instance()->getConnection().connectionName();
        dao.getMessage(u"cardlab"_s, -1, false, QString());
    });
    worker.join();
    QVERIFY(!name.isEmpty());
    QVERIFY(!QSqlDatabase::contains(name));
    QCOMPARE(log.lines().last(), u"TRACE Удаление соединения с базой данных: "_s + name);
}

void TstDao::deletedFile()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    const LogCapture log(u"dao"_s);
    for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
        QVERIFY(QFile::remove(database->file() + suffix));
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);
    QVERIFY(log.lines().contains(
        u"WARN Ошибка при выполнении запроса: файл базы данных удалён или заменён"_s));
    QVERIFY(log.lines().contains(u"ERROR База данных недоступна"_s));

    // The next call makes the file anew, and what the till writes into it is seen.
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    database->put(u"cardlab"_s, u"{}"_s);
    QVERIFY(dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);
}

void TstDao::deletedFileOfABusyStore()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    const auto removeFiles = [this] {
        for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
            QVERIFY(QFile::remove(database->file() + suffix));
    };
    database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    QVERIFY(dao.getMessage(u"cardlab"_s, -1, false, QString()).id > 0);
    removeFiles();
    // A worker's reading notices soon, though not with each statement.
    const auto isNoticed = [&dao] {
        dao.getMessage(u"cardlab"_s, -1, false, QString());
        return dao.getErrorsCount() == 2;
    };
    QTRY_VERIFY(isNoticed());

    // What is asked once notices at once.
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    database->put(u"cardlab"_s, u"{}"_s);
    QVERIFY(dao.getMessage(u"cardlab"_s, -1, false, QString()).id > 0);
    removeFiles();
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 4);
}

/// A backup is moved into place, and the write-ahead log of the former file stays beside it.
void TstDao::replacedFile()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    const QString backup = database->root() + u"/backup.db"_s;
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    database->query(u"VACUUM queues INTO ?"_s, {backup});
    for (int i = 0; i < 100; ++i)
        database->put(u"heineken"_s, QString(1000, u'x'));
    QVERIFY(logSize() > 100'000);
    queue::DAO dao;
    dao.connect();
    QCOMPARE(::rename(QFile::encodeName(backup).constData(),
                      QFile::encodeName(database->file()).constData()),
             0);
    const LogCapture log(u"database"_s);
    QVERIFY(!dao.hasMessages(u"cardlab"_s, QString()));
    QCOMPARE(dao.getErrorsCount(), 2);

    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, id);
    QVERIFY(!dao.hasMessages(u"heineken"_s, QString()));
    dao.deleteMessage(id);
    QCOMPARE(database->ids(), QList<int>());
    QCOMPARE(database->query(u"PRAGMA queues.integrity_check"_s).value(0).value(0), u"ok"_s);
    QCOMPARE(dao.getErrorsCount(), 2);
    QCOMPARE(log.lines().filter(u"ERROR Файл базы данных "_s).size(), 1);
}

/// A statement that is not over would be a reader for as long as the service runs, and the log
/// would grow for as long.
void TstDao::noOperationHoldsTheLog()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    const int first = database->put(u"spasibo"_s, u"{}"_s, u"7"_s);
    const int id = database->put(u"spasibo"_s, u"{}"_s, u"7"_s);
    database->put(u"cardlab"_s, u"{}"_s, u"7"_s);
    database->put(u"cardlab"_s, u"{}"_s, u"7"_s);
    queue::DAO dao;
    dao.connect();
    TillConnection till(database->file());
    const auto isFree = [&till] {
        till.run(u"INSERT INTO message (type, body) VALUES ('heineken', '{}')"_s);
        return till.run(u"PRAGMA wal_checkpoint(TRUNCATE)"_s).value(0) == 0;
    };
    QVERIFY(isFree());
    dao.hasMessages(u"spasibo"_s, QString());
    QVERIFY(isFree());
    dao.hasMessages(u"spasibo"_s, u"7"_s);
    QVERIFY(isFree());
    for (const bool descending : {false, true}) {
        for (const QString &card : {u""_s, u"7"_s}) {
            QCOMPARE(dao.getMessages(u"spasibo"_s, -1, 1, descending, card).size(), 1);
            QVERIFY(isFree());
        }
    }
    QVERIFY(dao.hasEarlierMessage(u"spasibo"_s, id + 1, QString()));
    QVERIFY(isFree());
    dao.getMessageTypeCounts();
    QVERIFY(isFree());
    dao.updateStatusCode(id, u"1"_s);
    QVERIFY(isFree());
    dao.getQueueInfo();
    QVERIFY(isFree());
    dao.deleteMessage(first);
    QVERIFY(isFree());
    dao.onPassEnded();
    QVERIFY(isFree());
    QCOMPARE(dao.getErrorsCount(), 0);
}

void TstDao::growLog(TillConnection &till, qint64 bytes)
{
    till.run(u"BEGIN"_s);
    till.run(u"SELECT COUNT(*) FROM message"_s);
    while (logSize() <= bytes)
        database->put(u"heineken"_s, QString(1024 * 1024, u'x'));
}

void TstDao::logShrinksWhenAPassEnds_data()
{
    QTest::addColumn<QString>("holding");
    QTest::addColumn<bool>("isHeld");
    // The till keeps it from shrinking, or lets it.
    QTest::newRow("nobody") << QString() << false;
    QTest::newRow("a reader of an old state") << u"SELECT 1 FROM message"_s << true;
    QTest::newRow("a writer") << u"DELETE FROM message WHERE messageid = 1"_s << true;
}

void TstDao::logShrinksWhenAPassEnds()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    QFETCH(QString, holding);
    QFETCH(bool, isHeld);
    constexpr qint64 size = 20 * 1024 * 1024;
    database->put(u"heineken"_s, u"{}"_s);
    TillConnection till(database->file());
    growLog(till, size);
    const bool isReader = holding.startsWith(u"SELECT"_s);
    if (!isReader)
        till.run(u"COMMIT"_s);
    if (isHeld && !isReader) {
        till.run(u"BEGIN IMMEDIATE"_s);
        till.run(holding);
    }
    const QList<int> ids = database->ids();
    queue::DAO dao;
    dao.connect();
    const LogCapture log(u"dao"_s);
    QElapsedTimer time;
    time.start();
    dao.onPassEnded();
    // The connection waits 5 s for a lock where it has to have it.
    QVERIFY2(time.elapsed() < 4000, "it waited for the till");
    QCOMPARE(logSize() > size, isHeld);
    if (isHeld) {
        till.run(u"COMMIT"_s);
        dao.onPassEnded();
    }
    QCOMPARE(logSize(), 0);
    QCOMPARE(database->query(u"PRAGMA busy_timeout"_s).value(0).value(0), 5000);
    QCOMPARE(database->ids().size(), ids.size() - (isHeld && !isReader ? 1 : 0));
    QCOMPARE(dao.getErrorsCount(), 0);
    QCOMPARE(log.lines(), QStringList());

    // An ordinary log is left alone.
    database->put(u"heineken"_s, u"{}"_s);
    const qint64 ordinary = logSize();
    QVERIFY(ordinary > 0);
    dao.onPassEnded();
    QCOMPARE(logSize(), ordinary);
}

void TstDao::logShrinksInATurnOfItsOwn()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    constexpr qint64 size = 20 * 1024 * 1024;
    database->put(u"heineken"_s, u"{}"_s);
    {
        TillConnection till(database->file());
        growLog(till, size);
        till.run(u"COMMIT"_s);
    }
    WriteGate::Turn held = WriteGate::enter(gate());
    std::thread worker([] {
        queue::DAO dao;
        dao.connect();
        dao.onPassEnded();
    });
    while (gate()->waiting() == 0)
        std::this_thread::yield();
    const bool isWaiting = logSize() > size;
    held.end();
    worker.join();
    QVERIFY(isWaiting);
    QCOMPARE(logSize(), 0);
}

/// The service's own writes give the disk back, too, once the log begins again.
void TstDao::logShrinksByItself()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    constexpr qint64 size = 20 * 1024 * 1024;
    const int first = database->put(u"cardlab"_s, u"{}"_s);
    const int second = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    {
        TillConnection till(database->file());
        growLog(till, size);
        till.run(u"COMMIT"_s);
    }
    QVERIFY(logSize() > size);
    dao.deleteMessage(first);
    dao.deleteMessage(second);
    QVERIFY2(logSize() <= size / 2, qPrintable(QString::number(logSize())));
}

void TstDao::lockedByAnotherProgram()
{
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    if (server)
        database->query(u"BEGIN"_s);
    else
        database->query(u"BEGIN IMMEDIATE"_s);
    database->query(u"UPDATE message SET statuscode = 'busy' WHERE messageid = ?"_s, {id});

    std::atomic<int> errors{-1};
    std::thread worker([id, &errors] {
        queue::DAO dao;
        dao.connect();
        dao.deleteMessage(id);
        errors = dao.getErrorsCount();
    });
    database->query(u"COMMIT"_s);
    worker.join();
    QCOMPARE(errors.load(), 0);
    QCOMPARE(database->ids(), QList<int>());
}

WriteGate *TstDao::gate()
{
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    return factory->gateOf(factory->getConnection());
}

/// A store for each of `rows`, which it removes in a thread of its own, all at once where the file
/// has a gate. Returns what each has counted. `fault` happens when all have come.
QList<int> removeAtOnce(
    WriteGate *gate, const QList<int> &rows, const std::function<void()> &fault = [] {})
{
    QList<int> errors(rows.size());
    std::vector<std::thread> workers;
    WriteGate::Turn held = WriteGate::enter(gate);
    for (int i = 0; i < rows.size(); ++i) {
        workers.emplace_back([&rows, &count = errors[i], i] {
            queue::DAO dao;
            dao.connect();
            dao.deleteMessage(rows.at(i));
            count = dao.getErrorsCount();
        });
        while (gate && gate->waiting() <= i)
            std::this_thread::yield();
    }
    fault();
    held.end();
    for (std::thread &worker : workers)
        worker.join();
    return errors;
}

void TstDao::workersRemoveTogether()
{
    QCOMPARE(gate() == nullptr, server != nullptr);
    QList<int> rows;
    for (int i = 0; i < 8; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    const int other = database->put(u"cardlab"_s, u"{}"_s);
    QCOMPARE(removeAtOnce(gate(), rows), QList<int>(8, 0));
    QCOMPARE(database->ids(), QList<int>{other});
}

/// One of them alone has an error, counted and logged as if nobody else had been there.
void TstDao::oneOfSeveralIsNotRemoved()
{
    if (server)
        QSKIP("a server has no gate");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    change(u"CREATE TRIGGER queues.refusal BEFORE DELETE ON message WHEN OLD.type = 'type1' "
           "BEGIN SELECT RAISE(ABORT, 'refused'); END"_s);
    const LogCapture log(u"dao"_s);
    const QList<int> errors = removeAtOnce(gate(), rows);
    change(u"DROP TRIGGER refusal"_s);

    QCOMPARE(errors, (QList<int>{0, 1, 0}));
    QCOMPARE(database->ids(), QList<int>{rows.at(1)});
    const QStringList warnings = log.lines().filter(u"WARN "_s) + log.lines().filter(u"ERROR "_s);
    QCOMPARE(warnings.size(), 1);
    QVERIFY(warnings.first().startsWith(u"WARN Ошибка при выполнении запроса: "_s));
    QVERIFY(warnings.first().contains(u"refused"_s));
}

/// SQLite ends the transaction by itself, and each worker finds the disk full.
void TstDao::fullDiskForSeveral()
{
    if (server)
        QSKIP("the server's disk is its own");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    rlimit former = {};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto formerAction = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, former.rlim_max};
    const LogCapture log(u"dao"_s);
    const QList<int> errors =
        removeAtOnce(gate(), rows, [&none] { setrlimit(RLIMIT_FSIZE, &none); });
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &former), 0);
    std::signal(SIGXFSZ, formerAction);

    QCOMPARE(errors, QList<int>(3, 1));
    QCOMPARE(log.lines().filter(u"WARN Ошибка при выполнении запроса: "_s).size(), 3);
    QCOMPARE(log.lines().filter(u"DEBUG Подключение к базе данных"_s).size(), 3);
    QCOMPARE(database->ids(), rows);
    QCOMPARE(removeAtOnce(gate(), rows), QList<int>(3, 0));
    QCOMPARE(database->ids(), QList<int>());
}

void TstDao::deletedFileOfSeveral()
{
    if (server)
        QSKIP("a server keeps its files to itself");
    QList<int> rows;
    for (int i = 0; i < 3; ++i)
        rows.append(database->put(u"type%1"_s.arg(i), u"{}"_s));
    const auto removeFiles = [this] {
        for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
            QFile::remove(database->file() + suffix);
    };
    const LogCapture log(u"dao"_s);
    // A failed statement and a lost database for each, as for one that is alone.
    QCOMPARE(removeAtOnce(gate(), rows, removeFiles), QList<int>(3, 2));
    QCOMPARE(
        log.lines()
            .filter(u"WARN Ошибка при выполнении запроса: файл базы данных удалён или заменён"_s)
            .size(),
        3);
}

void TstDao::otherWritesWaitForTheirTurn()
{
    if (server)
        QSKIP("a server has no gate");
    const int id = database->put(u"spasibo"_s, u"{}"_s);
    std::vector<std::thread> writers;
    {
        const WriteGate::Turn held = WriteGate::enter(gate());
        writers.emplace_back([id] {
            queue::DAO dao;
            dao.connect();
            dao.updateStatusCode(id, u"4"_s);
        });
        while (gate()->waiting() != 1)
            std::this_thread::yield();
        QCOMPARE(database->query(u"SELECT statuscode FROM message"_s).first().first(),
                 QVariant(u""_s));
    }
    writers.front().join();
    QCOMPARE(database->query(u"SELECT statuscode FROM message"_s).first().first(),
             QVariant(u"4"_s));
}

void TstDao::readOnlyFile()
{
    if (server)
        QSKIP("what a server cannot write it tells like any failed statement");
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    database->query(u"PRAGMA query_only = ON"_s);
    const LogCapture log(u"dao"_s);
    dao.deleteMessage(id);
    database->query(u"PRAGMA query_only = OFF"_s);
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(database->ids(), QList<int>{id});
    dao.deleteMessage(id);
    QCOMPARE(database->ids(), QList<int>());
}

void TstDao::fullDisk()
{
    if (server)
        QSKIP("the server's disk is its own");
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();

    // No file of this process may grow: the system refuses the write as it does on a full disk.
    rlimit former = {};
    QCOMPARE(getrlimit(RLIMIT_FSIZE, &former), 0);
    const auto formerAction = std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, former.rlim_max};
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &none), 0);
    const LogCapture log(u"dao"_s);
    dao.deleteMessage(id);
    const bool isStillRead = dao.getMessage(u"cardlab"_s, -1, false, QString()).id == id;
    QCOMPARE(setrlimit(RLIMIT_FSIZE, &former), 0);
    std::signal(SIGXFSZ, formerAction);

    QVERIFY(isStillRead);
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(log.lines().filter(u"WARN Ошибка при выполнении запроса: "_s).size(), 1);
    QCOMPARE(database->ids(), QList<int>{id});
    dao.deleteMessage(id);
    QCOMPARE(database->ids(), QList<int>());
}

void TstDao::serverRestart()
{
    if (!server)
        QSKIP("there is no server");
    const int id = database->put(u"cardlab"_s, u"{}"_s);
    queue::DAO dao;
    dao.connect();
    server->stop();
    const LogCapture log(u"dao"_s);
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, -1);
    QCOMPARE(dao.getErrorsCount(), 2);
    QVERIFY(log.lines().contains(u"ERROR База данных недоступна"_s));
    server->start();
    QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, id);
    QCOMPARE(dao.getErrorsCount(), 2);
}

void TstDao::idleLongerThanTheServerAllows()
{
    if (!server)
        QSKIP("a file has no sessions");
    database->put(u"cardlab"_s, u"{}"_s);
    dropConnection();
    server->run(u"SET GLOBAL wait_timeout = 1; SET GLOBAL interactive_timeout = 1"_s);
    const auto restore = qScopeGuard([this] {
        server->run(
            u"SET GLOBAL wait_timeout = DEFAULT; SET GLOBAL interactive_timeout = DEFAULT"_s);
    });
    queue::DAO dao;
    dao.connect();
    for (int poll = 0; poll < 2; ++poll) {
        // Another session, begun later: when the server has ended it, that of the store has been
        // idle for longer than the server allows by itself.
        QSqlDatabase other = QSqlDatabase::addDatabase(u"QMYSQL"_s, u"other"_s);
        other.setUserName(server->user());
        other.setPassword(server->password());
        other.setConnectOptions(u"UNIX_SOCKET="_s + server->socket());
        QVERIFY(other.open());
        QSqlQuery id(other);
        QVERIFY(id.exec(u"SELECT CONNECTION_ID()"_s) && id.next());
        const QString session =
            u"SELECT id FROM information_schema.processlist WHERE id = %1"_s.arg(
                id.value(0).toString());
        id = QSqlQuery();
        QTRY_COMPARE(server->run(session), QByteArray());
        other = QSqlDatabase();
        QSqlDatabase::removeDatabase(u"other"_s);

        QCOMPARE(dao.getMessageTypeCounts().size(), 1);
        QCOMPARE(dao.getErrorsCount(), 0);
    }
}

void TstDao::operationsKeepTheirPlaces()
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
    // A zone that nobody takes for UTC, for this process and its server alike.
    qputenv("TZ", "Asia/Yekaterinburg");
    QCoreApplication application(argc, argv);
    TstDao onSqlite(nullptr);
    int failures = QTest::qExec(&onSqlite, argc, argv);
    MariaDbServer server;
    TstDao onServer(&server);
    failures += QTest::qExec(&onServer, argc, argv);
    return failures;
}

#include "tst_dao.moc"
