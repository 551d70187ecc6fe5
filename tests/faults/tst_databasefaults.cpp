#include "tests/faults/databaserun.h"
#include "tests/faults/form.h"
#include "tests/support/mariadbserver.h"

#include <QFile>
#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;
using faults::Run;

/// What a database server can do to the service while eight types drain.
class TstDatabaseFaults : public QObject
{
    Q_OBJECT

public:
    explicit TstDatabaseFaults(MariaDbServer &server)
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
    void countersOfTheMainThread_data();
    void countersOfTheMainThread();

private:
    /// Ends one connection of the service, if it is still there.
    void killConnection(const QByteArray &id);
    QByteArrayList connections();
    void moveSocket(bool away);

    MariaDbServer &server;
};

void TstDatabaseFaults::killConnection(const QByteArray &id)
{
    server.run(
        u"DELIMITER //\nBEGIN NOT ATOMIC DECLARE CONTINUE HANDLER FOR 1094 BEGIN END; KILL %1; END//\n"_s
            .arg(QString::fromLatin1(id)));
}

QByteArrayList TstDatabaseFaults::connections()
{
    QByteArrayList ids =
        server
            .run(u"SELECT id FROM information_schema.processlist WHERE user = '%1'"_s.arg(
                server.user()))
            .split('\n');
    ids.removeAll(QByteArray());
    return ids;
}

void TstDatabaseFaults::moveSocket(bool away)
{
    const QString aside = server.socket() + u".aside"_s;
    QVERIFY(away ? QFile::rename(server.socket(), aside) : QFile::rename(aside, server.socket()));
}

void TstDatabaseFaults::stoppedForAWhile()
{
    Run run(server.settings());
    run.write(faults::count(1'000, 5'000));
    run.start();
    QVERIFY(run.waitForRequests(50));
    server.stop();
    const bool isNoticed = run.wait([&] {
        return run.ends > 0 || run.service.log().contains(faults::lostDatabase);
    }) && run.waitForPolls(2);
    server.start();
    QVERIFY(isNoticed);
    run.finish("stopped, started");
}

void TstDatabaseFaults::restartedUnderLoad_data()
{
    QTest::addColumn<bool>("isOrderly");
    QTest::newRow("orderly") << true;
    QTest::newRow("power cut") << false;
}

void TstDatabaseFaults::restartedUnderLoad()
{
    QFETCH(bool, isOrderly);
    Run run(server.settings());
    const int restarts = faults::count(1, 20);
    for (int restart = 0; restart < restarts; ++restart) {
        run.write(400);
        if (restart == 0)
            run.start();
        QVERIFY(run.waitForRequests(30));
        if (isOrderly)
            server.stop();
        else
            server.kill();
        server.start();
    }
    qInfo("%d restarts", restarts);
    run.finish(isOrderly ? "restarted in good order" : "restarted after a power cut");
    QVERIFY(run.ends + run.service.log().count(faults::failedStatement) > 0);
}

/// Connections that are there stay; those that begin now are refused.
void TstDatabaseFaults::socketRemoved()
{
    Run run(server.settings());
    run.start();
    QVERIFY(run.waitForPolls(1));
    run.write(faults::count(400, 4'000));
    moveSocket(true);
    const bool isNoticed = run.wait([&] { return run.ends >= 3; });
    moveSocket(false);
    QVERIFY(isNoticed);
    run.finish("socket removed");
}

void TstDatabaseFaults::connectionsKilledOneByOne()
{
    Run run(server.settings());
    run.start();
    const int wanted = faults::count(20, 200);
    int kills = 0;
    while (kills < wanted) {
        // There is always something under way that a kill can meet.
        if (run.written - run.traffic.counts().messages < 400)
            run.write(800);
        QVERIFY(run.waitForRequests(5));
        const QByteArrayList ids = connections();
        for (const QByteArray &id : ids) {
            killConnection(id);
            ++kills;
        }
    }
    qInfo("%d connections killed", kills);
    run.finish("connections killed");
    QVERIFY(run.service.log().count(faults::failedStatement) > 0);
}

/// Longer than any statement takes, shorter than the time after which a server counts as gone.
void TstDatabaseFaults::tableLocked()
{
    const int seconds = faults::count(3, 10);
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
    // Everybody waited, and nobody failed.
    QCOMPARE(run.storeErrors(), QByteArrayList());
    QCOMPARE(run.ends, 0);
}

void TstDatabaseFaults::countersOfTheMainThread_data()
{
    QTest::addColumn<QString>("fault");
    QTest::newRow("stopped for three polls") << u"stop"_s;
    QTest::newRow("connection killed") << u"kill"_s;
    QTest::newRow("socket removed") << u"socket"_s;
    QTest::newRow("table locked") << u"lock"_s;
}

/// With no rows there are no workers, so each error is one of the store that the control interface tells of.
void TstDatabaseFaults::countersOfTheMainThread()
{
    QFETCH(QString, fault);
    Run run(server.settings());
    // Those of this test go first, or they would be killed in place of the service's.
    const QByteArrayList own = connections();
    run.start();
    QVERIFY(run.waitForPolls(1));
    QCOMPARE(run.errorsCount(), 0);
    if (fault == u"stop") {
        server.stop();
        const bool isNoticed = run.waitForPolls(3);
        server.start();
        QVERIFY(isNoticed);
    } else if (fault == u"kill") {
        const QByteArrayList ids = connections();
        for (const QByteArray &id : ids) {
            if (!own.contains(id))
                killConnection(id);
        }
    } else if (fault == u"socket") {
        moveSocket(true);
        const bool isPolled = run.waitForPolls(2);
        moveSocket(false);
        QVERIFY(isPolled);
    } else {
        server.run(u"LOCK TABLES queues.message WRITE; SELECT SLEEP(2); UNLOCK TABLES"_s);
    }
    // The first of these finds the server again, the second one finds it well.
    QVERIFY(run.waitForPolls(2));

    const QByteArrayList errors = run.storeErrors();
    qInfo("%s: %d errors counted", qPrintable(fault), static_cast<int>(errors.size()));
    QCOMPARE(run.errorsCount(), static_cast<int>(errors.size()));
    if (fault == u"stop" || fault == u"kill") {
        // One for the statement, one for the probe, then one for each poll that could not connect.
        QVERIFY(errors.size() >= 2);
        QVERIFY2(errors.at(0).contains(faults::failedStatement), errors.at(0).constData());
        QVERIFY2(errors.at(1).contains(faults::lostDatabase), errors.at(1).constData());
        if (fault == u"kill")
            QCOMPARE(errors.size(), 2);
        for (const QByteArray &line : errors.mid(2))
            QVERIFY2(line.contains(u"Не удалось подключиться"_s.toUtf8()), line.constData());
    } else {
        QCOMPARE(errors, QByteArrayList());
    }
    run.service.ask(u"/db_reset_errors"_s);
    QCOMPARE(run.errorsCount(), 0);
    run.write(16);
    run.finish(qPrintable(fault));
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    MariaDbServer server;
    TstDatabaseFaults test(server);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_databasefaults.moc"
