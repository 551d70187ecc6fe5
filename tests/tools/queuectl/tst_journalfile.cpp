#include "engine/journalstore.h"
#include "tests/tools/queuectl/journalfixture.h"
#include "tools/queuectl/journalfile.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

using State = JournalFile::State;

/// The delivery journal, read while a service may write it.
class TestJournalFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void readsWhatIsThere();
    void readsWhatTheServiceWrites();
    void filters_data();
    void filters();
    void newestOfSeveralMessages();
    void lastKept();
    void endedToday();
    void streaksAndFacts();
    void wholeUntilPruned();
    void readsWhileTheServiceWrites();
    void leavesNothingBehind();
    void unreadable_data();
    void unreadable();
    void damagedPage();
    void strangeValues();
    void plansUseIndexes_data();
    void plansUseIndexes();
    void countsAlongAnIndex();

private:
    QList<int> ids(const JournalFilter &filter)
    {
        QList<int> result;
        const auto entries = JournalFile(fixture->file()).entries(filter);
        for (const JournalEntry &entry : entries)
            result.append(entry.id);
        return result;
    }

    std::unique_ptr<QTemporaryDir> folder;
    std::unique_ptr<JournalFixture> fixture;
};

void TestJournalFile::init()
{
    fixture.reset();
    // A path with characters that separate the parts of a URL.
    folder = std::make_unique<QTemporaryDir>(QDir::tempPath() + u"/100% of #?XXXXXX"_s);
    QVERIFY(folder->isValid());
    fixture = std::make_unique<JournalFixture>(folder->path());
}

void TestJournalFile::readsWhatIsThere()
{
    fixture->put({.id = 17,
                  .type = u"cardlab"_s,
                  .verdict = u"kept"_s,
                  .kind = u"service"_s,
                  .status = 503,
                  .text = u"token=abc, сервер занят"_s,
                  .reference = u"4711 12"_s,
                  .card = u"****0017"_s,
                  .attempts = 3,
                  .secondsAgo = 100,
                  .spanSeconds = 50,
                  .milliseconds = 250});
    JournalFile journal(fixture->file());
    QCOMPARE(journal.state(), State::Read);
    QCOMPARE(journal.why(), QString());
    const QList<JournalEntry> entries = journal.entries(JournalFilter());
    QCOMPARE(entries.size(), 1);
    const JournalEntry entry = entries.first();
    QCOMPARE(entry.number, 1);
    QCOMPARE(entry.first.secsTo(entry.last), 50);
    QCOMPARE(qRound(entry.last.msecsTo(QDateTime::currentDateTime()) / 10'000.0), 10);
    const QJsonObject record = entry.toJson();
    QCOMPARE(record.keys(), (QStringList{u"attempts"_s, u"card"_s, u"first"_s, u"id"_s, u"kind"_s,
                                         u"last"_s, u"milliseconds"_s, u"reference"_s, u"status"_s,
                                         u"text"_s, u"type"_s, u"verdict"_s}));
    QCOMPARE(record.value(u"id"_s), QJsonValue(17));
    QCOMPARE(record.value(u"verdict"_s), QJsonValue(u"kept"_s));
    QCOMPARE(record.value(u"kind"_s), QJsonValue(u"service"_s));
    QCOMPARE(record.value(u"status"_s), QJsonValue(503));
    QCOMPARE(record.value(u"text"_s), QJsonValue(u"token=***, сервер занят"_s));
    QCOMPARE(record.value(u"milliseconds"_s), QJsonValue(250));
    QCOMPARE(QDateTime::fromString(record.value(u"last"_s).toString(), Qt::ISODateWithMs),
             entry.last);
}

/// The service's own store creates and fills the file.
void TestJournalFile::readsWhatTheServiceWrites()
{
    const QString path = folder->filePath(u"made.db"_s);
    const QDateTime begun = QDateTime::currentDateTimeUtc().addSecs(-5);
    const Outcome outcome{.id = 17,
                          .type = u"heineken"_s,
                          .card = u"****0017"_s,
                          .reference = u"4711"_s,
                          .verdict = Verdict::Kept,
                          .kind = http::FailureKind::Service,
                          .status = 503,
                          .text = u"занято"_s,
                          .begun = begun,
                          .took = std::chrono::milliseconds(250)};
    JournalBatch batch;
    batch.add(outcome);
    batch.types[outcome.type].add(outcome);
    const ::Fact fact{
        .name = u"clock"_s, .subject = u"a.example"_s, .value = u"5"_s, .time = begun};
    batch.facts.insert({fact.name, fact.subject}, fact);
    JournalStore store(path);
    store.write(batch);
    for (const bool isOpen : {true, false}) {
        if (!isOpen)
            store.close();
        JournalFile journal(path);
        QCOMPARE(journal.why(), QString());
        const QList<JournalEntry> entries = journal.entries(JournalFilter());
        QCOMPARE(entries.size(), 1);
        QCOMPARE(entries.first().id, 17);
        QCOMPARE(entries.first().card, u"****0017"_s);
        QCOMPARE(entries.first().verdict, u"kept"_s);
        QCOMPARE(entries.first().kind, u"service"_s);
        QCOMPARE(entries.first().first.toMSecsSinceEpoch(), begun.toMSecsSinceEpoch());
        QCOMPARE(entries.first().milliseconds, 250);
        QVERIFY(journal.streaks().value(u"heineken"_s).failingSince.isValid());
        QCOMPARE(journal.facts(u"clock"_s).size(), 1);
    }
}

void TestJournalFile::filters_data()
{
    QTest::addColumn<JournalFilter>("filter");
    QTest::addColumn<QList<int>>("wanted");
    const QDateTime now = QDateTime::currentDateTime();
    QTest::newRow("all, newest first") << JournalFilter{} << QList<int>{5, 4, 3, 2, 1};
    QTest::newRow("id") << JournalFilter{.id = 3} << QList<int>{3};
    QTest::newRow("type") << JournalFilter{.type = u"cardlab"_s} << QList<int>{5, 2};
    QTest::newRow("end of a card") << JournalFilter{.card = u"0017"_s} << QList<int>{4, 1};
    QTest::newRow("whole card") << JournalFilter{.card = u"77001234560017"_s} << QList<int>{4, 1};
    QTest::newRow("two digits") << JournalFilter{.card = u"18"_s} << QList<int>{2};
    QTest::newRow("reference") << JournalFilter{.reference = u"4711"_s} << QList<int>{3, 2};
    QTest::newRow("a wild card is a letter")
        << JournalFilter{.reference = u"4%1"_s} << QList<int>{};
    QTest::newRow("verdict") << JournalFilter{.verdict = u"dropped"_s} << QList<int>{3};
    QTest::newRow("since") << JournalFilter{.since = now.addSecs(-250)} << QList<int>{5, 4};
    QTest::newRow("until") << JournalFilter{.until = now.addSecs(-250)} << QList<int>{3, 2, 1};
    QTest::newRow("one more than the limit") << JournalFilter{.limit = 2} << QList<int>{5, 4, 3};
    QTest::newRow("several") << JournalFilter{.type = u"cardlab"_s,
                                              .since = now.addSecs(-450),
                                              .limit = 1}
                             << QList<int>{5, 2};
    QTest::newRow("id of another type")
        << JournalFilter{.id = 3, .type = u"cardlab"_s} << QList<int>{};
    QTest::newRow("quotes are letters") << JournalFilter{.type = u"' OR 1=1 --"_s} << QList<int>{};
}

void TestJournalFile::filters()
{
    QFETCH(const JournalFilter, filter);
    fixture->put({.id = 1, .card = u"****0017"_s, .secondsAgo = 500});
    fixture->put({.id = 2,
                  .type = u"cardlab"_s,
                  .reference = u"4711 88"_s,
                  .card = u"****0018"_s,
                  .secondsAgo = 400});
    fixture->put(
        {.id = 3, .verdict = u"dropped"_s, .reference = u"/orders/4711"_s, .secondsAgo = 300});
    fixture->put({.id = 4, .verdict = u"kept"_s, .card = u"****0017"_s, .secondsAgo = 200});
    fixture->put({.id = 5, .type = u"cardlab"_s, .secondsAgo = 100});
    QTEST(ids(filter), "wanted");
}

void TestJournalFile::newestOfSeveralMessages()
{
    fixture->put({.id = 1, .text = u"of a table that is gone"_s, .secondsAgo = 900});
    fixture->put({.id = 1, .text = u"now"_s, .secondsAgo = 90});
    fixture->put({.id = 2, .type = u"cardlab"_s});
    fixture->put({.id = 3, .text = u"third"_s});
    JournalFile journal(fixture->file());
    const auto found = journal.newest(u"heineken"_s, {1, 2, 3, 4});
    QCOMPARE(found.size(), 2);
    QCOMPARE(found.value(1).text, u"now"_s);
    QCOMPARE(found.value(3).text, u"third"_s);
    QVERIFY(journal.newest(u"heineken"_s, {}).isEmpty());
}

void TestJournalFile::lastKept()
{
    fixture->put({.id = 1, .verdict = u"kept"_s, .text = u"first"_s, .secondsAgo = 90});
    fixture->put({.id = 2, .verdict = u"kept"_s, .text = u"second"_s, .secondsAgo = 60});
    fixture->put({.id = 3, .secondsAgo = 30});
    fixture->put({.id = 4, .type = u"cardlab"_s, .verdict = u"kept"_s, .secondsAgo = 10});
    JournalFile journal(fixture->file());
    const auto kept = journal.lastKept(u"heineken"_s);
    QVERIFY(kept);
    QCOMPARE(kept->text, u"second"_s);
    QVERIFY(!journal.lastKept(u"loya"_s));
}

void TestJournalFile::endedToday()
{
    for (int i = 1; i <= 3; ++i)
        fixture->put({.id = i, .secondsAgo = 100});
    fixture->put({.id = 4, .verdict = u"dropped"_s, .secondsAgo = 100});
    fixture->put({.id = 5, .verdict = u"kept"_s, .secondsAgo = 100});
    fixture->put({.id = 6, .type = u"cardlab"_s, .verdict = u"dropped"_s, .secondsAgo = 100});
    fixture->put({.id = 7, .secondsAgo = 5000});
    JournalFile journal(fixture->file());
    const auto ended = journal.ended(QDateTime::currentDateTime().addSecs(-1000));
    QCOMPARE(ended.value(u"heineken"_s).delivered, 3);
    QCOMPARE(ended.value(u"heineken"_s).dropped, 1);
    QCOMPARE(ended.value(u"cardlab"_s).delivered, 0);
    QCOMPARE(ended.value(u"cardlab"_s).dropped, 1);
}

void TestJournalFile::streaksAndFacts()
{
    fixture->streak(u"heineken"_s, 0, 600);
    fixture->fact(u"clock"_s, u"b.example"_s, u"-42"_s, 60);
    fixture->fact(u"clock"_s, u"a.example"_s, u"7"_s, 60);
    fixture->fact(u"certificate"_s, u"/c.pem"_s, u"1"_s, 60);
    JournalFile journal(fixture->file());
    const Streak streak = journal.streaks().value(u"heineken"_s);
    QVERIFY(!streak.lastDelivered.isValid());
    QVERIFY(streak.failingSince.isValid());
    const auto facts = journal.facts(u"clock"_s);
    QCOMPARE(facts.size(), 2);
    QCOMPARE(facts.first().subject, u"a.example"_s);
    QCOMPARE(facts.last().value, u"-42"_s);
}

void TestJournalFile::wholeUntilPruned()
{
    QVERIFY(JournalFile(fixture->file()).isWhole());
    fixture->put({.id = 1});
    fixture->put({.id = 2});
    QVERIFY(JournalFile(fixture->file()).isWhole());
    fixture->fact(u"pruned"_s, u""_s, u""_s, 60);
    QVERIFY(!JournalFile(fixture->file()).isWhole());
}

void TestJournalFile::readsWhileTheServiceWrites()
{
    fixture->put({.id = 1});
    // The writer's transaction is open, and its rows must not be visible.
    fixture->run(u"BEGIN IMMEDIATE"_s);
    fixture->put({.id = 2});
    QCOMPARE(ids({}), QList<int>{1});
    fixture->run(u"COMMIT"_s);
    QCOMPARE(ids({}), (QList<int>{2, 1}));
}

void TestJournalFile::leavesNothingBehind()
{
    fixture->put({.id = 1});
    fixture->close();
    const QDir home = QFileInfo(fixture->file()).dir();
    QCOMPARE(home.entryList(QDir::Files), QStringList{u"journal.db"_s});
    QCOMPARE(ids({}), QList<int>{1});
    QCOMPARE(home.entryList(QDir::Files), QStringList{u"journal.db"_s});
}

void TestJournalFile::unreadable_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("statement");
    QTest::addColumn<State>("state");
    QTest::addColumn<QString>("reason");
    const QByteArray whole;
    QTest::newRow("a newer version")
        << whole << u"PRAGMA user_version = 2"_s << State::Newer << u"newer version"_s;
    QTest::newRow("a newer version without our tables")
        << whole << u"PRAGMA user_version = 9; DROP TABLE outcome"_s << State::Newer
        << u"newer version"_s;
    QTest::newRow("no table") << whole << u"DROP TABLE streak"_s << State::Damaged
                              << u"no such table: streak"_s;
    QTest::newRow("text")
        << QByteArray("not a database at all, but long enough for a header. ").repeated(100)
        << QString() << State::Damaged << u"not a database"_s;
    QTest::newRow("empty") << QByteArray("") << QString() << State::Damaged << u"no such table"_s;
}

void TestJournalFile::unreadable()
{
    QFETCH(const QByteArray, content);
    QFETCH(const QString, statement);
    QFETCH(const QString, reason);
    fixture->put({.id = 1});
    for (const QString &part : statement.split(u';', Qt::SkipEmptyParts))
        fixture->run(part);
    fixture->close();
    if (!content.isNull()) {
        QFile file(fixture->file());
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(content);
    }
    JournalFile journal(fixture->file());
    QTEST(journal.state(), "state");
    QVERIFY2(journal.why().contains(reason), qPrintable(journal.why()));
    QVERIFY(journal.why().contains(fixture->file()));
    QVERIFY(journal.entries(JournalFilter()).isEmpty());
    QVERIFY(journal.streaks().isEmpty());
    QVERIFY(!journal.oldest());
    QVERIFY(!journal.isWhole());
}

void TestJournalFile::damagedPage()
{
    fixture->run(u"BEGIN"_s);
    for (int i = 1; i <= 2000; ++i)
        fixture->put({.id = i, .text = u"text"_s.repeated(20)});
    fixture->run(u"COMMIT"_s);
    fixture->close();
    QFile file(fixture->file());
    QVERIFY(file.open(QIODevice::ReadWrite));
    // The header and the schema stay as they are.
    file.seek(8192);
    file.write(QByteArray(file.size() - 8192, '\xff'));
    file.close();
    JournalFile journal(fixture->file());
    journal.entries(JournalFilter());
    journal.oldest();
    QCOMPARE(journal.state(), State::Damaged);
    QVERIFY2(journal.why().contains(u"malformed"_s), qPrintable(journal.why()));
    // Asked again, it stays silent.
    QVERIFY(journal.entries(JournalFilter()).isEmpty());
}

void TestJournalFile::strangeValues()
{
    fixture->run(u"INSERT INTO outcome VALUES (7, 'x', X'00ff', 5, '', 'gone', '', -1, "
                 "'a' || char(0) || 'b', -3, -9223372036854775808, 9223372036854775807, -1)"_s);
    JournalFile journal(fixture->file());
    const QList<JournalEntry> entries = journal.entries(JournalFilter());
    QCOMPARE(entries.size(), 1);
    QCOMPARE(entries.first().id, 0);
    QCOMPARE(entries.first().card, u"5"_s);
    QVERIFY(!entries.first().last.isValid());
    QVERIFY(entries.first().toJson().value(u"last"_s).isNull());
    QCOMPARE(journal.state(), State::Read);
}

void TestJournalFile::plansUseIndexes_data()
{
    QTest::addColumn<JournalFilter>("filter");
    QTest::addColumn<QString>("index");
    const QDateTime day = QDateTime::currentDateTime();
    QTest::newRow("nothing") << JournalFilter{.limit = 50} << u"outcome_last"_s;
    QTest::newRow("id") << JournalFilter{.id = 17} << u"outcome_message"_s;
    QTest::newRow("id and type") << JournalFilter{.id = 17, .type = u"a"_s} << u"outcome_message"_s;
    QTest::newRow("id and time") << JournalFilter{.id = 17, .since = day} << u"outcome_message"_s;
    QTest::newRow("type") << JournalFilter{.type = u"a"_s} << u"outcome_last"_s;
    QTest::newRow("type and time")
        << JournalFilter{.type = u"a"_s, .since = day} << u"outcome_last"_s;
    QTest::newRow("time") << JournalFilter{.since = day, .until = day} << u"outcome_last"_s;
    QTest::newRow("card") << JournalFilter{.card = u"0017"_s} << u"outcome_last"_s;
    QTest::newRow("reference") << JournalFilter{.reference = u"4711"_s} << u"outcome_last"_s;
    QTest::newRow("verdict") << JournalFilter{.verdict = u"dropped"_s, .since = day}
                             << u"outcome_last"_s;
}

void TestJournalFile::plansUseIndexes()
{
    QFETCH(const JournalFilter, filter);
    QFETCH(const QString, index);
    const JournalStatement statement = historyStatement(filter);
    const QStringList plan = fixture->plan(statement.text, statement.values);
    const QString all = plan.join(u'\n');
    QVERIFY2(plan.first().contains(u"outcome USING INDEX %1"_s.arg(index)), qPrintable(all));
    // One message has few entries.
    if (filter.id == 0)
        QVERIFY2(!all.contains(u"TEMP B-TREE"_s), qPrintable(all));
    if (filter.id > 0 || filter.since.isValid())
        QVERIFY2(plan.first().startsWith(u"SEARCH"_s), qPrintable(all));
}

void TestJournalFile::countsAlongAnIndex()
{
    const JournalStatement statement = endedStatement(QDateTime::currentDateTime());
    const QStringList plan = fixture->plan(statement.text, statement.values);
    QVERIFY2(plan.first().startsWith(u"SEARCH outcome USING INDEX outcome_last"_s),
             qPrintable(plan.join(u'\n')));
}

QTEST_GUILESS_MAIN(TestJournalFile)
#include "tst_journalfile.moc"
