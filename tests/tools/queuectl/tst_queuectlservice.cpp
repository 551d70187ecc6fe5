#include "tests/tools/queuectl/till.h"

#include "rig/fastpeer.h"
#include "rig/portreservation.h"
#include "rig/serviceprocess.h"
#include "rig/waiting.h"
#include "tools/queuectl/failure.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

using namespace Qt::StringLiterals;
using queuectl::ExitCode;
using rig::waitUntil;

/// The program beside the real service.
class TestQueuectlService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void withoutService();
    void start();
    void startOfUnknownType();
    void errors();
    void restoreIsRefused();
    void statusAndWhy();
    void historyOfADelivery();
    void watch();
    void watchOnTerminal();
    void afterAPut();
    void silentPort();

private:
    /// Starts the service and waits until it answers.
    void startService();
    QJsonObject json(const QStringList &arguments)
    {
        return till->run(arguments + QStringList{u"--json"_s}).json();
    }
    QString body() const
    {
        return u"{\"url\":\"http://127.0.0.1:%1/a\",\"body\":\"1\"}"_s.arg(peer->port());
    }

    std::unique_ptr<Till> till;
    /// The address of a closed port, so that each delivery is refused.
    std::unique_ptr<rig::PortReservation> peer;
    std::unique_ptr<rig::ServiceProcess> service;
};

void TestQueuectlService::init()
{
    service.reset();
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    till->setSettings(u"timeout = 1\n"_s);
    peer = std::make_unique<rig::PortReservation>();
}

void TestQueuectlService::startService()
{
    // Without a log file that the program could read, as an installation is.
    service = std::make_unique<rig::ServiceProcess>(QStringLiteral(QUEUE_PROGRAM),
                                                    till->database.till(), QMap<QString, QString>(),
                                                    rig::ServiceProcess::Log::File);
    service->start();
    QVERIFY(waitUntil([this] { return till->run({u"errors"_s}).exitCode == ExitCode::Done; }));
}

void TestQueuectlService::withoutService()
{
    till->database.ids();
    for (const QStringList &command :
         {QStringList{u"start"_s, u"heineken"_s}, QStringList{u"errors"_s},
          QStringList{u"errors"_s, u"--reset"_s}}) {
        const CommandResult outcome = till->run(command);
        QCOMPARE(outcome.exitCode, ExitCode::NoService);
        QVERIFY2(outcome.err.contains(QString::number(till->port())), qPrintable(outcome.err));
        QCOMPARE(outcome.out, QString());
        const QJsonObject error =
            QJsonDocument::fromJson(till->run(command + QStringList{u"--json"_s}).err.toUtf8())
                .object()
                .value(u"error"_s)
                .toObject();
        QCOMPARE(error.value(u"exitCode"_s).toInt(), int(ExitCode::NoService));
        QVERIFY(!error.value(u"text"_s).toString().isEmpty());
    }
}

void TestQueuectlService::start()
{
    till->setSettings(u"timeout = 3600\n"_s);
    startService();
    till->database.put(u"heineken"_s, body());
    const QJsonObject started = json({u"start"_s, u"heineken"_s, u"77"_s});
    QCOMPARE(started.value(u"started"_s), QJsonValue(true));
    QCOMPARE(started.value(u"type"_s).toString(), u"heineken"_s);
    // The row has been tried, long before the next poll.
    QVERIFY(waitUntil([this] {
        return json({u"why"_s, u"1"_s}).value(u"cause"_s).toString() == u"network";
    }));
    // The next start begins after this row.
    const CommandResult again = till->run({u"start"_s, u"heineken"_s});
    QVERIFY2(again.out.contains(u"Row 1 was refused before"_s)
                 && again.out.contains(u"queuectl settle --type heineken"_s),
             qPrintable(again.out));
    till->database.query(u"DELETE FROM message"_s);
    QVERIFY(!till->run({u"start"_s, u"heineken"_s}).out.contains(u"refused before"_s));
}

void TestQueuectlService::startOfUnknownType()
{
    startService();
    const CommandResult outcome = till->run({u"start"_s, u"heinekn"_s});
    QCOMPARE(outcome.exitCode, ExitCode::NotFound);
    QVERIFY(outcome.err.contains(u"did you mean heineken?"));
}

void TestQueuectlService::errors()
{
    startService();
    QCOMPARE(json({u"errors"_s}).value(u"errorsCount"_s).toInt(), 0);
    // A missing table would be created.
    till->database.query(u"ALTER TABLE queues.message RENAME COLUMN type TO away"_s);
    QVERIFY(waitUntil([this] { return json({u"errors"_s}).value(u"errorsCount"_s).toInt() > 0; }));
    till->database.query(u"ALTER TABLE queues.message RENAME COLUMN away TO type"_s);
    const QJsonObject reset = json({u"errors"_s, u"--reset"_s});
    QCOMPARE(reset.value(u"reset"_s), QJsonValue(true));
    QVERIFY(reset.value(u"errorsCount"_s).toInt() > 0);
    // A poll that began while the table was missing may have counted once more.
    QVERIFY(waitUntil([this] {
        return json({u"errors"_s, u"--reset"_s}).value(u"errorsCount"_s).toInt() == 0;
    }));
}

void TestQueuectlService::restoreIsRefused()
{
    till->database.put(u"nosuch"_s, u"{}"_s);
    const QString backup = till->database.root() + u"/backup.db"_s;
    till->database.query(u"VACUUM queues INTO ?"_s, {backup});
    startService();
    const CommandResult outcome = till->run({u"restore"_s, backup, u"--yes"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Failed);
    QVERIFY2(outcome.err.contains(u"systemctl stop queue"), qPrintable(outcome.err));
    const QDir folder = QFileInfo(till->database.file()).dir();
    QCOMPARE(folder.entryList({u"queues.db.*"_s}), QStringList());
    QCOMPARE(till->database.ids().size(), 1);
}

void TestQueuectlService::statusAndWhy()
{
    till->database.put(u"heineken"_s, body());
    startService();
    QJsonObject status;
    QVERIFY(waitUntil([&] {
        status = json({u"status"_s});
        return status.value(u"types"_s)
            .toArray()
            .at(0)
            .toObject()
            .value(u"lastFailure"_s)
            .isString();
    }));
    // The service runs, and its one type has only failed so far.
    QCOMPARE(till->run({u"status"_s}).exitCode, ExitCode::Found);
    const QJsonArray concerns = status.value(u"concerns"_s).toArray();
    QCOMPARE(concerns.size(), 1);
    QCOMPARE(concerns.at(0)[u"kind"_s].toString(), u"only-failed"_s);
    QCOMPARE(till->run({u"doctor"_s}).exitCode, ExitCode::Found);
    const QJsonObject type = status.value(u"types"_s).toArray().at(0).toObject();
    QCOMPARE(type.value(u"waiting"_s).toInt(), 1);
    QVERIFY(type.value(u"lastFailure"_s).toString().contains(u"отклонил соединение"));
    QCOMPARE(type.value(u"lastFailureCause"_s).toString(), u"network"_s);
    QCOMPARE(status.value(u"journal"_s)[u"state"_s].toString(), u"read"_s);
    QCOMPARE(status.value(u"control"_s).toObject().value(u"state"_s).toString(), u"ok"_s);
    QCOMPARE(status.value(u"control"_s).toObject().value(u"errorsCount"_s).toInt(), 0);

    const QJsonObject reason = json({u"why"_s, u"1"_s});
    QCOMPARE(reason.value(u"cause"_s).toString(), u"network"_s);
    QCOMPARE(reason.value(u"serviceRunning"_s), QJsonValue(true));
    QVERIFY(reason.value(u"nextTryEarliest"_s).isString());
    QVERIFY(reason.value(u"actor"_s).toString().contains(u"127.0.0.1:%1"_s.arg(peer->port())));
    const QJsonObject shape =
        json({u"shape"_s}).value(u"destinations"_s).toArray().at(0).toObject();
    QCOMPARE(shape.value(u"state"_s).toString(), u"down"_s);
    QVERIFY(shape.value(u"since"_s).isString());
}

/// The row is delivered, and its record stays.
void TestQueuectlService::historyOfADelivery()
{
    rig::FastPeer server(
        [](const rig::FastPeer::Request & /*request*/) { return rig::FastPeer::reply(200); });
    till->database.put(
        u"heineken"_s,
        u"{\"url\":\"http://127.0.0.1:%1/sales\",\"body\":\"1\"}"_s.arg(server.port()),
        u"77001234560017"_s);
    startService();
    QVERIFY(waitUntil([this] {
        return till->run({u"history"_s, u"1"_s}).exitCode == ExitCode::Done;
    }));
    const QString line = till->run({u"history"_s, u"--card"_s, u"0017"_s, u"--json"_s}).out;
    const QJsonObject record = QJsonDocument::fromJson(line.toUtf8()).object();
    QCOMPARE(record.value(u"verdict"_s).toString(), u"delivered"_s);
    QCOMPARE(record.value(u"card"_s).toString(), u"****0017"_s);
    QCOMPARE(record.value(u"status"_s).toInt(), 200);
    QCOMPARE(record.value(u"attempts"_s).toInt(), 1);
    const QJsonObject reason = json({u"why"_s, u"1"_s});
    QCOMPARE(reason.value(u"verdict"_s).toString(), u"delivered"_s);
    QCOMPARE(json({u"status"_s}).value(u"deliveredToday"_s).toInt(), 1);
    // The journal stays readable when the service has ended.
    service.reset();
    QCOMPARE(json({u"why"_s, u"1"_s}).value(u"verdict"_s).toString(), u"delivered"_s);
}

void TestQueuectlService::watch()
{
    startService();
    const CommandResult outcome =
        till->run({u"watch"_s, u"--count"_s, u"2"_s, u"--interval"_s, u"1"_s, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    const QStringList lines = outcome.out.trimmed().split(u'\n');
    QCOMPARE(lines.size(), 2);
    for (const QString &line : lines)
        QVERIFY(QJsonDocument::fromJson(line.toUtf8()).object().contains(u"types"_s));
    QCOMPARE(till->run({u"watch"_s, u"--interval"_s, u"0"_s}).exitCode, ExitCode::Usage);
}

void TestQueuectlService::watchOnTerminal()
{
    till->database.ids();
    const CommandResult shown = till->runOnTerminal({u"watch"_s, u"--count"_s, u"1"_s});
    QVERIFY(shown.out.contains(u"\u001b[?1049h"));
    QVERIFY(shown.out.contains(u"Database"));
    QCOMPARE(shown.exitCode, ExitCode::NoService);
    QVERIFY(!till->run({u"watch"_s, u"--count"_s, u"1"_s}).out.contains(u'\u001b'));
}

void TestQueuectlService::afterAPut()
{
    startService();
    const QString file = till->write(u"/body.json"_s, body().toUtf8());
    QCOMPARE(till->run({u"put"_s, u"heineken"_s, file}).exitCode, ExitCode::Done);
    QVERIFY(waitUntil([this] {
        return json({u"why"_s, u"1"_s}).value(u"cause"_s).toString() == u"network";
    }));
    QCOMPARE(till->run({u"requeue"_s, u"1"_s, u"--yes"_s}).exitCode, ExitCode::Done);
    QVERIFY(waitUntil([this] {
        return json({u"why"_s, u"2"_s}).value(u"cause"_s).toString() == u"network";
    }));
    QCOMPARE(till->run({u"drop"_s, u"2"_s, u"--yes"_s}).exitCode, ExitCode::Done);
    QCOMPARE(json({u"status"_s}).value(u"waiting"_s).toInt(), 0);
}

void TestQueuectlService::silentPort()
{
    // Another program has the port.
    QTcpServer other;
    QVERIFY(other.listen(QHostAddress::LocalHost));
    connect(&other, &QTcpServer::newConnection, &other,
            [&other] { other.nextPendingConnection()->write("SSH-2.0-other\r\n"); });
    till->setSettings(u"port = %1\n"_s.arg(other.serverPort()));
    QCOMPARE(till->run({u"errors"_s}).exitCode, ExitCode::NoService);
}

QTEST_GUILESS_MAIN(TestQueuectlService)
#include "tst_queuectlservice.moc"
