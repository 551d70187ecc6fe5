#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"

#include "rig/fastpeer.h"
#include "rig/mariadbserver.h"
#include "rig/serviceprocess.h"
#include "rig/waiting.h"
#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "tools/queuectl/failure.h"

#include <QDir>
#include <QJsonArray>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QtTest>

#include <atomic>

using namespace Qt::StringLiterals;
using queuectl::ExitCode;
using rig::FastPeer;
using rig::waitUntil;

namespace {

/// Longer than a call of the program may take: one that waits for it fails.
const QStringList forLong{u"--wait"_s, u"3600"_s};

QString startWords(bool isStarted)
{
    return isStarted ? u"Обработчик успешно запущен"_s : u"Не удалось запустить обработчик"_s;
}

} // namespace

/// `queuectl settle`: may the shift be closed?
class TestQueuectlSettle : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanupTestCase();
    void nothingWaits_data() { databases(); }
    void nothingWaits();
    void droppedMessagesAreTold();
    void withoutService();
    void anotherProgramOnThePort();
    void olderThanATime_data() { databases(); }
    void olderThanATime();
    void timesOfAnotherForm_data();
    void timesOfAnotherForm();
    void onlySomeTypes();
    void refusals_data();
    void refusals();
    void deliversWhatWaits_data() { databases(); }
    void deliversWhatWaits();
    void listsWhatBlocks_data() { databases(); }
    void listsWhatBlocks();
    void looksOnly();
    void typesThatNobodyDelivers();
    void standby();
    void workerNotStarted();
    void rowsThatArriveMeanwhile_data();
    void rowsThatArriveMeanwhile();
    void speaksRussian();

private:
    static void databases()
    {
        QTest::addColumn<bool>("onServer");
        QTest::newRow("SQLite") << false;
        QTest::newRow("MariaDB") << true;
    }
    QString settings(const QString &more = QString()) const
    {
        return more + (isOnServer ? server->settings() : QString());
    }
    void startService();
    /// Plays the service's control port; `start` is called when a type is to be tried.
    void playControl(const std::function<void()> &start, bool isStarted);
    int put(int secondsAgo = 0, const QString &type = u"heineken"_s);
    CommandResult settle(const QStringList &arguments = {})
    {
        return till->run(QStringList{u"settle"_s} + arguments);
    }
    QJsonObject json(const QStringList &arguments)
    {
        return settle(arguments + QStringList{u"--json"_s}).json();
    }

    static inline std::unique_ptr<rig::MariaDbServer> server;
    bool isOnServer = false;
    /// What the peer of the messages answers.
    std::atomic<int> status = 200;
    std::atomic<int> requests = 0;
    std::unique_ptr<FastPeer> peer;
    std::unique_ptr<FastPeer> control;
    std::unique_ptr<Till> till;
    std::unique_ptr<JournalFixture> journal;
    std::unique_ptr<rig::ServiceProcess> service;
};

void TestQueuectlSettle::initTestCase()
{
    server = std::make_unique<rig::MariaDbServer>();
}

void TestQueuectlSettle::cleanupTestCase()
{
    service.reset();
    server.reset();
}

void TestQueuectlSettle::init()
{
    service.reset();
    control.reset();
    journal.reset();
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    journal = std::make_unique<JournalFixture>(till->database.root());
    isOnServer = QByteArray(QTest::currentDataTag()) == "MariaDB";
    if (isOnServer)
        server->run(u"TRUNCATE queues.message"_s);
    status = 200;
    requests = 0;
    peer = std::make_unique<FastPeer>([this](const FastPeer::Request & /*request*/) {
        ++requests;
        return FastPeer::reply(status);
    });
    till->setSettings(settings());
    till->database.ids();
}

void TestQueuectlSettle::startService()
{
    // After the poll at its start, it tries what it is asked to.
    till->setSettings(u"timeout = 3600\n"_s + settings());
    service = std::make_unique<rig::ServiceProcess>(QStringLiteral(QUEUE_PROGRAM),
                                                    till->database.till(), QMap<QString, QString>(),
                                                    rig::ServiceProcess::Log::File);
    service->start();
    QVERIFY(waitUntil([this] { return till->run({u"errors"_s}).exitCode == ExitCode::Done; }));
}

void TestQueuectlSettle::playControl(const std::function<void()> &start, bool isStarted)
{
    control = std::make_unique<FastPeer>([start, isStarted](const FastPeer::Request &request) {
        if (request.target.starts_with("/start/")) {
            start();
            return FastPeer::reply(
                200, u"{\"description\":\"%1\"}"_s.arg(startWords(isStarted)).toStdString());
        }
        return FastPeer::reply(200, "{\"errorsCount\":0}");
    });
    till->setSettings(u"port = %1\n"_s.arg(control->port()) + settings());
}

int TestQueuectlSettle::put(int secondsAgo, const QString &type)
{
    const int id = till->database.put(
        type, u"{\"url\":\"http://127.0.0.1:%1/a\",\"body\":\"1\"}"_s.arg(peer->port()));
    till->setAge(id, secondsAgo);
    return id;
}

void TestQueuectlSettle::nothingWaits()
{
    const CommandResult outcome = settle(forLong);
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QVERIFY2(outcome.out.startsWith(u"The shift may be closed: no row that was written before "_s),
             qPrintable(outcome.out));
    const QJsonObject data = json({});
    QCOMPARE(data.value(u"settled"_s), QJsonValue(true));
    QCOMPARE(data.value(u"waiting"_s), QJsonValue(0));
    QVERIFY(data.value(u"blocking"_s).toArray().isEmpty());
}

/// What was dropped blocks nothing, and is not done either.
void TestQueuectlSettle::droppedMessagesAreTold()
{
    journal->put({.id = 1, .verdict = u"dropped"_s, .secondsAgo = 0});
    journal->put({.id = 2, .type = u"cardlab"_s, .verdict = u"dropped"_s, .secondsAgo = 0});
    journal->put({.id = 3, .secondsAgo = 0});
    const CommandResult outcome = settle();
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QVERIFY2(outcome.out.contains(u"\nDropped: cardlab: 1, heineken: 1 (queuectl history "_s),
             qPrintable(outcome.out));
    QCOMPARE(json({}).value(u"droppedToday"_s), QJsonValue(2));
    const CommandResult ofType = settle({u"--type"_s, u"cardlab"_s});
    QVERIFY2(ofType.out.contains(u"\nDropped: cardlab: 1 ("_s), qPrintable(ofType.out));
    put(60);
    QVERIFY(settle({u"--wait"_s, u"0"_s}).out.contains(u"\nDropped: cardlab: 1, heineken: 1 ("_s));
    const QString file = journal->file();
    journal.reset();
    QVERIFY(QFile::remove(file));
    const QJsonObject unknown = json({u"--wait"_s, u"0"_s});
    QVERIFY(unknown.contains(u"droppedToday"_s) && unknown.value(u"droppedToday"_s).isNull());
}

void TestQueuectlSettle::withoutService()
{
    put(60);
    const CommandResult outcome = settle(forLong);
    QCOMPARE(outcome.exitCode, ExitCode::NoService);
    QVERIFY2(outcome.out.startsWith(u"The shift should not be closed: "_s),
             qPrintable(outcome.out));
    QVERIFY2(outcome.out.contains(
                 u"The service does not run: nobody listens on 127.0.0.1:%1."_s.arg(till->port())),
             qPrintable(outcome.out));
    QVERIFY(outcome.out.contains(u"systemctl start queue"_s));
    const QJsonObject data = json(forLong);
    QCOMPARE(data.value(u"service"_s).toString(), u"silent"_s);
    QCOMPARE(data.value(u"blocking"_s)[0][u"who"_s].toString(), u"engineer"_s);
    QCOMPARE(till->database.ids().size(), 1);
}

void TestQueuectlSettle::anotherProgramOnThePort()
{
    put(60);
    FastPeer stranger(
        [](const FastPeer::Request & /*request*/) { return FastPeer::reply(200, "{}"); });
    till->setSettings(u"port = %1\n"_s.arg(stranger.port()));
    const CommandResult outcome = settle(forLong);
    QCOMPARE(outcome.exitCode, ExitCode::NoService);
    QVERIFY2(outcome.out.contains(u"another program has its port"_s), qPrintable(outcome.out));
}

void TestQueuectlSettle::olderThanATime()
{
    const int old = put(1200);
    put(300);
    const QStringList before{u"--wait"_s, u"0"_s, u"--before"_s};
    const QJsonObject data = json(before + QStringList{u"10min"_s});
    QCOMPARE(data.value(u"waiting"_s).toInt(), 1);
    QCOMPARE(data.value(u"blocking"_s)[0][u"id"_s].toInt(), old);
    QCOMPARE(settle(before + QStringList{u"30min"_s}).exitCode, ExitCode::Done);
    QCOMPARE(json(before + QStringList{u"1min"_s}).value(u"waiting"_s).toInt(), 2);
    // A day of its own begins after all of them.
    const QString tomorrow = QDate::currentDate().addDays(1).toString(Qt::ISODate);
    QCOMPARE(json(before + QStringList{tomorrow}).value(u"waiting"_s).toInt(), 2);
}

void TestQueuectlSettle::timesOfAnotherForm_data()
{
    QTest::addColumn<QString>("time");
    QTest::addColumn<bool>("isOlder");
    const auto ago = [](int seconds) {
        return QDateTime::currentDateTime().addSecs(-seconds);
    };
    QTest::newRow("ISO, older") << ago(1200).toString(Qt::ISODate) << true;
    QTest::newRow("ISO, newer") << ago(300).toString(Qt::ISODate) << false;
    QTest::newRow("UTC, older") << ago(1200).toUTC().toString(Qt::ISODate) << true;
    QTest::newRow("UTC, newer") << ago(300).toUTC().toString(Qt::ISODate) << false;
    QTest::newRow("another zone, older")
        << ago(1200).toOffsetFromUtc(10 * 3600).toString(Qt::ISODate) << true;
    QTest::newRow("another zone, newer")
        << ago(300).toOffsetFromUtc(-10 * 3600).toString(Qt::ISODate) << false;
    // The outcome is unknown, so it blocks.
    QTest::newRow("none") << u""_s << true;
    QTest::newRow("no time") << u"yesterday"_s << true;
    QTest::newRow("German") << u"22.11.2026 14:00:00"_s << true;
}

void TestQueuectlSettle::timesOfAnotherForm()
{
    QFETCH(const QString, time);
    QFETCH(const bool, isOlder);
    const int id = put();
    till->database.query(u"UPDATE message SET creationtime = ? WHERE messageid = ?"_s, {time, id});
    const QJsonObject data = json({u"--wait"_s, u"0"_s, u"--before"_s, u"10min"_s});
    QCOMPARE(data.value(u"waiting"_s).toInt(), isOlder ? 1 : 0);
}

void TestQueuectlSettle::onlySomeTypes()
{
    put(60, u"heineken"_s);
    put(60, u"cardlab"_s);
    put(60, u"loya"_s);
    const QStringList look{u"--wait"_s, u"0"_s, u"--type"_s};
    QCOMPARE(json(look + QStringList{u"cardlab"_s}).value(u"waiting"_s).toInt(), 1);
    QCOMPARE(
        json(look + QStringList{u"cardlab"_s, u"--type"_s, u"loya"_s}).value(u"waiting"_s).toInt(),
        2);
    QCOMPARE(settle(look + QStringList{u"rsbsbp"_s}).exitCode, ExitCode::Done);
}

void TestQueuectlSettle::refusals_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    QTest::newRow("time") << QStringList{u"--before"_s, u"soon"_s} << int(ExitCode::Usage)
                          << u"--before takes today"_s;
    QTest::newRow("negative wait") << QStringList{u"--wait"_s, u"-1"_s} << int(ExitCode::Usage)
                                   << u"--wait takes a whole number from 0 on"_s;
    // It would have nothing that waits.
    QTest::newRow("a slip in a type") << QStringList{u"--type"_s, u"heinekn"_s}
                                      << int(ExitCode::NotFound) << u"did you mean heineken?"_s;
}

void TestQueuectlSettle::refusals()
{
    QFETCH(const QStringList, arguments);
    QFETCH(const QString, reason);
    const CommandResult outcome = settle(arguments);
    QTEST(outcome.exitCode, "exitCode");
    QVERIFY2(outcome.err.contains(reason), qPrintable(outcome.err));
}

void TestQueuectlSettle::deliversWhatWaits()
{
    startService();
    for (int i = 0; i < 5; ++i)
        put();
    put(0, u"cardlab"_s);
    const CommandResult outcome = settle({u"--wait"_s, u"30"_s});
    QVERIFY2(outcome.exitCode == ExitCode::Done, qPrintable(outcome.out));
    QVERIFY(till->database.ids().isEmpty());
    QCOMPARE(requests, 6);
}

void TestQueuectlSettle::listsWhatBlocks()
{
    startService();
    status = 503;
    const int first = put(600);
    put(500);
    journal->put({.id = first,
                  .verdict = u"kept"_s,
                  .kind = u"service"_s,
                  .status = 503,
                  .text = u"token=abc, занято"_s,
                  .secondsAgo = 100});
    const QStringList wait{u"--wait"_s, u"3"_s};
    const CommandResult outcome = settle(wait);
    QCOMPARE(outcome.exitCode, ExitCode::Found);
    QVERIFY2(outcome.out.contains(u"service in trouble"_s)
                 && outcome.out.contains(u"the service's operator"_s)
                 && outcome.out.contains(u"HTTP 503"_s) && !outcome.out.contains(u"abc"_s),
             qPrintable(outcome.out));
    // Both were tried: each pass ends at its refusal, and the next one goes on after it.
    QVERIFY2(requests >= 2, qPrintable(QString::number(requests)));
    const QJsonObject data = json(wait);
    QCOMPARE(data.value(u"settled"_s), QJsonValue(false));
    QCOMPARE(data.value(u"waiting"_s).toInt(), 2);
    QJsonObject blocking;
    for (const QJsonValue &record : data.value(u"blocking"_s).toArray()) {
        if (record[u"cause"_s] == u"service"_s)
            blocking = record.toObject();
    }
    QCOMPARE(blocking.value(u"type"_s).toString(), u"heineken"_s);
    QCOMPARE(blocking.value(u"id"_s).toInt(), first);
    QCOMPARE(blocking.value(u"started"_s), QJsonValue(true));
    QCOMPARE(blocking.value(u"who"_s).toString(), u"operator"_s);
    QVERIFY(blocking.value(u"action"_s).toString().contains(u"127.0.0.1:%1"_s.arg(peer->port())));
    QVERIFY(blocking.value(u"oldestAgeSeconds"_s).toInt() >= 600);
}

void TestQueuectlSettle::looksOnly()
{
    startService();
    put();
    QCOMPARE(settle({u"--wait"_s, u"0"_s}).exitCode, ExitCode::Found);
    QCOMPARE(requests, 0);
    QCOMPARE(till->database.ids().size(), 1);
}

void TestQueuectlSettle::typesThatNobodyDelivers()
{
    std::atomic<int> starts = 0;
    playControl([&starts] { ++starts; }, true);
    put(60, u"nosuch"_s);
    const CommandResult outcome = settle(forLong);
    QCOMPARE(outcome.exitCode, ExitCode::Found);
    QVERIFY2(outcome.out.contains(u"nobody delivers this type"_s)
                 && outcome.out.contains(u"the till's integrator"_s),
             qPrintable(outcome.out));
    QCOMPARE(starts, 0);
}

void TestQueuectlSettle::standby()
{
    std::atomic<int> starts = 0;
    playControl([&starts] { ++starts; }, false);
    FolderLock holder(serviceLockFile());
    QCOMPARE(holder.take(u"standby"_s), FolderLock::Result::Taken);
    put(60);
    const CommandResult outcome = settle({u"--wait"_s, u"1"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Found);
    QVERIFY2(outcome.out.contains(u"The service of this machine is a stand-by"_s),
             qPrintable(outcome.out));
    QCOMPARE(starts, 0);
}

void TestQueuectlSettle::workerNotStarted()
{
    std::atomic<int> starts = 0;
    playControl([&starts] { ++starts; }, false);
    put(60);
    const CommandResult outcome = settle({u"--wait"_s, u"5"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Found);
    QVERIFY2(outcome.out.contains(u"The service did not start the workers of heineken"_s),
             qPrintable(outcome.out));
    // A worker may have ended a moment later.
    QVERIFY(starts >= 2);
    QCOMPARE(json({u"--wait"_s, u"1"_s}).value(u"blocking"_s)[0][u"started"_s], QJsonValue(false));
}

void TestQueuectlSettle::rowsThatArriveMeanwhile_data()
{
    QTest::addColumn<QString>("columns");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("a new row does not count")
        << u"'heineken', '{}', datetime('now', 'localtime', '+1 minute')"_s << int(ExitCode::Done);
    // A clock that is set back in between gives it an earlier time.
    QTest::newRow("an older one that was moved to the end counts")
        << u"'heineken', '{}', datetime('now', 'localtime', '-1 hour')"_s << int(ExitCode::Found);
}

void TestQueuectlSettle::rowsThatArriveMeanwhile()
{
    QFETCH(const QString, columns);
    const QString file = till->database.file();
    playControl(
        [&] {
            // In the thread of the peer.
            const QString name = u"meanwhile"_s;
            {
                QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
                database.setDatabaseName(file);
                QVERIFY(database.open());
                QSqlQuery query(database);
                QVERIFY(query.exec(
                    u"INSERT INTO message (type, body, creationtime) VALUES (%1)"_s.arg(columns)));
                QVERIFY(query.exec(
                    u"DELETE FROM message WHERE messageid < (SELECT MAX(messageid) FROM message)"_s));
            }
            QSqlDatabase::removeDatabase(name);
        },
        true);
    put(60);
    const CommandResult outcome = settle({u"--wait"_s, u"3"_s});
    QTEST(outcome.exitCode, "exitCode");
    QVERIFY(!till->database.ids().isEmpty());
}

void TestQueuectlSettle::speaksRussian()
{
    const QMap<QString, QString> russian{{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}};
    QVERIFY(till->run({u"settle"_s}, {}, russian).out.startsWith(u"Смену можно закрыть"_s));
    put(60);
    const QString out = till->run({u"settle"_s}, {}, russian).out;
    QVERIFY2(out.startsWith(u"Смену закрывать рано"_s) && out.contains(u"Служба не запущена"_s),
             qPrintable(out));
}

QTEST_GUILESS_MAIN(TestQueuectlSettle)
#include "tst_queuectlsettle.moc"
