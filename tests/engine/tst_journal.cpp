#include "engine/journal.h"
#include "tests/support/journalreader.h"
#include "tests/support/logcapture.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using http::FailureKind;

namespace {

/// Much longer than a test runs.
constexpr auto never = std::chrono::milliseconds(std::chrono::hours(1));
constexpr JournalTiming soon{10ms, 20ms};

Outcome attempt(int id, Verdict verdict = Verdict::Delivered)
{
    Outcome outcome;
    outcome.id = id;
    outcome.type = u"cardlab"_s;
    outcome.verdict = verdict;
    outcome.kind = verdict == Verdict::Kept ? FailureKind::Network : FailureKind::None;
    outcome.begun = QDateTime::currentDateTimeUtc();
    return outcome;
}

} // namespace

class TestJournal : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void firstOutcomeIsWrittenAtOnce();
    void laterOutcomesAreWrittenTogether();
    void manyAreWrittenEarlier();
    void rowsAreLimited();
    void endWritesWhatIsLeft();
    void endWithoutOutcomesLeavesNoFile();
    void manyWorkers();
    void factsAreWrittenAtIntervals();
    void factIsWrittenAgainAfterItsInterval();
    void unwritableFileIsReportedOnce();
    void memoryIsBounded();
    void attemptsOfOneMessageTakeOneEntry();
    void lossIsReportedAtTheEnd();
    void damagedFileIsPutAside();
    void damagedFileThatCannotBePutAsideIsLeft();
    void damagedFileThatCannotBeRenamed();
    void damagedFileIsPutAsideAgainLater();
    void batchOfTotalsAlone();
    void talliesOfTwoBatches_data();
    void talliesOfTwoBatches();

private:
    void damage() const
    {
        QFile content(path);
        QVERIFY(content.open(QIODevice::WriteOnly | QIODevice::Truncate));
        content.write(QByteArray(8192, 'x'));
    }
    QStringList damagedFiles() const { return QDir(folder->path()).entryList({u"*.damaged-*"_s}); }

    void begin(const JournalTiming &timing, const JournalLimits &limits = {})
    {
        journal = std::make_unique<Journal>(path, limits, timing);
    }
    QStringList rows(const QString &statement) const { return rowsOf(path, statement); }
    qint64 count() const
    {
        return QFile::exists(path) ? rows(u"SELECT COUNT(*) FROM outcome"_s).value(0).toLongLong()
                                   : 0;
    }

    std::unique_ptr<QTemporaryDir> folder;
    QString path;
    std::unique_ptr<Journal> journal;
};

void TestJournal::init()
{
    journal.reset();
    folder = std::make_unique<QTemporaryDir>();
    path = folder->filePath(u"journal.db"_s);
}

void TestJournal::firstOutcomeIsWrittenAtOnce()
{
    begin({never, never});
    journal->take(attempt(1));
    QTRY_COMPARE(count(), 1);
}

/// One transaction per second, regardless of the number of messages.
void TestJournal::laterOutcomesAreWrittenTogether()
{
    begin({never, never});
    journal->take(attempt(1));
    QTRY_COMPARE(count(), 1);
    for (int id = 2; id < 900; ++id)
        journal->take(attempt(id));
    // If they had been waited for, they would be written with the next ones.
    QCOMPARE(count(), 1);
    journal.reset();
    QCOMPARE(count(), 899);
}

void TestJournal::manyAreWrittenEarlier()
{
    begin({never, never});
    journal->take(attempt(0));
    QTRY_COMPARE(count(), 1);
    for (int id = 1; id <= 1000; ++id)
        journal->take(attempt(id));
    QTRY_VERIFY(count() >= 1001);
}

void TestJournal::rowsAreLimited()
{
    begin(soon, {.rows = 5});
    for (int id = 1; id <= 20; ++id)
        journal->take(attempt(id));
    QTRY_COMPARE(rows(u"SELECT MIN(messageid), MAX(messageid) FROM outcome"_s),
                 QStringList{u"16 20"_s});
}

void TestJournal::endWritesWhatIsLeft()
{
    begin({never, never});
    journal->take(attempt(1));
    QTRY_COMPARE(count(), 1);
    journal->take(attempt(2));
    journal.reset();
    QCOMPARE(count(), 2);
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files), QStringList{u"journal.db"_s});
}

void TestJournal::endWithoutOutcomesLeavesNoFile()
{
    begin(soon);
    journal.reset();
    QVERIFY(QDir(folder->path()).isEmpty());
}

void TestJournal::manyWorkers()
{
    constexpr int workers = 8;
    constexpr int messages = 100;
    begin(soon);
    std::vector<std::thread> threads;
    for (int worker = 0; worker < workers; ++worker) {
        threads.emplace_back([this, worker] {
            for (int i = 0; i < messages; ++i) {
                const int id = worker * messages + i;
                journal->take(attempt(id, Verdict::Kept));
                journal->note({u"clock"_s, QString::number(worker), u"0"_s, {}});
                journal->take(attempt(id));
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    journal.reset();
    QCOMPARE(rows(u"SELECT COUNT(*), MIN(attempts), MAX(attempts) FROM outcome"_s),
             QStringList{u"800 2 2"_s});
    QCOMPARE(rows(u"SELECT count FROM total"_s), (QStringList{u"800"_s, u"800"_s}));
    QCOMPARE(rows(u"SELECT COUNT(*) FROM fact"_s), QStringList{u"8"_s});
}

void TestJournal::factsAreWrittenAtIntervals()
{
    begin(soon);
    journal->note({u"clock"_s, u"a"_s, u"1"_s, {}});
    QTRY_VERIFY(QFile::exists(path) && !rows(u"SELECT value FROM fact"_s).isEmpty());
    journal->note({u"clock"_s, u"a"_s, u"2"_s, {}});
    journal->note({u"certificate"_s, u"a"_s, u"3"_s, {}});
    journal.reset();
    QCOMPARE(rows(u"SELECT name, value FROM fact ORDER BY name"_s),
             (QStringList{u"certificate 3"_s, u"clock 1"_s}));
}

void TestJournal::factIsWrittenAgainAfterItsInterval()
{
    JournalTiming timing = soon;
    timing.factInterval = 0ms;
    begin(timing);
    journal->note({u"clock"_s, u"a"_s, u"1"_s, {}});
    QTRY_VERIFY(QFile::exists(path) && !rows(u"SELECT value FROM fact"_s).isEmpty());
    journal->note({u"clock"_s, u"a"_s, u"2"_s, {}});
    QTRY_COMPARE(rows(u"SELECT value FROM fact"_s), QStringList{u"2"_s});
}

/// A folder instead of the file: even root cannot write to it.
void TestJournal::unwritableFileIsReportedOnce()
{
    const LogCapture log(u"journal"_s);
    QVERIFY(QDir().mkdir(path));
    begin(soon);
    journal->take(attempt(1));
    QTRY_COMPARE(log.lines().size(), 1);
    QCOMPARE(log.lines().first(),
             u"WARN Журнал доставки '%1' не записывается (это не обычный файл), доставка "
             "продолжается, запись повторяется каждые 0 сек."_s.arg(path));
    journal->take(attempt(2));
    QTest::qWait(200);
    QCOMPARE(log.lines().size(), 1);
    QVERIFY(QDir().rmdir(path));
    QTRY_COMPARE(count(), 2);
    QTRY_COMPARE(log.lines().size(), 2);
    QCOMPARE(log.lines().last(), u"INFO Журнал доставки '%1' снова записывается"_s.arg(path));
}

void TestJournal::memoryIsBounded()
{
    const LogCapture log(u"journal"_s);
    QVERIFY(QDir().mkdir(path));
    begin(soon);
    constexpr int messages = 50'000;
    for (int id = 1; id <= messages; ++id)
        journal->take(attempt(id));
    QTRY_VERIFY(!log.lines().isEmpty());
    QVERIFY(QDir().rmdir(path));
    QTRY_VERIFY(log.lines().size() >= 3);
    journal.reset();
    const qint64 written = count();
    QVERIFY2(written <= 4000, qPrintable(QString::number(written)));
    // Entries that waited until the file was writable again may get a separate line.
    const QString loss = u"WARN Попыток доставки, не попавших в журнал доставки: "_s;
    qint64 lost = 0;
    for (const QString &line : log.lines()) {
        if (line.startsWith(loss))
            lost += line.sliced(loss.size()).toLongLong();
    }
    QCOMPARE(lost, messages - written);
    // The totals include all of them.
    QCOMPARE(rows(u"SELECT count FROM total"_s), QStringList{QString::number(messages)});
}

void TestJournal::attemptsOfOneMessageTakeOneEntry()
{
    JournalBatch batch;
    for (int round = 0; round < 40; ++round) {
        for (int id = 1; id <= 100; ++id)
            batch.add(attempt(id, Verdict::Kept));
    }
    QCOMPARE(batch.shorten(4000), 0);
    QCOMPARE(batch.tried.size(), 4000U);
    // The newest messages are left out, with all of their attempts.
    QCOMPARE(batch.shorten(90), 10 * 40);
    QCOMPARE(batch.tried.size(), 90U);
    for (const TriedMessage &tried : batch.tried)
        QCOMPARE(tried.attempts, 40);
}

void TestJournal::lossIsReportedAtTheEnd()
{
    QVERIFY(QDir().mkdir(path));
    for (const int messages : {1, 3}) {
        const LogCapture log(u"journal"_s);
        begin(soon);
        for (int id = 1; id <= messages; ++id)
            journal->take(attempt(id));
        journal.reset();
        QCOMPARE(log.lines().size(), 2);
        QCOMPARE(log.lines().last(),
                 u"WARN Попыток доставки, не попавших в журнал доставки: %1"_s.arg(messages));
    }
}

void TestJournal::damagedFileIsPutAside()
{
    const LogCapture log(u"journal"_s);
    QFile content(path);
    QVERIFY(content.open(QIODevice::WriteOnly));
    content.write(QByteArray(8192, 'x'));
    content.close();
    begin(soon);
    journal->take(attempt(1));
    QTRY_VERIFY(QDir(folder->path()).entryList({u"*.damaged-*"_s}).size() == 1);
    journal.reset();
    QCOMPARE(count(), 1);
    QCOMPARE(log.lines().size(), 1);
    const QString kept =
        folder->filePath(QDir(folder->path()).entryList({u"*.damaged-*"_s}).first());
    QVERIFY2(log.lines().first().startsWith(u"WARN Журнал доставки '%1' повреждён ("_s.arg(path))
                 && log.lines().first().endsWith(
                     u"), он сохранён под именем '%1', начат новый"_s.arg(kept)),
             qPrintable(log.lines().first()));
}

/// A disk that damages every file is not filled with damaged files.
void TestJournal::damagedFileThatCannotBePutAsideIsLeft()
{
    const LogCapture log(u"journal"_s);
    begin(soon);
    damage();
    journal->take(attempt(1));
    QTRY_COMPARE(log.lines().size(), 1);
    QTRY_COMPARE(count(), 1);
    QVERIFY(QFile::remove(path));
    damage();
    journal->take(attempt(2));
    QTRY_COMPARE(log.lines().size(), 2);
    QVERIFY2(log.lines().last().contains(u"не записывается"_s), qPrintable(log.lines().last()));
    QCOMPARE(damagedFiles().size(), 1);
}

/// Its name is so long that what would be appended is too much for the file system.
void TestJournal::damagedFileThatCannotBeRenamed()
{
    path = folder->filePath(QString(245, u'j'));
    const LogCapture log(u"journal"_s);
    damage();
    begin(soon);
    journal->take(attempt(1));
    QTRY_COMPARE(log.lines().size(), 1);
    QVERIFY2(log.lines().first().contains(u"не записывается"_s), qPrintable(log.lines().first()));
    QCOMPARE(QFileInfo(path).size(), 8192);
    QCOMPARE(damagedFiles(), QStringList());

    QVERIFY(QFile::remove(path));
    QTRY_COMPARE(count(), 1);
}

void TestJournal::damagedFileIsPutAsideAgainLater()
{
    const LogCapture log(u"journal"_s);
    JournalTiming timing = soon;
    timing.puttingAsideInterval = 0ms;
    begin(timing);
    for (int time = 1; time <= 2; ++time) {
        QFile::remove(path);
        damage();
        journal->take(attempt(time));
        QTRY_COMPARE(log.lines().size(), time);
        QTRY_COMPARE(count(), 1);
    }
    QCOMPARE(damagedFiles().size(), 2);
}

/// The rows did not fit into memory, and their totals count.
void TestJournal::batchOfTotalsAlone()
{
    JournalBatch batch;
    QVERIFY(batch.isEmpty());
    batch.types[u"cardlab"_s].add(attempt(1));
    QVERIFY(!batch.isEmpty());
    JournalBatch facts;
    facts.facts.insert({u"clock"_s, u"a"_s}, {u"clock"_s, u"a"_s, u"1"_s, {}});
    QVERIFY(!facts.isEmpty());
}

void TestJournal::talliesOfTwoBatches_data()
{
    QTest::addColumn<QList<Verdict>>("first");
    QTest::addColumn<QList<Verdict>>("second");
    QTest::addColumn<int>("failingSince");
    QTest::addColumn<int>("lastDelivered");
    constexpr auto delivered = Verdict::Delivered;
    constexpr auto dropped = Verdict::Dropped;
    constexpr auto kept = Verdict::Kept;
    using Verdicts = QList<Verdict>;
    QTest::newRow("delivered") << Verdicts{delivered} << Verdicts{delivered} << 0 << 2;
    QTest::newRow("fails since before") << Verdicts{kept} << Verdicts{kept} << 1 << 0;
    QTest::newRow("begins to fail") << Verdicts{delivered} << Verdicts{kept} << 2 << 1;
    QTest::newRow("works again") << Verdicts{kept} << Verdicts{delivered} << 0 << 2;
    QTest::newRow("fails after one that passed")
        << Verdicts{kept} << Verdicts{delivered, kept} << 3 << 2;
    QTest::newRow("one passed before") << Verdicts{delivered, kept} << Verdicts{kept} << 2 << 1;
    QTest::newRow("a drop ends it as well") << Verdicts{kept} << Verdicts{dropped} << 0 << 0;
    QTest::newRow("a drop is no delivery") << Verdicts{delivered} << Verdicts{dropped} << 0 << 1;
}

/// The attempts happen one after another, a millisecond apart. What comes together in two batches
/// must come to the same as in one.
void TestJournal::talliesOfTwoBatches()
{
    QFETCH(QList<Verdict>, first);
    QFETCH(QList<Verdict>, second);
    qint64 time = 0;
    TypeTally whole;
    const auto tallyOf = [&](const QList<Verdict> &verdicts) {
        TypeTally tally;
        for (const Verdict verdict : verdicts) {
            Outcome outcome = attempt(1, verdict);
            outcome.begun = QDateTime::fromMSecsSinceEpoch(++time, QTimeZone::utc());
            tally.add(outcome);
            whole.add(outcome);
        }
        return tally;
    };
    JournalBatch batch;
    batch.types.insert(u"cardlab"_s, tallyOf(first));
    JournalBatch later;
    later.types.insert(u"cardlab"_s, tallyOf(second));
    later.types.insert(u"heineken"_s, {});
    batch.add(std::move(later));

    const TypeTally tally = batch.types.value(u"cardlab"_s);
    QTEST(static_cast<int>(tally.failingSince), "failingSince");
    QTEST(static_cast<int>(tally.lastDelivered), "lastDelivered");
    QCOMPARE(tally.counts, whole.counts);
    QCOMPARE(tally.failingSince, whole.failingSince);
    QCOMPARE(tally.lastDelivered, whole.lastDelivered);
    QCOMPARE(tally.isFinishing, whole.isFinishing);
    QVERIFY(batch.types.contains(u"heineken"_s));
}

QTEST_GUILESS_MAIN(TestJournal)
#include "tst_journal.moc"
