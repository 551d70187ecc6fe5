#include "rig/error.h"
#include "rig/journalrows.h"
#include "rig/till.h"
#include "tools/stand/scenariocheck.h"

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace stand;
using rig::Error;

/// The expectations of a scenario, compared with a delivery journal made by hand.
class TestScenarioCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void journal_data();
    void journal();
    void onlyGivenMembersAreCompared();
    void withoutAJournal();

private:
    static void execute(const QString &statement);
    static WrittenMessage written(int id, const RecordedOutcome &recorded);

    rig::Till till;
    QString file;
};

void TestScenarioCheck::execute(const QString &statement)
{
    QSqlQuery query(QSqlDatabase::database(u"journal"_s, false));
    if (!query.exec(statement))
        qFatal("%s: %s", qPrintable(statement), qPrintable(query.lastError().text()));
}

WrittenMessage TestScenarioCheck::written(int id, const RecordedOutcome &recorded)
{
    WrittenMessage entry;
    entry.id = id;
    entry.message.type = u"loya"_s;
    entry.message.outcome.recorded = recorded;
    return entry;
}

void TestScenarioCheck::initTestCase()
{
    file = till.write(u"/tallocash/cash/queue/journal.db"_s, {});
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"journal"_s);
        database.setDatabaseName(file);
        QVERIFY2(database.open(), qPrintable(database.lastError().text()));
    }
    execute(u"PRAGMA journal_mode=WAL"_s);
    execute(u"CREATE TABLE outcome (number INTEGER PRIMARY KEY AUTOINCREMENT, messageid INTEGER, "
            "type TEXT, card TEXT, reference TEXT, verdict TEXT, kind TEXT, status INTEGER, "
            "text TEXT, attempts INTEGER, first INTEGER, last INTEGER, milliseconds INTEGER)"_s);
    const QString row =
        u"INSERT INTO outcome (messageid, type, card, reference, verdict, kind, status, text, "
        "attempts, first, last, milliseconds) VALUES (%1, '', '%2', '%3', '%4', %5, '%6', 1, 0, 0, 0)"_s;
    execute(row.arg(u"1, 'loya'"_s, u"4711"_s, u"kept"_s, u"network"_s, u"0"_s, u"нет связи"_s));
    execute(row.arg(u"1, 'cardlab'"_s, u"0815"_s, u"delivered"_s, u"none"_s, u"200"_s, QString()));
    execute(
        row.arg(u"2, 'loya'"_s, u"4712"_s, u"dropped"_s, u"request"_s, u"400"_s, u"отказ 17"_s));
    // A message whose reference changed between two attempts.
    execute(row.arg(u"1, 'loya'"_s, u"4713"_s, u"delivered"_s, u"none"_s, u"201"_s, QString()));
    QSqlDatabase::removeDatabase(u"journal"_s);
}

void TestScenarioCheck::journal_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<RecordedOutcome>("told");
    QTest::addColumn<QStringList>("findings");

    const RecordedOutcome second{u"dropped"_s, u"request"_s, 400, u"отказ {{digits}}"_s, u"4712"_s};
    const auto changed = [&second](const auto &change) {
        RecordedOutcome told = second;
        change(told);
        return told;
    };
    const QString name = u"message 2 of type loya, journal: "_s;
    QTest::newRow("as expected") << 2 << second << QStringList();
    QTest::newRow("verdict") << 2 << changed([](auto &told) { told.verdict = u"delivered"_s; })
                             << QStringList{name + u"verdict\n  - delivered\n  + dropped"_s};
    QTest::newRow("kind") << 2 << changed([](auto &told) { told.kind = u"service"_s; })
                          << QStringList{name + u"kind\n  - service\n  + request"_s};
    QTest::newRow("status") << 2 << changed([](auto &told) { told.status = 404; })
                            << QStringList{name + u"status\n  - 404\n  + 400"_s};
    QTest::newRow("reason") << 2 << changed([](auto &told) { told.reason = u"отказ"_s; })
                            << QStringList{name + u"reason\n  - отказ\n  + отказ 17"_s};
    QTest::newRow("reference") << 2 << changed([](auto &told) { told.reference = u"4711"_s; })
                               << QStringList{name + u"reference\n  - 4711\n  + 4712"_s};
    QTest::newRow("the last row of a message tells")
        << 1 << RecordedOutcome{u"delivered"_s, u"none"_s, 201, u""_s, u"4713"_s} << QStringList();
    QTest::newRow("no row") << 3 << second
                            << QStringList{u"message 3 of type loya is not in the journal"_s};
}

void TestScenarioCheck::journal()
{
    QFETCH(int, id);
    QFETCH(RecordedOutcome, told);
    QTEST(journalFindings({written(id, told)}, rig::readJournal(file)), "findings");
}

void TestScenarioCheck::onlyGivenMembersAreCompared()
{
    WrittenMessage untried;
    untried.id = 17;
    untried.message.type = u"loya"_s;
    QCOMPARE(
        journalFindings({written(2, {.verdict = u"dropped"_s}), untried}, rig::readJournal(file)),
        QStringList());
    untried.id = 2;
    QCOMPARE(journalFindings({untried}, rig::readJournal(file)),
             QStringList{u"message 2 of type loya is in the journal"_s});
}

void TestScenarioCheck::withoutAJournal()
{
    QVERIFY(rig::readJournal(file + u".away"_s).isEmpty());
    QVERIFY_THROWS_EXCEPTION(Error, rig::readJournal(till.write(u"/broken.db"_s, "no database")));
}

QTEST_GUILESS_MAIN(TestScenarioCheck)
#include "tst_scenariocheck.moc"
