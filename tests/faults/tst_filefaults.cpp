#include "tests/faults/databaserun.h"
#include "tests/faults/form.h"
#include "tests/faults/privatemounts.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <cstring>
#include <sys/mount.h>

using namespace Qt::StringLiterals;
using faults::Run;

namespace {

bool canMount = false;

} // namespace

/// Faults of the embedded database's file while eight types are delivered.
class TestFileFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lockedByAnotherProcess();
    void readOnly();
    void diskFull();
};

/// Longer than a connection waits for the lock. Rows are read during that time, and none can be
/// deleted.
void TestFileFaults::lockedByAnotherProcess()
{
    Run run{QString()};
    run.write(faults::count(400, 4'000));
    // Fewer than the rows of a type. Without this limit the queue could be empty before the lock is
    // taken.
    run.traffic.holdAfter(faults::count(45, 450));
    run.start();
    const int rounds = faults::count(1, 5);
    for (int round = 0; round < rounds; ++round) {
        QVERIFY(run.waitUntilHeld(round));
        run.database.query(u"BEGIN EXCLUSIVE"_s);
        run.traffic.release();
        // The types notice one after another; one of them already fails at the till's card.
        const qsizetype wanted = run.service.output().count(faults::failedStatement)
                                 + faults::Traffic::types().size() / 2;
        const bool isMet =
            run.wait([&] { return run.service.output().count(faults::failedStatement) >= wanted; });
        if (round + 1 < rounds)
            run.traffic.holdAfter(0);
        run.database.query(u"ROLLBACK"_s);
        QVERIFY(isMet);
        run.write(faults::count(100, 400));
    }
    QCOMPARE(run.errorsCount(), 0);
    run.finish("locked");
    QCOMPARE(run.ends, 0);
}

void TestFileFaults::readOnly()
{
    Run run{QString()};
    run.service.obeyFileRights();
    run.write(faults::count(400, 4'000));
    run.traffic.holdAfter(45);
    run.start();
    QVERIFY(run.waitUntilHeld());
    const QDir folder = QFileInfo(run.database.file()).dir();
    QVERIFY(QFile::setPermissions(run.database.file(), QFile::ReadOwner));
    QVERIFY(QFile::setPermissions(folder.path(), QFile::ReadOwner | QFile::ExeOwner));
    // An open file stays writable, so only the next process of the service is affected.
    run.service.kill();
    ++run.kills;
    run.traffic.release();
    run.start();
    const bool isMet = run.wait([&] {
        return run.service.output().count(faults::failedStatement) >= faults::count(8, 80);
    });
    QVERIFY(QFile::setPermissions(folder.path(),
                                  QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QVERIFY(QFile::setPermissions(run.database.file(), QFile::ReadOwner | QFile::WriteOwner));
    QVERIFY(isMet);
    QCOMPARE(run.errorsCount(), 0);
    run.finish("read-only");
}

void TestFileFaults::diskFull()
{
    if (!canMount)
        QSKIP("neither root nor this user may mount a small file system here");
    QTemporaryDir place;
    QVERIFY2(::mount("none", QFile::encodeName(place.path()).constData(), "tmpfs", 0, "size=8m")
                 == 0,
             std::strerror(errno));
    {
        Run run(u"[database]\nname = %1/queues.db\n"_s.arg(place.path()));
        run.write(faults::count(1'500, 5'000));
        run.traffic.holdAfter(30);
        run.start();
        QVERIFY(run.waitUntilHeld());
        // While a reader sees an older state of the table, the write-ahead log cannot be reused
        // from its start.
        run.database.query(u"BEGIN"_s);
        run.database.ids();
        QFile filler(place.filePath(u"filler"_s));
        QVERIFY(filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        const QByteArray page(4096, 'x');
        while (filler.write(page) == page.size()) {
        }
        run.traffic.release();
        const qsizetype wanted = 2 * faults::Traffic::types().size();
        const bool isMet =
            run.wait([&] { return run.service.output().count(faults::failedStatement) >= wanted; });
        QVERIFY(filler.remove());
        run.database.query(u"COMMIT"_s);
        QVERIFY(isMet);
        QCOMPARE(run.errorsCount(), 0);
        run.finish("disk full");
        QCOMPARE(
            run.database.query(u"PRAGMA queues.integrity_check"_s).value(0).value(0).toString(),
            u"ok"_s);
    }
    QCOMPARE(::umount2(QFile::encodeName(place.path()).constData(), MNT_DETACH), 0);
}

int main(int argc, char **argv)
{
    canMount = faults::separateMounts();
    QCoreApplication application(argc, argv);
    TestFileFaults test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_filefaults.moc"
