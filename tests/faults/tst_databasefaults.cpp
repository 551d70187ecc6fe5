#include "rig/mariadbserver.h"
#include "tests/faults/databaserun.h"
#include "tests/faults/form.h"
#include "tests/faults/serverfaults.h"

#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;
using faults::Run;
using rig::MariaDbServer;

/// Faults of a database server while eight types are delivered.
class TestDatabaseFaults : public QObject
{
    Q_OBJECT

public:
    explicit TestDatabaseFaults(MariaDbServer &server)
        : server(server)
    {
    }

private Q_SLOTS:
    void stoppedForAWhile();
    void restartedUnderLoad_data();
    void restartedUnderLoad();
    void socketRemoved();
    void connectionsKilledOneByOne();
    void tableLocked();

private:
    MariaDbServer &server;
};

void TestDatabaseFaults::stoppedForAWhile()
{
    Run run(server.settings());
    run.write(faults::count(1'000, 5'000));
    run.start();
    QVERIFY(run.waitForRequests(50));
    server.stop();
    const bool isNoticed = run.wait([&] {
        return run.ends > 0 || run.service.output().contains(faults::lostDatabase);
    }) && run.waitForPolls(2);
    server.start();
    QVERIFY(isNoticed);
    run.finish("stopped, started");
}

void TestDatabaseFaults::restartedUnderLoad_data()
{
    QTest::addColumn<bool>("isOrderly");
    QTest::newRow("orderly") << true;
    QTest::newRow("power cut") << false;
}

void TestDatabaseFaults::restartedUnderLoad()
{
    QFETCH(bool, isOrderly);
    Run run(server.settings());
    const int restarts = faults::count(1, 20);
    for (int restart = 0; restart < restarts; ++restart) {
        run.traffic.holdAfter(30);
        run.write(400);
        if (restart == 0)
            run.start();
        QVERIFY(run.waitUntilHeld(restart));
        if (isOrderly)
            server.stop();
        else
            server.kill();
        run.traffic.release();
        server.start();
    }
    qInfo("%d restarts", restarts);
    run.finish(isOrderly ? "restarted in good order" : "restarted after a power cut");
    QVERIFY(run.ends + run.service.output().count(faults::failedStatement) > 0);
}

/// Open connections stay; new ones are refused.
void TestDatabaseFaults::socketRemoved()
{
    Run run(server.settings());
    run.start();
    QVERIFY(run.waitForPolls(1));
    run.write(faults::count(400, 4'000));
    QVERIFY(faults::moveSocket(server, true));
    const bool isNoticed = run.wait([&] { return run.ends >= 3; });
    QVERIFY(faults::moveSocket(server, false));
    QVERIFY(isNoticed);
    run.finish("socket removed");
}

void TestDatabaseFaults::connectionsKilledOneByOne()
{
    Run run(server.settings());
    run.start();
    const int wanted = faults::count(12, 200);
    int kills = 0;
    while (kills < wanted) {
        // There is always something in progress that a kill can interrupt.
        if (run.written - run.traffic.counts().messages < 400)
            run.write(800);
        QVERIFY(run.waitForRequests(5));
        const QByteArrayList ids = faults::connections(server);
        for (const QByteArray &id : ids) {
            faults::killConnection(server, id);
            ++kills;
        }
    }
    qInfo("%d connections killed", kills);
    run.finish("connections killed");
    QVERIFY(run.service.output().count(faults::failedStatement) > 0);
}

/// Longer than any statement takes, shorter than the time after which a server counts as gone.
void TestDatabaseFaults::tableLocked()
{
    const int seconds = faults::count(2, 10);
    Run run(server.settings());
    run.write(1'000);
    run.start();
    QVERIFY(run.waitForRequests(50));
    std::thread lock([&] {
        server.run(
            u"LOCK TABLES queues.message WRITE; SELECT SLEEP(%1); UNLOCK TABLES"_s.arg(seconds));
    });
    const bool isLocked = run.wait([&] {
        return server.run(
                   u"SELECT id FROM information_schema.processlist WHERE state = 'User sleep'"_s)
               != QByteArray();
    });
    const int before = run.traffic.counts().requests;
    lock.join();
    const int during = run.traffic.counts().requests - before;
    QVERIFY(isLocked);
    qInfo("table locked for %d s, %d requests while it was", seconds, during);
    run.finish("table locked");
    QVERIFY(during < 900);
    // All waited, and none failed.
    QCOMPARE(run.storeErrors(), QByteArrayList());
    QCOMPARE(run.ends, 0);
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    MariaDbServer server;
    TestDatabaseFaults test(server);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_databasefaults.moc"
