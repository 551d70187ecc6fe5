#include "shared/core/paths.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestPaths : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void cleanup() { qunsetenv("QUEUE_ROOT"); }
    void aTillSetsNoRoot();
    void belowTheRoot();
    void filesOfTheService();
};

void TestPaths::aTillSetsNoRoot()
{
    qunsetenv("QUEUE_ROOT");
    QCOMPARE(rootedPath(u"/tallocash/cash/queue/ids.json"_s), u"/tallocash/cash/queue/ids.json"_s);
    qputenv("QUEUE_ROOT", "");
    QCOMPARE(rootedPath(u"/tmp/a.pem"_s), u"/tmp/a.pem"_s);
}

void TestPaths::belowTheRoot()
{
    qputenv("QUEUE_ROOT", "/home/касса");
    QCOMPARE(rootedPath(u"/tmp/a.pem"_s), u"/home/касса/tmp/a.pem"_s);
}

void TestPaths::filesOfTheService()
{
    qputenv("QUEUE_ROOT", "/till");
    QCOMPARE(startIdsFile(), u"/till/tallocash/cash/queue/ids.json"_s);
    QCOMPARE(journalFile(), u"/till/tallocash/cash/queue/journal.db"_s);
    QCOMPARE(serviceLockFile(), u"/till/tallocash/cash/queue/queue.lock"_s);
}

QTEST_GUILESS_MAIN(TestPaths)
#include "tst_paths.moc"
