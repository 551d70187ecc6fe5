#include "shared/core/paths.h"
#include "tests/faults/clocklibrary.h"
#include "tests/faults/databaserun.h"
#include "tests/faults/form.h"
#include "tests/faults/privatemounts.h"
#include "tests/support/journalreader.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cerrno>
#include <cstring>

using namespace Qt::StringLiterals;
using faults::Run;

namespace {

const QByteArray notWritten = u" не записывается ("_s.toUtf8();
const QByteArray writtenAgain = u" снова записывается"_s.toUtf8();
const QByteArray damaged = u" повреждён ("_s.toUtf8();

bool canMount = false;

/// A till whose queue is not in the folder of the journal, so that faults of that folder affect
/// only the journal.
struct JournalRun
{
    explicit JournalRun(const QString &settings = {})
        : run(u"[database]\nname = %1\n"_s.arg(place.filePath(u"queues.db"_s)) + settings)
    {
    }

    QStringList rows(const QString &statement) const { return rowsOf(journalFile(), statement); }
    qint64 count() const
    {
        if (!QFile::exists(journalFile()))
            return 0;
        return rows(u"SELECT COUNT(*) FROM outcome WHERE verdict = 'delivered'"_s)
            .value(0)
            .toLongLong();
    }
    bool waitForRows(qint64 wanted)
    {
        return run.wait([&] { return count() >= wanted; });
    }
    QByteArrayList warnings() const
    {
        QByteArrayList result;
        for (const QByteArray &line : run.service.output().split('\n')) {
            if (line.contains(" [journal] ") && !line.contains(" INFO "))
                result.append(line);
        }
        return result;
    }

    QTemporaryDir place;
    Run run;
};

} // namespace

/// Whatever happens to the delivery journal, the messages of eight types are delivered, one line
/// warns, and the outcomes are recorded after the fault.
class TestJournalFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readOnlyFolder();
    void diskFull();
    void lockedByAnotherProgram();
    void damagedFile();
    void clockSetBack();
    void manyRows();
    void killed();
};

void TestJournalFaults::readOnlyFolder()
{
    JournalRun till;
    till.run.service.obeyFileRights();
    const QString folder = QFileInfo(journalFile()).path();
    QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
    const int messages = 400;
    till.run.write(messages);
    till.run.start();
    const bool isDrained = till.run.drain();
    const bool isTold =
        till.run.wait([&] { return till.run.service.output().contains(notWritten); });
    QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QVERIFY(isDrained);
    QVERIFY(isTold);
    QVERIFY(till.waitForRows(messages));
    till.run.finish("journal's folder read-only");
    QCOMPARE(till.warnings().size(), 1);
    QCOMPARE(till.run.service.output().count(writtenAgain), 1);
}

void TestJournalFaults::diskFull()
{
    if (!canMount)
        QSKIP("neither root nor this user may mount a small file system here");
    JournalRun till;
    const QByteArray folder = QFile::encodeName(QFileInfo(journalFile()).path());
    QVERIFY2(::mount("none", folder.constData(), "tmpfs", 0, "size=1m") == 0, std::strerror(errno));
    {
        const int before = 80;
        till.run.write(before);
        till.run.start();
        QVERIFY(till.waitForRows(before));
        QFile filler(QFile::decodeName(folder) + u"/filler"_s);
        QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        const QByteArray page(4096, 'x');
        while (filler.write(page) == page.size()) {
        }
        const int meanwhile = 800;
        till.run.write(meanwhile);
        QVERIFY(till.run.drain());
        QVERIFY(till.run.wait([&] { return till.run.service.output().contains(notWritten); }));
        QVERIFY(filler.remove());
        QVERIFY(till.waitForRows(before + meanwhile));
        till.run.finish("journal's disk full");
        QCOMPARE(till.warnings().size(), 1);
        QCOMPARE(till.rows(u"PRAGMA integrity_check"_s), QStringList{u"ok"_s});
    }
    QCOMPARE(::umount2(folder.constData(), MNT_DETACH), 0);
}

void TestJournalFaults::lockedByAnotherProgram()
{
    JournalRun till;
    till.run.write(8);
    till.run.start();
    QVERIFY(till.waitForRows(8));
    {
        QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
        other.setDatabaseName(journalFile());
        QVERIFY(other.open());
        QVERIFY(QSqlQuery(other).exec(u"BEGIN IMMEDIATE"_s));
        till.run.write(400);
        QVERIFY(till.run.drain());
        QVERIFY(till.run.wait([&] { return till.run.service.output().contains(notWritten); }));
        QVERIFY(QSqlQuery(other).exec(u"ROLLBACK"_s));
    }
    QSqlDatabase::removeDatabase(u"other"_s);
    QVERIFY(till.waitForRows(408));
    // Also until the end of the service, which does not wait for the lock.
    {
        QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
        other.setDatabaseName(journalFile());
        QVERIFY(other.open());
        QVERIFY(QSqlQuery(other).exec(u"BEGIN IMMEDIATE"_s));
        till.run.finish("journal locked");
    }
    QSqlDatabase::removeDatabase(u"other"_s);
    QCOMPARE(till.warnings().size(), 1);
}

void TestJournalFaults::damagedFile()
{
    JournalRun till;
    QFile content(journalFile());
    QVERIFY(content.open(QIODevice::WriteOnly));
    content.write(QByteArray(64 * 1024, 'x'));
    content.close();
    till.run.write(400);
    till.run.start();
    QVERIFY(till.run.drain());
    QVERIFY(till.waitForRows(400));
    till.run.finish("journal damaged");
    QCOMPARE(till.warnings().size(), 1);
    QVERIFY(till.warnings().first().contains(damaged));
    const QDir folder = QFileInfo(journalFile()).dir();
    QCOMPARE(folder.entryList({u"journal.db.damaged-*"_s}, QDir::Files).size(), 1);
}

void TestJournalFaults::clockSetBack()
{
    const QString library = faults::clockLibrary();
    if (library.isEmpty())
        QSKIP("libfaketime is not installed (scripts/install-packages): the clock was not set");
    if (faults::isSanitized())
        QSKIP("A sanitizer and libfaketime cannot share a process: the clock was not set");
    JournalRun till(u"[journal]\nrows = 1000\n"_s);
    const auto setClock = [&](const QByteArray &offset) {
        QFile file(till.place.filePath(u"clock"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(offset);
    };
    setClock("+0");
    for (const auto &[name, value] : {
             std::pair{u"LD_PRELOAD"_s, QStringLiteral(TRUESLEEP " ") + library},
             {u"FAKETIME_TIMESTAMP_FILE"_s, till.place.filePath(u"clock"_s)},
             {u"FAKETIME_NO_CACHE"_s, u"1"_s},
             {u"FAKETIME_DONT_FAKE_MONOTONIC"_s, u"1"_s},
             {u"DONT_FAKE_MONOTONIC"_s, u"1"_s},
         })
        till.run.service.setVariable(name, value);
    till.run.write(800);
    till.run.start();
    QVERIFY(till.waitForRows(800));
    setClock("-1y");
    till.run.write(800);
    QVERIFY(till.run.drain());
    const QString newest = u"SELECT COUNT(*) FROM outcome WHERE messageid > 800"_s;
    QVERIFY(till.run.wait([&] { return till.rows(newest) == QStringList{u"800"_s}; }));
    QVERIFY(till.run.wait([&] { return till.count() == 1000; }));
    QCOMPARE(till.rows(newest), QStringList{u"800"_s});
    till.run.finish("clock set back a year");
    QCOMPARE(till.warnings().size(), 0);
}

/// Like a file without a limit so far. It is pruned in portions, during the deliveries.
void TestJournalFaults::manyRows()
{
    constexpr qint64 rows = 1'000'000;
    JournalRun till;
    till.run.write(8);
    till.run.start();
    QVERIFY(till.waitForRows(8));
    till.run.finish("journal begun");
    const QStringList filled = till.rows(
        u"WITH RECURSIVE number(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM number WHERE n < %1) "
        "INSERT INTO outcome (messageid, type, card, reference, verdict, kind, status, text, "
        "attempts, first, last, milliseconds) SELECT -n, 'loya', '', 'r' || n, 'delivered', 'none', "
        "200, '', 1, first, last, 5 FROM number, (SELECT MAX(first) AS first, MAX(last) AS last FROM "
        "outcome)"_s.arg(rows));
    QCOMPARE(filled, QStringList());
    const int messages = 400;
    till.run.write(messages);
    till.run.start();
    QVERIFY(till.run.drain());
    const QString ours = u"SELECT COUNT(*) FROM outcome WHERE messageid > 8"_s;
    QVERIFY(
        till.run.wait([&] { return till.rows(ours) == QStringList{QString::number(messages)}; }));
    QVERIFY(till.run.wait([&] { return till.count() < rows; }));
    till.run.finish("journal of 1,000,000 rows");
    QCOMPARE(till.warnings().size(), 0);
    QCOMPARE(till.rows(ours), QStringList{QString::number(messages)});
    const qint64 left = till.count();
    QVERIFY2(left > rows / 2, qPrintable(QString::number(left)));
}

/// Outcomes from before the last but one write are on disk.
void TestJournalFaults::killed()
{
    const int kills = faults::count(3, 30);
    const QString counts = u"SELECT count FROM total ORDER BY type, verdict, kind"_s;
    JournalRun till;
    for (int kill = 0; kill < kills; ++kill) {
        till.run.write(faults::count(600, 2'000));
        // Outcomes that were in memory at the last kill have no record.
        const QList<int> waiting = till.run.database.ids();
        till.run.start();
        QVERIFY(till.run.waitForRequests(100));
        const QList<int> left = till.run.database.ids();
        for (int write = 0; write < 2; ++write) {
            const QStringList before = till.rows(counts);
            till.run.write(8);
            QVERIFY(till.run.wait([&] { return till.rows(counts) != before; }));
        }
        till.run.service.kill();
        ++till.run.kills;
        const QStringList recorded =
            till.rows(u"SELECT messageid FROM outcome WHERE verdict = 'delivered'"_s);
        const QSet<QString> known(recorded.cbegin(), recorded.cend());
        QStringList missing;
        for (const int id : waiting) {
            if (!left.contains(id) && !known.contains(QString::number(id)))
                missing.append(QString::number(id));
        }
        QVERIFY2(missing.isEmpty(), qPrintable(missing.join(u' ')));
        QCOMPARE(till.rows(u"PRAGMA integrity_check"_s), QStringList{u"ok"_s});
    }
    till.run.write(8);
    till.run.start();
    till.run.finish("journal's service killed");
    QVERIFY(till.warnings().isEmpty());
}

int main(int argc, char **argv)
{
    canMount = faults::separateMounts();
    QCoreApplication application(argc, argv);
    TestJournalFaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_journalfaults.moc"
