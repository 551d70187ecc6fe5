#include "tests/faults/databaserun.h"
#include "tests/faults/form.h"
#include "tests/faults/serverfaults.h"

#include <QTest>

using namespace Qt::StringLiterals;
using faults::Run;
using rig::MariaDbServer;

/// The error counter of the control interface while the database server is away. Without rows there
/// are no workers, so each error in the log comes from the store that the counter belongs to.
class TestErrorCounters : public QObject
{
    Q_OBJECT

public:
    explicit TestErrorCounters(MariaDbServer &server)
        : server(server)
    {
    }

private Q_SLOTS:
    void countsErrorsOfTheLog_data();
    void countsErrorsOfTheLog();

private:
    MariaDbServer &server;
};

void TestErrorCounters::countsErrorsOfTheLog_data()
{
    QTest::addColumn<QString>("fault");
    QTest::newRow("stopped for several polls") << u"stop"_s;
    QTest::newRow("connection killed") << u"kill"_s;
    QTest::newRow("socket removed") << u"socket"_s;
    QTest::newRow("table locked") << u"lock"_s;
}

void TestErrorCounters::countsErrorsOfTheLog()
{
    QFETCH(QString, fault);
    Run run(server.settings());
    // The connections of this test are closed first; otherwise they would be killed instead of the
    // service's.
    const QByteArrayList own = faults::connections(server);
    run.start();
    QVERIFY(run.waitForPolls(1));
    QCOMPARE(run.errorsCount(), 0);
    if (fault == u"stop") {
        server.stop();
        const bool isNoticed = run.waitForPolls(faults::count(3, 30));
        server.start();
        QVERIFY(isNoticed);
    } else if (fault == u"kill") {
        const QByteArrayList ids = faults::connections(server);
        for (const QByteArray &id : ids) {
            if (!own.contains(id))
                faults::killConnection(server, id);
        }
    } else if (fault == u"socket") {
        QVERIFY(faults::moveSocket(server, true));
        const bool isPolled = run.waitForPolls(2);
        QVERIFY(faults::moveSocket(server, false));
        QVERIFY(isPolled);
    } else {
        server.run(u"LOCK TABLES queues.message WRITE; SELECT SLEEP(2); UNLOCK TABLES"_s);
    }
    // The first of these reconnects, the second one succeeds.
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
    TestErrorCounters test(server);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_errorcounters.moc"
