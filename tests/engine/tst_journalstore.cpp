#include "engine/journalstore.h"

#include "engine/journalconnection.h"
#include "tests/support/journalreader.h"
#include "tests/support/realfunction.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

#include <cerrno>
#include <cstring>
#include <functional>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using http::FailureKind;

namespace {

/// stat() and lstat() fail for this path.
const char *unknownPath = nullptr;
/// The account that the system names; -1: the real one.
int account = -1;

bool isUnknown(const char *path)
{
    return unknownPath && std::strcmp(path, unknownPath) == 0;
}

} // namespace

// These replace the C library's functions in this process.
extern "C" int stat(const char *path, struct stat *status) noexcept
{
    static const auto next = realFunction<int(const char *, struct stat *)>("stat");
    if (!isUnknown(path))
        return next(path, status);
    errno = ESTALE;
    return -1;
}

extern "C" int lstat(const char *path, struct stat *status) noexcept
{
    static const auto next = realFunction<int(const char *, struct stat *)>("lstat");
    if (!isUnknown(path))
        return next(path, status);
    errno = ESTALE;
    return -1;
}

extern "C" uid_t geteuid() noexcept
{
    static const auto next = realFunction<uid_t()>("geteuid");
    return account < 0 ? next() : static_cast<uid_t>(account);
}

namespace {

const QDateTime morning = QDateTime::fromMSecsSinceEpoch(1'000'000'000, Qt::UTC);
const QString whole =
    u"SELECT messageid, type, card, reference, verdict, kind, status, text, attempts, first, last, "
    "milliseconds FROM outcome ORDER BY number"_s;

Outcome attempt(int id, Verdict verdict, const QDateTime &begun = morning)
{
    Outcome outcome;
    outcome.id = id;
    outcome.type = u"cardlab"_s;
    outcome.reference = u"4711"_s;
    outcome.verdict = verdict;
    outcome.kind = verdict == Verdict::Kept ? FailureKind::Network : FailureKind::None;
    outcome.begun = begun;
    return outcome;
}

JournalBatch batchOf(const QList<Outcome> &outcomes)
{
    JournalBatch batch;
    for (const Outcome &outcome : outcomes) {
        batch.add(outcome);
        batch.types[outcome.type].add(outcome);
    }
    return batch;
}

int syncs = 0;

} // namespace

// SQLite finds these before those of the system.

extern "C" int fsync(int file)
{
    static const auto next = realFunction<int(int)>("fsync");
    ++syncs;
    return next(file);
}

extern "C" int fdatasync(int file)
{
    static const auto next = realFunction<int(int)>("fdatasync");
    ++syncs;
    return next(file);
}

class TestJournalStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void rowHoldsTheOutcome();
    void schemaHasItsVersion();
    void attemptsOfOneMessageAreOneRow_data();
    void attemptsOfOneMessageAreOneRow();
    void attemptsAfterAReopeningAreTheSameRow();
    void attemptsInOneBatchAreOneRow();
    void totalsAreNeverReduced();
    void streaks_data();
    void streaks();
    void factsAreReplaced();
    void ageIsLimited();
    void rowsAreLimited();
    void keptMessagesArePrunedLast();
    void clockThatWasSetBackKeepsTheNewest();
    void pruningIsDoneInSlices();
    void pruningThatFailsIsRepeated();
    void emptiedFileShrinks();
    void groupCanReadTheFile();
    void fileOfRootGetsTheFoldersOwner();
    void folderOfUnknownOwner();
    void missingFolder();
    void linkIsNotFollowed();
    void fileOfUnknownKind();
    void closedFileIsOne();
    void fileThatIsReadAtTheEndKeepsItsLog();
    void deletedFileBeginsAgain();
    void replacedFileIsSound();
    void replacedFileWithItsOwnLogIsSound();
    void damageIsReported_data();
    void damageIsReported();
    void damagedFileIsPutAside();
    void newerFileIsLeft();
    void fileOfAnotherProgramIsLeft();
    void missingFileIsAFault();
    void refusedStatementIsAFault();
    void lockedFileIsAFault();
    void faultLosesNothingOfTheBatch();
    void syncsAreFew();

private:
    void write(const QList<Outcome> &outcomes) { file->write(batchOf(outcomes)); }
    QStringList rows(const QString &statement) const { return rowsOf(path, statement); }
    /// The fault of the call; "no fault" without one.
    static QString faultOf(const std::function<void()> &call, bool *isDamage = nullptr);

    std::unique_ptr<QTemporaryDir> folder;
    QString path;
    std::unique_ptr<JournalStore> file;
};

void TestJournalStore::init()
{
    file.reset();
    folder = std::make_unique<QTemporaryDir>();
    path = folder->filePath(u"journal.db"_s);
    file = std::make_unique<JournalStore>(path);
}

QString TestJournalStore::faultOf(const std::function<void()> &call, bool *isDamage)
{
    try {
        call();
    } catch (const JournalFault &fault) {
        if (isDamage)
            *isDamage = fault.isDamage();
        return fault.tr().ru();
    }
    return u"no fault"_s;
}

void TestJournalStore::rowHoldsTheOutcome()
{
    Outcome outcome;
    outcome.id = 17;
    outcome.type = u"raiffeisensbp"_s;
    outcome.card = u"****0017"_s;
    outcome.reference = u"A-1"_s;
    outcome.verdict = Verdict::Dropped;
    outcome.kind = FailureKind::None;
    outcome.status = 200;
    outcome.text = u"отклонено"_s;
    outcome.begun = morning;
    outcome.took = 1234ms;
    write({outcome});
    QCOMPARE(rows(whole), QStringList{u"17 raiffeisensbp ****0017 A-1 dropped none 200 отклонено 1 "
                                      "1000000000 1000000000 1234"_s});
    // An absent value is empty, not NULL.
    write({Outcome{.id = 18, .type = u"cardlab"_s, .begun = morning}});
    QCOMPARE(rows(u"SELECT card || reference || text || '!' FROM outcome WHERE messageid = 18"_s),
             QStringList{u"!"_s});
}

void TestJournalStore::schemaHasItsVersion()
{
    write({attempt(1, Verdict::Delivered)});
    QCOMPARE(rows(u"PRAGMA user_version"_s), QStringList{u"1"_s});
    QCOMPARE(rows(u"PRAGMA journal_mode"_s), QStringList{u"wal"_s});
    QCOMPARE(rows(u"SELECT name FROM sqlite_master WHERE name NOT LIKE 'sqlite%' ORDER BY name"_s),
             (QStringList{u"fact"_s, u"outcome"_s, u"outcome_kept"_s, u"outcome_last"_s,
                          u"outcome_message"_s, u"streak"_s, u"total"_s}));
}

void TestJournalStore::attemptsOfOneMessageAreOneRow_data()
{
    QTest::addColumn<QList<Outcome>>("attempts");
    QTest::addColumn<QStringList>("rows");
    const auto kept = attempt(5, Verdict::Kept);
    const auto with = [](Outcome outcome, const std::function<void(Outcome &)> &change) {
        change(outcome);
        return outcome;
    };
    const auto later = [](Verdict verdict, std::chrono::milliseconds after) {
        return attempt(5, verdict, morning.addMSecs(after.count()));
    };
    QTest::newRow("kept, then delivered") << QList{kept, later(Verdict::Delivered, 20s)}
                                          << QStringList{u"delivered 2 1000000000 1000020000"_s};
    QTest::newRow("delivered twice after a crash")
        << QList{attempt(5, Verdict::Delivered), later(Verdict::Delivered, 20s)}
        << QStringList{u"delivered 2 1000000000 1000020000"_s};
    QTest::newRow("the number is another message's the next day")
        << QList{attempt(5, Verdict::Delivered), later(Verdict::Delivered, 25h)}
        << QStringList{u"delivered 1 1000000000 1000000000"_s,
                       u"delivered 1 1090000000 1090000000"_s};
    QTest::newRow("kept for a month") << QList{kept, later(Verdict::Delivered, 720h)}
                                      << QStringList{u"delivered 2 1000000000 3592000000"_s};
    QTest::newRow("the clock was set back") << QList{kept, later(Verdict::Delivered, -48h)}
                                            << QStringList{u"delivered 2 1000000000 827200000"_s};
    const auto ended = u"kept 1 1000000000 1000000000"_s;
    QTest::newRow("another number")
        << QList{kept, with(kept, [](Outcome &o) { o.id = 4; })} << QStringList{ended, ended};
    QTest::newRow("another type") << QList{kept, with(kept, [](Outcome &o) { o.type = u"loya"_s; })}
                                  << QStringList{ended, ended};
    QTest::newRow("another card") << QList{kept,
                                           with(kept, [](Outcome &o) { o.card = u"****1"_s; })}
                                  << QStringList{ended, ended};
    QTest::newRow("another reference")
        << QList{kept, with(kept, [](Outcome &o) { o.reference = u"4712"_s; })}
        << QStringList{ended, ended};
    QTest::newRow("a reference only later")
        << QList{with(kept, [](Outcome &o) { o.reference.clear(); }), kept}
        << QStringList{u"kept 2 1000000000 1000000000"_s};
    QTest::newRow("a reference only at first")
        << QList{kept, with(kept, [](Outcome &o) { o.reference.clear(); })}
        << QStringList{u"kept 2 1000000000 1000000000"_s};
}

void TestJournalStore::attemptsOfOneMessageAreOneRow()
{
    QFETCH(QList<Outcome>, attempts);
    for (const Outcome &outcome : attempts)
        write({outcome});
    QTEST(rows(u"SELECT verdict, attempts, first, last FROM outcome ORDER BY number"_s), "rows");
    QCOMPARE(rows(u"SELECT DISTINCT reference FROM outcome WHERE number = 1"_s),
             QStringList{u"4711"_s});
}

void TestJournalStore::attemptsAfterAReopeningAreTheSameRow()
{
    write({attempt(5, Verdict::Kept)});
    file = std::make_unique<JournalStore>(path);
    write({attempt(5, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid, verdict, attempts FROM outcome"_s),
             QStringList{u"5 delivered 2"_s});
}

void TestJournalStore::attemptsInOneBatchAreOneRow()
{
    write({attempt(5, Verdict::Kept), attempt(6, Verdict::Delivered), attempt(5, Verdict::Kept)});
    QCOMPARE(rows(u"SELECT messageid, verdict, attempts FROM outcome ORDER BY number"_s),
             (QStringList{u"5 kept 2"_s, u"6 delivered 1"_s}));
}

void TestJournalStore::totalsAreNeverReduced()
{
    write({attempt(1, Verdict::Kept), attempt(1, Verdict::Kept), attempt(1, Verdict::Delivered)});
    write({attempt(2, Verdict::Kept), attempt(3, Verdict::Dropped)});
    file->prune({.rows = 0}, morning);
    QCOMPARE(rows(u"SELECT COUNT(*) FROM outcome"_s), QStringList{u"0"_s});
    QCOMPARE(rows(u"SELECT type, verdict, kind, count FROM total ORDER BY verdict"_s),
             (QStringList{u"cardlab delivered none 1"_s, u"cardlab dropped none 1"_s,
                          u"cardlab kept network 3"_s}));
}

void TestJournalStore::streaks_data()
{
    QTest::addColumn<QList<QList<int>>>("batches");
    QTest::addColumn<QString>("streak");
    // The n-th attempt begins n ms after the first; 1 is delivered, 0 kept, -1 dropped.
    const auto row = [](const char *name, const QList<QList<int>> &batches, const char *streak) {
        QTest::newRow(name) << batches << QString::fromLatin1(streak);
    };
    row("delivered", {{1}}, "1000000000 0");
    row("dropped", {{-1}}, "0 0");
    row("kept", {{0}}, "0 1000000000");
    row("kept on", {{0}, {0}}, "0 1000000000");
    row("delivered, kept", {{1, 0, 0}}, "1000000000 1000000001");
    row("delivered, kept, one after the other", {{1}, {0}, {0}}, "1000000000 1000000001");
    row("kept, delivered", {{0, 1}}, "1000000001 0");
    row("kept, delivered, one after the other", {{0}, {1}}, "1000000001 0");
    row("kept, dropped", {{0}, {-1}}, "0 0");
    row("kept, delivered, kept", {{0}, {1, 0}}, "1000000001 1000000002");
}

void TestJournalStore::streaks()
{
    QFETCH(QList<QList<int>>, batches);
    int id = 0;
    for (const QList<int> &results : batches) {
        QList<Outcome> outcomes;
        for (const int result : results) {
            const Verdict verdict = result == 1   ? Verdict::Delivered
                                    : result == 0 ? Verdict::Kept
                                                  : Verdict::Dropped;
            outcomes.append(attempt(id, verdict, morning.addMSecs(id)));
            ++id;
        }
        write(outcomes);
    }
    QTEST(rows(u"SELECT lastDelivered, failingSince FROM streak"_s).value(0), "streak");
}

void TestJournalStore::factsAreReplaced()
{
    const auto note = [this](const QString &subject, const QString &value, qint64 after) {
        JournalBatch batch;
        batch.facts.insert({u"clock"_s, subject},
                           {u"clock"_s, subject, value, morning.addMSecs(after)});
        file->write(batch);
    };
    note(u"a.example"_s, u"2"_s, 0);
    note(u"b.example"_s, u"3"_s, 1);
    note(u"a.example"_s, u"-7"_s, 2);
    QCOMPARE(rows(u"SELECT name, subject, value, time FROM fact ORDER BY subject"_s),
             (QStringList{u"clock a.example -7 1000000002"_s, u"clock b.example 3 1000000001"_s}));
}

void TestJournalStore::ageIsLimited()
{
    for (int day = 0; day < 5; ++day)
        write({attempt(day, Verdict::Delivered, morning.addDays(day))});
    QVERIFY(!file->prune({.age = std::chrono::days(5)}, morning.addDays(4)));
    QCOMPARE(rows(u"SELECT name FROM fact"_s), QStringList{});
    QVERIFY(file->prune({.age = std::chrono::days(2)}, morning.addDays(4)));
    QVERIFY(!file->prune({.age = std::chrono::days(2)}, morning.addDays(4)));
    // Readers of the journal know from this fact that it does not have every message.
    QCOMPARE(rows(u"SELECT name, time FROM fact"_s), QStringList{u"pruned 1345600000"_s});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"2"_s, u"3"_s, u"4"_s}));
}

void TestJournalStore::rowsAreLimited()
{
    for (int id = 0; id < 5; ++id)
        write({attempt(id, Verdict::Delivered)});
    QVERIFY(file->prune({.rows = 3}, morning));
    QVERIFY(!file->prune({.rows = 3}, morning));
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"2"_s, u"3"_s, u"4"_s}));
    // Also for rows that an earlier process has written.
    file = std::make_unique<JournalStore>(path);
    write({attempt(5, Verdict::Delivered)});
    file->prune({.rows = 3}, morning);
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"3"_s, u"4"_s, u"5"_s}));
}

void TestJournalStore::keptMessagesArePrunedLast()
{
    write({attempt(1, Verdict::Kept), attempt(2, Verdict::Delivered),
           attempt(3, Verdict::Delivered)});
    file->prune({.rows = 2}, morning);
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"1"_s, u"3"_s}));
    file->prune({.rows = 0}, morning);
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), QStringList{});
}

void TestJournalStore::clockThatWasSetBackKeepsTheNewest()
{
    for (int id = 0; id < 5; ++id)
        write({attempt(id, Verdict::Delivered, morning.addDays(-id))});
    file->prune({.rows = 2}, morning.addDays(-5));
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"3"_s, u"4"_s}));
}

void TestJournalStore::pruningIsDoneInSlices()
{
    constexpr int count = 5'000;
    QList<Outcome> outcomes;
    for (int id = 0; id < count; ++id)
        outcomes.append(attempt(id, Verdict::Delivered));
    write(outcomes);
    file = std::make_unique<JournalStore>(path);
    write({attempt(count, Verdict::Delivered)});
    int slices = 0;
    while (file->prune({.rows = 1000}, morning))
        ++slices;
    QCOMPARE(slices, 8);
    QCOMPARE(rows(u"SELECT COUNT(*), MIN(messageid) FROM outcome"_s), QStringList{u"1000 4001"_s});
}

void TestJournalStore::pruningThatFailsIsRepeated()
{
    for (int id = 0; id < 5; ++id)
        write({attempt(id, Verdict::Delivered)});
    rowsOf(path, u"CREATE TRIGGER refusal BEFORE DELETE ON outcome"
                 " BEGIN SELECT RAISE(ABORT, 'no'); END"_s);
    QCOMPARE(faultOf([this] { file->prune({.rows = 3}, morning); }), u"no"_s);
    QCOMPARE(rows(u"SELECT COUNT(*) FROM outcome"_s), QStringList{u"5"_s});
    rowsOf(path, u"DROP TRIGGER refusal"_s);
    QVERIFY(file->prune({.rows = 3}, morning));
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"2"_s, u"3"_s, u"4"_s}));
}

void TestJournalStore::emptiedFileShrinks()
{
    constexpr int count = 100'000;
    QList<Outcome> outcomes;
    for (int id = 0; id < count; ++id)
        outcomes.append(attempt(id, Verdict::Delivered));
    write(outcomes);
    file->close();
    const qint64 full = QFileInfo(path).size();
    write({attempt(count, Verdict::Delivered)});
    while (file->prune({.rows = 10}, morning)) {
    }
    for (int id = 1; id < 20; ++id) {
        write({attempt(count + id, Verdict::Delivered)});
        file->prune({.rows = 10}, morning);
    }
    file->close();
    // About 1000 free pages are left, for the rows to come.
    const qint64 left = QFileInfo(path).size();
    QVERIFY2(full > 8'000'000 && left > 1'000 * 4096 && left < 1'100 * 4096,
             qPrintable(u"%1 -> %2"_s.arg(full).arg(left)));
}

void TestJournalStore::groupCanReadTheFile()
{
    const mode_t mask = ::umask(0);
    write({attempt(1, Verdict::Delivered)});
    ::umask(mask);
    struct stat folderStatus = {};
    QCOMPARE(::stat(QFile::encodeName(folder->path()).constData(), &folderStatus), 0);
    for (const QString &ending : {u""_s, u"-wal"_s, u"-shm"_s}) {
        struct stat status = {};
        QCOMPARE(::stat(QFile::encodeName(path + ending).constData(), &status), 0);
        QCOMPARE(status.st_mode & 07777, 0640U);
        QCOMPARE(status.st_gid, folderStatus.st_gid);
    }
}

/// Otherwise the service could not write what a tool of root has created.
void TestJournalStore::fileOfRootGetsTheFoldersOwner()
{
    if (::geteuid() != 0)
        QSKIP("only root gives files away");
    constexpr uid_t nobody = 65534;
    QCOMPARE(::chown(QFile::encodeName(folder->path()).constData(), nobody, nobody), 0);
    const auto ownerOf = [](const QString &name) {
        struct stat status = {};
        ::stat(QFile::encodeName(name).constData(), &status);
        return std::pair(status.st_uid, status.st_gid);
    };
    write({attempt(1, Verdict::Delivered)});
    QCOMPARE(ownerOf(path), (std::pair{nobody, gid_t{nobody}}));

    const QString other = folder->filePath(u"other.db"_s);
    const auto restore = qScopeGuard([] { account = -1; });
    account = nobody;
    JournalStore(other).write(batchOf({attempt(1, Verdict::Delivered)}));
    QCOMPARE(ownerOf(other), (std::pair{uid_t{0}, gid_t{nobody}}));
}

void TestJournalStore::folderOfUnknownOwner()
{
    const QByteArray name = QFile::encodeName(folder->path());
    const auto restore = qScopeGuard([] { unknownPath = nullptr; });
    unknownPath = name.constData();
    write({attempt(1, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), QStringList{u"1"_s});
}

void TestJournalStore::missingFolder()
{
    JournalStore missing(folder->filePath(u"missing/journal.db"_s));
    bool isDamage = true;
    QCOMPARE(faultOf([&] { missing.write(batchOf({attempt(1, Verdict::Delivered)})); }, &isDamage),
             qt_error_string(ENOENT));
    QVERIFY(!isDamage);
}

void TestJournalStore::linkIsNotFollowed()
{
    const QString target = folder->filePath(u"target"_s);
    QVERIFY(QFile::link(target, path));
    QCOMPARE(faultOf([this] { write({attempt(1, Verdict::Delivered)}); }),
             u"это не обычный файл"_s);
    QVERIFY(!QFile::exists(target));
}

/// It was there when it should be created, and cannot be examined.
void TestJournalStore::fileOfUnknownKind()
{
    QVERIFY(QFile(path).open(QIODevice::WriteOnly));
    const QByteArray name = QFile::encodeName(path);
    const auto restore = qScopeGuard([] { unknownPath = nullptr; });
    unknownPath = name.constData();
    QCOMPARE(faultOf([this] { write({attempt(1, Verdict::Delivered)}); }),
             u"это не обычный файл"_s);
    unknownPath = nullptr;
    write({attempt(1, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), QStringList{u"1"_s});
}

void TestJournalStore::closedFileIsOne()
{
    write({attempt(1, Verdict::Delivered)});
    file->close();
    QCOMPARE(QDir(folder->path()).entryList(QDir::Files), QStringList{u"journal.db"_s});
    QCOMPARE(rows(u"PRAGMA journal_mode"_s), QStringList{u"delete"_s});
    write({attempt(2, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"1"_s, u"2"_s}));
}

void TestJournalStore::fileThatIsReadAtTheEndKeepsItsLog()
{
    write({attempt(1, Verdict::Delivered)});
    {
        QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
        other.setDatabaseName(path);
        QVERIFY(other.open());
        QSqlQuery reading(other);
        QVERIFY(reading.exec(u"SELECT messageid FROM outcome"_s) && reading.next());
        file->close();
        QVERIFY(QFile::exists(path + u"-wal"_s));
        QCOMPARE(reading.value(0), 1);
    }
    QSqlDatabase::removeDatabase(u"other"_s);
    QCOMPARE(rows(u"PRAGMA journal_mode"_s), QStringList{u"wal"_s});
    write({attempt(2, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"1"_s, u"2"_s}));
}

void TestJournalStore::deletedFileBeginsAgain()
{
    write({attempt(1, Verdict::Delivered)});
    QVERIFY(QFile::remove(path));
    write({attempt(2, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), QStringList{u"2"_s});
    QCOMPARE(rows(u"PRAGMA integrity_check"_s), QStringList{u"ok"_s});
}

void TestJournalStore::replacedFileIsSound()
{
    const QString other = folder->filePath(u"other.db"_s);
    {
        JournalStore otherFile(other);
        otherFile.write(batchOf({attempt(7, Verdict::Delivered)}));
    }
    write({attempt(1, Verdict::Delivered)});
    QVERIFY(QFile::remove(path));
    QVERIFY(QFile::rename(other, path));
    write({attempt(2, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"2"_s, u"7"_s}));
    QCOMPARE(rows(u"PRAGMA integrity_check"_s), QStringList{u"ok"_s});
}

/// A copy of a journal in use has its newest rows in the log.
void TestJournalStore::replacedFileWithItsOwnLogIsSound()
{
    const QString otherPath = folder->filePath(u"other.db"_s);
    JournalStore other(otherPath);
    other.write(batchOf({attempt(7, Verdict::Delivered)}));
    write({attempt(1, Verdict::Delivered)});
    for (const QString &ending : {u""_s, u"-wal"_s}) {
        QVERIFY(QFile::remove(path + ending));
        QVERIFY(QFile::copy(otherPath + ending, path + ending));
    }
    write({attempt(8, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"7"_s, u"8"_s}));
    QCOMPARE(rows(u"PRAGMA integrity_check"_s), QStringList{u"ok"_s});
}

void TestJournalStore::damageIsReported_data()
{
    QTest::addColumn<qint64>("from");
    QTest::newRow("no database at all") << qint64{0};
    QTest::newRow("tables damaged") << qint64{4096};
}

void TestJournalStore::damageIsReported()
{
    QFETCH(qint64, from);
    QList<Outcome> outcomes;
    for (int id = 0; id < 1000; ++id)
        outcomes.append(attempt(id, Verdict::Delivered));
    write(outcomes);
    file->close();
    QFile content(path);
    QVERIFY(content.open(QIODevice::ReadWrite));
    const qint64 size = content.size();
    QVERIFY(content.seek(from));
    content.write(QByteArray(size - from, '\x5a'));
    content.close();
    bool isDamage = false;
    QVERIFY(faultOf([this] { write({attempt(1, Verdict::Delivered)}); }, &isDamage) != u"no fault");
    QVERIFY(isDamage);
}

void TestJournalStore::damagedFileIsPutAside()
{
    QVERIFY(QFile(path).open(QIODevice::WriteOnly | QIODevice::NewOnly));
    QFile content(path);
    QVERIFY(content.open(QIODevice::WriteOnly));
    content.write(QByteArray(8192, 'x'));
    content.close();
    QVERIFY(faultOf([this] { write({attempt(1, Verdict::Delivered)}); }) != u"no fault");
    const QString kept = file->putAside();
    QVERIFY2(kept.startsWith(path + u".damaged-"_s), qPrintable(kept));
    QCOMPARE(QFileInfo(kept).size(), 8192);
    write({attempt(1, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), QStringList{u"1"_s});
}

void TestJournalStore::newerFileIsLeft()
{
    write({attempt(1, Verdict::Delivered)});
    file->close();
    rowsOf(path, u"PRAGMA user_version = 2"_s);
    bool isDamage = true;
    QCOMPARE(faultOf([this] { write({attempt(2, Verdict::Delivered)}); }, &isDamage),
             u"файл создан более новой версией службы"_s);
    QVERIFY(!isDamage);
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), QStringList{u"1"_s});
}

void TestJournalStore::fileOfAnotherProgramIsLeft()
{
    rowsOf(path, u"CREATE TABLE outcome (game TEXT)"_s);
    bool isDamage = true;
    QCOMPARE(faultOf([this] { write({attempt(1, Verdict::Delivered)}); }, &isDamage),
             u"table outcome already exists"_s);
    QVERIFY(!isDamage);
    QCOMPARE(rows(u"SELECT name FROM sqlite_master"_s), QStringList{u"outcome"_s});
}

void TestJournalStore::refusedStatementIsAFault()
{
    write({attempt(1, Verdict::Kept)});
    JournalConnection connection(path, 1s);
    const auto refused = [&connection](const char *statement) {
        bool isDamage = true;
        const QString text = faultOf([&] { connection.run(statement); }, &isDamage);
        return isDamage ? u"damage"_s : text;
    };
    const QString noColumn = u"no such column: absent"_s;
    QCOMPARE(refused("SELECT absent FROM outcome"), noColumn);
    QCOMPARE(
        faultOf([&] { JournalConnection::Statement(connection, "SELECT absent FROM outcome"); }),
        noColumn);
    // The first row is sound, the second is not.
    QCOMPARE(connection.run("SELECT value FROM json_each('[7, 8]')"), 7);
    QCOMPARE(refused("SELECT json_extract(value, '$') FROM json_each('[\"7\", \"{\"]')"),
             u"malformed JSON"_s);
}

/// It was deleted just before it is opened.
void TestJournalStore::missingFileIsAFault()
{
    bool isDamage = true;
    QCOMPARE(faultOf([this] { JournalConnection(path, 1s); }, &isDamage),
             u"unable to open database file"_s);
    QVERIFY(!isDamage);
    QVERIFY(!QFile::exists(path));
}

void TestJournalStore::lockedFileIsAFault()
{
    write({attempt(1, Verdict::Delivered)});
    {
        QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
        other.setDatabaseName(path);
        QVERIFY(other.open());
        QVERIFY(QSqlQuery(other).exec(u"BEGIN IMMEDIATE"_s));
        bool isDamage = true;
        QElapsedTimer timer;
        timer.start();
        QVERIFY(faultOf([this] { write({attempt(2, Verdict::Delivered)}); }, &isDamage)
                != u"no fault");
        QVERIFY(!isDamage);
        // Another program may hold the lock for a moment.
        QVERIFY2(timer.elapsed() >= 900, qPrintable(QString::number(timer.elapsed())));
    }
    QSqlDatabase::removeDatabase(u"other"_s);
    write({attempt(2, Verdict::Delivered)});
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"1"_s, u"2"_s}));
}

void TestJournalStore::faultLosesNothingOfTheBatch()
{
    write({attempt(1, Verdict::Delivered)});
    rowsOf(path, u"CREATE TRIGGER refusal BEFORE INSERT ON outcome WHEN NEW.messageid = 3"
                 " BEGIN SELECT RAISE(ABORT, 'no'); END"_s);
    const JournalBatch batch =
        batchOf({attempt(2, Verdict::Delivered), attempt(3, Verdict::Delivered)});
    QVERIFY(faultOf([&] { file->write(batch); }) != u"no fault");
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), QStringList{u"1"_s});
    QCOMPARE(rows(u"SELECT count FROM total"_s), QStringList{u"1"_s});
    rowsOf(path, u"DROP TRIGGER refusal"_s);
    file->write(batch);
    QCOMPARE(rows(u"SELECT messageid FROM outcome"_s), (QStringList{u"1"_s, u"2"_s, u"3"_s}));
    QCOMPARE(rows(u"SELECT count FROM total"_s), QStringList{u"3"_s});
}

/// Deliveries wait for the disk while it syncs.
void TestJournalStore::syncsAreFew()
{
    syncs = 0;
    write({attempt(1, Verdict::Delivered)});
    QCOMPARE(syncs, 0);
    file->close();
    syncs = 0;
    write({attempt(2, Verdict::Delivered)});
    // One change of the file, from now on with a write-ahead log, and the beginning of this log.
    QVERIFY2(syncs > 0 && syncs <= 6, qPrintable(QString::number(syncs)));
}

QTEST_GUILESS_MAIN(TestJournalStore)
#include "tst_journalstore.moc"
