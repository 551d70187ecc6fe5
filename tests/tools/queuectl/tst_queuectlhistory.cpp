#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"
#include "tools/queuectl/failure.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QScopeGuard>
#include <QtTest>

using namespace Qt::StringLiterals;
using queuectl::ExitCode;

namespace {

const QMap<QString, QString> russian{{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}};

} // namespace

/// `queuectl history`: what became of messages.
class TestQueuectlHistory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void table();
    void tableInRussian();
    void jsonIsAnObjectALine();
    void filtersReachTheFile_data();
    void filtersReachTheFile();
    void oneMessage();
    void limits();
    void refusals_data();
    void refusals();
    void worksForOtherAccounts_data();
    void worksForOtherAccounts();
    void whatCannotBeRead_data();
    void whatCannotBeRead();
    void whenItIsSwitchedOff();
    void aMillionMessages();

private:
    QList<int> ids(const QStringList &arguments);

    std::unique_ptr<Till> till;
    std::unique_ptr<JournalFixture> journal;
};

void TestQueuectlHistory::init()
{
    journal.reset();
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    journal = std::make_unique<JournalFixture>(till->database.root());
}

QList<int> TestQueuectlHistory::ids(const QStringList &arguments)
{
    const CommandResult outcome =
        till->run(QStringList{u"history"_s} + arguments + QStringList{u"--json"_s});
    if (outcome.exitCode != ExitCode::Done)
        qWarning("%s", qPrintable(outcome.err));
    QList<int> result;
    for (const QString &line : outcome.out.split(u'\n', Qt::SkipEmptyParts))
        result.append(QJsonDocument::fromJson(line.toUtf8())[u"id"_s].toInt());
    return result;
}

void TestQueuectlHistory::table()
{
    journal->put({.id = 16, .type = u"cardlab"_s, .secondsAgo = 500});
    journal->put({.id = 17,
                  .verdict = u"kept"_s,
                  .kind = u"credentials"_s,
                  .status = 401,
                  .text = u"password=hush, нет доступа"_s,
                  .reference = u"4711"_s,
                  .card = u"****0017"_s,
                  .attempts = 3});
    const CommandResult outcome = till->run({u"history"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    const QStringList lines = outcome.out.split(u'\n');
    QVERIFY(lines[0].startsWith(u"Last"));
    for (const QString &part : {u"heineken"_s, u"kept (account or key refused)"_s, u" 3 "_s,
                                u"****0017"_s, u"4711"_s, u"HTTP 401, password=***, нет доступа"_s})
        QVERIFY2(lines[1].contains(part), qPrintable(lines[1]));
    QVERIFY2(lines[2].contains(u"cardlab") && lines[2].contains(u"delivered"),
             qPrintable(lines[2]));
}

void TestQueuectlHistory::tableInRussian()
{
    journal->put({.id = 16, .verdict = u"dropped"_s});
    const QString out = till->run({u"history"_s}, {}, russian).out;
    QVERIFY2(out.startsWith(u"Когда"_s) && out.contains(u"снято с доставки"_s), qPrintable(out));
    QVERIFY(
        till->run({u"history"_s, u"16"_s}, {}, russian).out.contains(u"сервис его не выполнил"));
    QVERIFY(
        till->run({u"history"_s, u"18"_s}, {}, russian).err.startsWith(u"Записи о сообщении 18"));
}

void TestQueuectlHistory::jsonIsAnObjectALine()
{
    journal->put({.id = 16, .secondsAgo = 500});
    journal->put({.id = 17, .text = u"одна\nдве строки"_s});
    const QString out = till->run({u"history"_s, u"--json"_s}).out;
    const QStringList lines = out.split(u'\n');
    QCOMPARE(lines.size(), 3);
    QCOMPARE(lines[2], QString());
    const QJsonObject record = QJsonDocument::fromJson(lines[0].toUtf8()).object();
    QCOMPARE(record.keys(),
             (QStringList{u"attempts"_s, u"card"_s, u"first"_s, u"host"_s, u"id"_s, u"kind"_s,
                          u"last"_s, u"milliseconds"_s, u"reference"_s, u"status"_s, u"text"_s,
                          u"time"_s, u"type"_s, u"verdict"_s, u"version"_s}));
    QCOMPARE(record.value(u"text"_s).toString(), u"одна\nдве строки"_s);
    QVERIFY(QDateTime::fromString(record.value(u"last"_s).toString(), Qt::ISODateWithMs).isValid());
    // For a program, no result prints nothing.
    const CommandResult none = till->run({u"history"_s, u"--verdict"_s, u"kept"_s, u"--json"_s});
    QCOMPARE(none.exitCode, ExitCode::Done);
    QCOMPARE(none.out, QString());
}

void TestQueuectlHistory::filtersReachTheFile_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QList<int>>("wanted");
    QTest::newRow("none") << QStringList{} << QList<int>{3, 2, 1};
    QTest::newRow("id") << QStringList{u"2"_s} << QList<int>{2};
    QTest::newRow("type") << QStringList{u"--type"_s, u"cardlab"_s} << QList<int>{2};
    QTest::newRow("card") << QStringList{u"--card"_s, u"0017"_s} << QList<int>{3, 1};
    QTest::newRow("reference") << QStringList{u"--reference"_s, u"4711"_s} << QList<int>{2};
    QTest::newRow("verdict") << QStringList{u"--verdict"_s, u"dropped"_s} << QList<int>{3};
    QTest::newRow("since") << QStringList{u"--since"_s, u"2h"_s} << QList<int>{3};
    QTest::newRow("until") << QStringList{u"--until"_s, u"2h"_s} << QList<int>{2, 1};
    QTest::newRow("both") << QStringList{u"--since"_s, u"5h"_s, u"--until"_s, u"2h"_s}
                          << QList<int>{2};
    QTest::newRow("a day") << QStringList{u"--until"_s, u"2001-02-03"_s} << QList<int>{};
    QTest::newRow("limit") << QStringList{u"--limit"_s, u"2"_s} << QList<int>{3, 2};
}

void TestQueuectlHistory::filtersReachTheFile()
{
    QFETCH(const QStringList, arguments);
    journal->put({.id = 1, .card = u"****0017"_s, .secondsAgo = 30'000});
    journal->put({.id = 2, .type = u"cardlab"_s, .reference = u"12 4711"_s, .secondsAgo = 10'000});
    journal->put({.id = 3, .verdict = u"dropped"_s, .card = u"****0017"_s, .secondsAgo = 100});
    QTEST(ids(arguments), "wanted");
}

void TestQueuectlHistory::oneMessage()
{
    journal->put({.id = 17, .text = u"прежнее"_s, .secondsAgo = 90'000});
    journal->put({.id = 17, .verdict = u"dropped"_s, .text = u"отказ"_s, .reference = u"4711"_s});
    const CommandResult outcome = till->run({u"history"_s, u"17"_s});
    const QStringList lines = outcome.out.trimmed().split(u'\n');
    QCOMPARE(lines.size(), 2);
    QVERIFY2(lines[0].startsWith(u"Message 17 (heineken, 4711) was dropped at "_s)
                 && lines[0].endsWith(u"at the first attempt; the service did not do what was "
                                      "asked: HTTP 200, отказ."_s),
             qPrintable(lines[0]));
    QVERIFY(lines[1].contains(u"was delivered at"));
    const CommandResult unknown = till->run({u"history"_s, u"18"_s});
    QCOMPARE(unknown.exitCode, ExitCode::NotFound);
    QCOMPARE(unknown.err, u"There is no record of message 18\n"_s);
}

void TestQueuectlHistory::limits()
{
    for (int id = 1; id <= 60; ++id)
        journal->put({.id = id, .secondsAgo = 100 - id});
    QCOMPARE(ids({}).size(), 50);
    const QString out = till->run({u"history"_s, u"--limit"_s, u"3"_s}).out;
    QCOMPARE(out.count(u'\n'), 5);
    QVERIFY2(out.endsWith(u"There are older ones: --limit 6, or --until\n"_s), qPrintable(out));
    QVERIFY(!till->run({u"history"_s, u"--limit"_s, u"60"_s}).out.contains(u"older ones"));
    QCOMPARE(ids({u"--limit"_s, u"2147483647"_s}).size(), 60);
}

void TestQueuectlHistory::refusals_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    QTest::newRow("id") << QStringList{u"x"_s} << int(ExitCode::Usage) << u"'x' is not a row id"_s;
    QTest::newRow("verdict") << QStringList{u"--verdict"_s, u"lost"_s} << int(ExitCode::Usage)
                             << u"delivered, dropped or kept"_s;
    QTest::newRow("empty verdict") << QStringList{u"--verdict"_s, u""_s} << int(ExitCode::Usage)
                                   << u"delivered, dropped or kept"_s;
    QTest::newRow("time") << QStringList{u"--since"_s, u"soon"_s} << int(ExitCode::Usage)
                          << u"--since takes today, yesterday"_s;
    QTest::newRow("limit") << QStringList{u"--limit"_s, u"0"_s} << int(ExitCode::Usage)
                           << u"--limit takes a whole number from 1 on"_s;
    QTest::newRow("a typing error in a type")
        << QStringList{u"--type"_s, u"heinekn"_s} << int(ExitCode::NotFound)
        << u"did you mean heineken?"_s;
}

void TestQueuectlHistory::refusals()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, reason);
    const CommandResult outcome = till->run(QStringList{u"history"_s} + arguments);
    QTEST(outcome.exitCode, "exitCode");
    QVERIFY2(outcome.err.contains(reason), qPrintable(outcome.err));
}

void TestQueuectlHistory::worksForOtherAccounts_data()
{
    QTest::addColumn<bool>("isServiceRunning");
    QTest::addColumn<bool>("mayWriteFiles");
    QTest::addColumn<bool>("mayReadFiles");
    QTest::newRow("member of the group, service runs") << true << true << true;
    QTest::newRow("member of the group, service is stopped") << false << true << true;
    QTest::newRow("may only read, service runs") << true << false << true;
    QTest::newRow("may only read, service is stopped") << false << false << true;
    QTest::newRow("may not read") << true << false << false;
}

void TestQueuectlHistory::worksForOtherAccounts()
{
    QFETCH(const bool, isServiceRunning);
    QFETCH(const bool, mayWriteFiles);
    QFETCH(const bool, mayReadFiles);
    journal->put({.id = 17});
    if (!isServiceRunning)
        journal->close();
    till->obeysFileRights = true;
    const QDir folder = QFileInfo(journal->file()).dir();
    const QStringList before = folder.entryList({u"journal.db*"_s}, QDir::Files);
    QCOMPARE(before.size(), isServiceRunning ? 3 : 1);
    if (!mayWriteFiles) {
        const QFile::Permissions rights =
            mayReadFiles ? QFile::Permissions(QFile::ReadOwner) : QFile::Permissions();
        for (const QString &name : before)
            QVERIFY(QFile::setPermissions(folder.filePath(name), rights));
    }
    const QFile::Permissions folderBefore = QFile::permissions(folder.path());
    QVERIFY(QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::ExeOwner));
    const auto reset = qScopeGuard([&] { QFile::setPermissions(folder.path(), folderBefore); });
    const CommandResult outcome = till->run({u"history"_s});
    if (mayReadFiles) {
        QVERIFY2(outcome.exitCode == ExitCode::Done && outcome.out.contains(u"heineken"),
                 qPrintable(outcome.err));
    } else {
        QCOMPARE(outcome.exitCode, ExitCode::Failed);
        QVERIFY2(
            outcome.err.startsWith(u"No rights: this account cannot read the delivery journal"),
            qPrintable(outcome.err));
    }
    QCOMPARE(folder.entryList({u"journal.db*"_s}, QDir::Files), before);
}

void TestQueuectlHistory::whatCannotBeRead_data()
{
    QTest::addColumn<QString>("what");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("translated");
    QTest::newRow("missing") << u"missing"_s << int(ExitCode::NotFound)
                             << u"There is no delivery journal yet; the service creates "_s
                             << u"Журнала доставки ещё нет"_s;
    QTest::newRow("damaged") << u"damaged"_s << int(ExitCode::Failed) << u"cannot be read: "_s
                             << u"не читается: "_s;
    QTest::newRow("newer") << u"newer"_s << int(ExitCode::Failed)
                           << u"was written by a newer version of the service"_s
                           << u"записан более новой версией службы"_s;
    QTest::newRow("locked") << u"locked"_s << int(ExitCode::Failed)
                            << u"is locked by another program"_s << u"занят другой программой"_s;
}

void TestQueuectlHistory::whatCannotBeRead()
{
    QFETCH(const QString, what);
    QFETCH(const int, exitCode);
    QFETCH(const QString, english);
    QFETCH(const QString, translated);
    journal->put({.id = 17});
    if (what == u"newer")
        journal->run(u"PRAGMA user_version = 2"_s);
    if (what == u"locked") {
        journal->run(u"PRAGMA locking_mode = EXCLUSIVE"_s);
        journal->run(u"PRAGMA journal_mode = DELETE"_s);
        journal->run(u"BEGIN EXCLUSIVE"_s);
        // Like the write-ahead log of a running service.
        till->write(u"/tallocash/cash/queue/journal.db-shm"_s, {});
    } else {
        journal->close();
    }
    if (what == u"missing")
        QVERIFY(QFile::remove(journal->file()));
    if (what == u"damaged")
        till->write(u"/tallocash/cash/queue/journal.db"_s, QByteArray(9000, 'x'));
    for (const QStringList &command :
         {QStringList{u"history"_s}, QStringList{u"history"_s, u"17"_s},
          QStringList{u"history"_s, u"--json"_s}}) {
        const CommandResult outcome = till->run(command);
        QCOMPARE(outcome.exitCode, exitCode);
        QVERIFY2(outcome.err.contains(english), qPrintable(outcome.err));
        QCOMPARE(outcome.out, QString());
    }
    const CommandResult outcome = till->run({u"history"_s}, {}, russian);
    QVERIFY2(outcome.err.contains(translated), qPrintable(outcome.err));
}

void TestQueuectlHistory::whenItIsSwitchedOff()
{
    journal->put({.id = 17});
    till->setSettings(u"[journal]\nenabled = no\n"_s);
    const QString out = till->run({u"history"_s}).out;
    QVERIFY2(out.contains(u"heineken") && out.contains(u"journal:enabled is off"), qPrintable(out));
    journal->close();
    QVERIFY(QFile::remove(journal->file()));
    QVERIFY(till->run({u"history"_s}).err.contains(u"journal:enabled is off"));
}

void TestQueuectlHistory::aMillionMessages()
{
    const qint64 now = QDateTime::currentMSecsSinceEpoch();
    journal->run(
        u"INSERT INTO outcome (messageid, type, card, reference, verdict, kind, status, text, attempts, "
        "first, last, milliseconds) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n "
        "WHERE i < 1000000) SELECT i, CASE i % 3 WHEN 0 THEN 'cardlab' ELSE 'heineken' END, '', "
        "'4711-' || i, 'delivered', 'none', 200, '', 1, ? - 1000000 + i, ? - 1000000 + i, 5 FROM n"_s,
        {now, now});
    QCOMPARE(ids({u"--limit"_s, u"2"_s}), (QList<int>{1'000'000, 999'999}));
    QCOMPARE(ids({u"123456"_s}), QList<int>{123'456});
    QCOMPARE(ids({u"--type"_s, u"cardlab"_s, u"--limit"_s, u"1"_s}), QList<int>{999'999});
    QCOMPARE(ids({u"--reference"_s, u"4711-1000"_s, u"--limit"_s, u"200"_s}).size(), 112);
    const QJsonObject status = till->run({u"status"_s, u"--json"_s}).json();
    // The last 1000 seconds may begin before midnight.
    QVERIFY(status.value(u"deliveredToday"_s).toInt() > 0);
    QVERIFY(till->run({u"doctor"_s}).out.contains(u"the service does not prune it"));
}

QTEST_GUILESS_MAIN(TestQueuectlHistory)
#include "tst_queuectlhistory.moc"
