#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"

#include "rig/loopbackserver.h"
#include "tools/queuectl/checkcommand.h"
#include "tools/queuectl/failure.h"
#include "tools/queuectl/timewords.h"

#include <QDateTime>
#include <QFile>
#include <QJsonArray>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;
using rig::LoopbackServer;

namespace {

const QString body = u"{\"url\":\"http://127.0.0.1:8000/sales\",\"body\":\"1\"}"_s;

} // namespace

/// The line for a monitoring server, and rows by their age.
class TestCheckCommand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void states_data();
    void states();
    void lineOfAHostileSentence();
    void performanceData();
    void performanceOfSeveralTypes();
    void wrongCalls_data();
    void wrongCalls();
    void listByAge();
    void listNeedsTypeOrAge();
    void spans_data();
    void spans();

private:
    /// Has a service answer on the control port.
    void startService();

    std::unique_ptr<Till> till;
    std::unique_ptr<LoopbackServer> service;
};

void TestCheckCommand::init()
{
    service.reset();
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    till->database.ids();
}

void TestCheckCommand::startService()
{
    service = std::make_unique<LoopbackServer>();
    const LoopbackServer::Reply reply = LoopbackServer::answer(200, "{\"errorsCount\":0}");
    service->play({reply, reply, reply});
    till->database.setSettings(u"[queue]\nport = %1\n"_s.arg(service->port()));
}

void TestCheckCommand::states_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QStringList>("situation");
    QTest::addColumn<QString>("line");
    QTest::addColumn<int>("exitCode");
    const auto row = [](const char *name, const QStringList &arguments,
                        const QStringList &situation, const QString &line, int exitCode) {
        QTest::newRow(name) << arguments << situation << line << exitCode;
    };
    row("all is well", {}, {u"young"_s}, u"QUEUE OK - rows that wait: 1 |"_s, 0);
    row("an old row", {}, {u"old"_s}, u"QUEUE WARNING - type heineken waits for 2 h"_s, 1);
    row("just older than allowed", {u"--older"_s, u"121m"_s}, {u"old"_s},
        u"QUEUE WARNING - type heineken waits for 2 h"_s, 1);
    row("just not", {u"--older"_s, u"123m"_s}, {u"old"_s}, u"QUEUE OK -"_s, 0);
    row("not older than allowed", {u"--older"_s, u"3h"_s}, {u"old"_s}, u"QUEUE OK -"_s, 0);
    row("a type fails", {}, {u"young"_s, u"failing"_s},
        u"QUEUE WARNING - type heineken fails for 20 min"_s, 1);
    row("not longer than allowed", {u"--failing"_s, u"30m"_s}, {u"young"_s, u"failing"_s},
        u"QUEUE OK -"_s, 0);
    row("just longer than allowed", {u"--failing"_s, u"20m"_s}, {u"young"_s, u"failing"_s},
        u"QUEUE WARNING - type heineken fails for 20 min"_s, 1);
    row("nothing of the type is left", {}, {u"failing"_s}, u"QUEUE OK -"_s, 0);
    row("dropped, and not asked", {}, {u"dropped"_s}, u"QUEUE OK -"_s, 0);
    row("dropped", {u"--dropped"_s}, {u"dropped"_s}, u"QUEUE WARNING - dropped in 24 hours: 1"_s,
        1);
    row("dropped the day before", {u"--dropped"_s}, {u"dropped before"_s}, u"QUEUE OK -"_s, 0);
    row("nobody delivers it", {}, {u"foreign"_s}, u"QUEUE WARNING - nobody delivers rows: 1"_s, 1);
    row("the service is silent", {}, {u"silent"_s, u"old"_s}, u"QUEUE CRITICAL - type"_s, 2);
    row("without a database", {}, {u"no database"_s}, u"QUEUE CRITICAL - There is no"_s, 2);
    row("damaged journal", {}, {u"old"_s, u"damaged"_s}, u"QUEUE UNKNOWN - type"_s, 3);
    row("a silent service counts more", {}, {u"silent"_s, u"damaged"_s}, u"QUEUE CRITICAL -"_s, 2);
    row("dropped without a journal", {u"--dropped"_s}, {u"young"_s},
        u"QUEUE UNKNOWN - There is no delivery journal"_s, 3);
    row("dropped, and just installed", {u"--dropped"_s}, {}, u"QUEUE OK - rows that wait: 0 |"_s,
        0);
}

void TestCheckCommand::states()
{
    QFETCH(QStringList, arguments);
    QFETCH(QStringList, situation);
    QFETCH(QString, line);
    QFETCH(int, exitCode);
    if (!situation.contains(u"silent"_s))
        startService();
    if (situation.contains(u"young"_s))
        till->database.put(u"heineken"_s, body);
    if (situation.contains(u"old"_s))
        till->setAge(till->database.put(u"heineken"_s, body), 7300);
    if (situation.contains(u"foreign"_s))
        till->database.put(u"nobody's"_s, body);
    std::unique_ptr<JournalFixture> journal;
    const auto openJournal = [&] {
        if (!journal)
            journal = std::make_unique<JournalFixture>(till->database.root());
    };
    if (situation.contains(u"failing"_s)) {
        openJournal();
        journal->streak(u"heineken"_s, 3000, 1210);
    }
    for (const auto &[word, hours] : {std::pair(u"dropped"_s, 1), {u"dropped before"_s, 25}}) {
        if (!situation.contains(word))
            continue;
        openJournal();
        journal->put({.verdict = u"dropped"_s, .kind = u"request"_s, .secondsAgo = hours * 3600});
    }
    if (situation.contains(u"damaged"_s))
        till->write(u"/tallocash/cash/queue/journal.db"_s, QByteArray(8192, 'x'));
    if (situation.contains(u"no database"_s))
        QVERIFY(QFile::rename(till->database.file(), till->database.file() + u".away"_s));

    const CommandResult result = till->run(QStringList{u"check"_s} + arguments);
    QVERIFY2(result.out.startsWith(line), qPrintable(result.out));
    QCOMPARE(result.exitCode, exitCode);
    QCOMPARE(result.out.count(u'\n'), 1);
    QCOMPARE(result.err, QString());
}

void TestCheckCommand::lineOfAHostileSentence()
{
    QCOMPARE(checkLine(CheckState::Warning, u"a|b\nc \u001b[2J"_s, u"x=1"_s),
             u"QUEUE WARNING - a/b c \\x1b[2J | x=1"_s);
}

void TestCheckCommand::performanceData()
{
    startService();
    JournalFixture journal(till->database.root());
    journal.streak(u"heineken"_s, 10, 0);
    till->database.put(u"heineken"_s, body);
    till->database.put(u"foreign"_s, body);
    const QString data = till->run({u"check"_s, u"--dropped"_s}).out.section(u" | "_s, 1).trimmed();
    static const QRegularExpression form(
        u"^waiting=2;;;0 oldest=[0-9]s;3600;;0 failing=0s;900;;0 dropped=0;0;;0$"_s);
    QVERIFY2(form.match(data).hasMatch(), qPrintable(data));
}

/// The largest age, the longest failure and the sum of what was dropped, whatever the order in
/// which the types come.
void TestCheckCommand::performanceOfSeveralTypes()
{
    startService();
    JournalFixture journal(till->database.root());
    const QStringList types{u"heineken"_s, u"cardlab"_s, u"nochange"_s, u"smartscales"_s};
    int seconds = 1300;
    for (const QString &type : types) {
        till->setAge(till->database.put(type, body), 6 * seconds);
        journal.streak(type, 9000, seconds);
        for (int id = 0; id < 2; ++id)
            journal.put({.id = id, .type = type, .verdict = u"dropped"_s, .secondsAgo = 60});
        seconds = seconds == 1300 ? 5300 : 1200;
    }
    // Nobody delivers it, so its age is nobody's.
    till->setAge(till->database.put(u"foreign"_s, body), 90'000);
    journal.streak(u"foreign"_s, 0, 80'000);
    const QStringList asked{u"check"_s, u"--dropped"_s, u"--older"_s,
                            u"2h"_s,    u"--failing"_s, u"30m"_s};
    const QString line = till->run(asked).out;
    static const QRegularExpression form(
        u"^waiting=5;;;0 oldest=318\\d\\ds;7200;;0 failing=53\\d\\ds;1800;;0 dropped=8;0;;0$"_s);
    const QString data = line.section(u" | "_s, 1).trimmed();
    QVERIFY2(form.match(data).hasMatch(), qPrintable(line));
    for (const QString &sentence :
         {u"type cardlab waits for 8 h 50 min; "_s, u"nobody delivers rows: 1; "_s,
          u"type cardlab fails for 1 h 28 min; "_s, u"dropped in 24 hours: 8 |"_s})
        QVERIFY2(line.contains(sentence), qPrintable(line));
    QCOMPARE(line.count(u" fails for "_s), 1);
    // Not asked for, it is no threshold.
    QVERIFY(till->run({u"check"_s}).out.trimmed().endsWith(u" dropped=8;;;0"_s));

    const QJsonObject json = till->run(asked + QStringList{u"--json"_s}).json();
    QCOMPARE(json.value(u"state"_s).toString(), u"WARNING"_s);
    QCOMPARE(json.value(u"sentences"_s).toArray().size(), 4);
    const QJsonObject values = json.value(u"values"_s).toObject();
    QCOMPARE(values.keys(), (QStringList{u"dropped"_s, u"failing"_s, u"oldest"_s, u"waiting"_s}));
    QCOMPARE(values.value(u"waiting"_s).toInt(), 5);
    QCOMPARE(values.value(u"dropped"_s).toInt(), 8);
    QVERIFY(values.value(u"oldest"_s).toInt() >= 31'800);
    QVERIFY(values.value(u"failing"_s).toInt() >= 5300);
}

void TestCheckCommand::wrongCalls_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("unknown option") << QStringList{u"--fast"_s};
    QTest::newRow("an argument") << QStringList{u"heineken"_s};
    QTest::newRow("not a span") << QStringList{u"--older"_s, u"soon"_s};
}

/// 2 would be an alarm.
void TestCheckCommand::wrongCalls()
{
    QFETCH(QStringList, arguments);
    const CommandResult result = till->run(QStringList{u"check"_s} + arguments);
    QCOMPARE(result.exitCode, 3);
    QVERIFY2(result.out.startsWith(u"QUEUE UNKNOWN - "_s), qPrintable(result.out));
}

void TestCheckCommand::listByAge()
{
    const int old = till->database.put(u"heineken"_s, body);
    const int young = till->database.put(u"heineken"_s, body);
    const int foreign = till->database.put(u"foreign"_s, body);
    till->setAge(old, 7300);
    till->setAge(young, 600);
    till->setAge(foreign, 9000);
    const auto ids = [this](const QStringList &arguments) {
        QList<int> result;
        const QJsonObject object =
            till->run(QStringList{u"list"_s, u"--json"_s} + arguments).json();
        for (const QJsonValue &row : object.value(u"rows"_s).toArray())
            result.append(row[u"id"_s].toInt());
        return result;
    };
    QCOMPARE(ids({u"--older"_s, u"1h"_s}), (QList<int>{old, foreign}));
    QCOMPARE(ids({u"--older"_s, u"5m"_s}), (QList<int>{old, young, foreign}));
    QCOMPARE(ids({u"heineken"_s, u"--older"_s, u"1h"_s}), QList<int>{old});
    const CommandResult page = till->run({u"list"_s, u"--older"_s, u"1h"_s, u"--limit"_s, u"1"_s});
    QVERIFY2(page.out.contains(u"queuectl list --older 1h --after %1"_s.arg(old)),
             qPrintable(page.out));
    QVERIFY2(page.out.contains(u"heineken"_s), qPrintable(page.out));
    QVERIFY(till->run({u"list"_s, u"--older"_s, u"7d"_s}).out.contains(u"No rows are that old"_s));
}

void TestCheckCommand::listNeedsTypeOrAge()
{
    const CommandResult result = till->run({u"list"_s});
    QCOMPARE(result.exitCode, ExitCode::Usage);
    QVERIFY2(result.err.contains(u"--older"_s), qPrintable(result.err));
}

void TestCheckCommand::spans_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<qint64>("seconds");
    QTest::newRow("seconds") << u"90s"_s << qint64(90);
    QTest::newRow("minutes") << u"15m"_s << qint64(900);
    QTest::newRow("minutes, as for a time") << u"15min"_s << qint64(900);
    QTest::newRow("hours") << u"2h"_s << qint64(7200);
    QTest::newRow("days") << u"7D"_s << qint64(604'800);
    QTest::newRow("Russian minutes") << u"15мин"_s << qint64(900);
    QTest::newRow("Russian hours") << u"2ч"_s << qint64(7200);
    QTest::newRow("nothing") << QString() << qint64(-1);
    QTest::newRow("0") << u"0h"_s << qint64(-1);
    QTest::newRow("a number alone") << u"15"_s << qint64(-1);
    QTest::newRow("negative") << u"-1h"_s << qint64(-1);
    QTest::newRow("too long") << u"9999999h"_s << qint64(-1);
}

void TestCheckCommand::spans()
{
    QFETCH(QString, word);
    QFETCH(qint64, seconds);
    qint64 read = -1;
    try {
        read = readSpan(u"older"_s, word);
    } catch (const Failure &failure) {
        QCOMPARE(failure.exitCode(), ExitCode::Usage);
    }
    QCOMPARE(read, seconds);
}

QTEST_GUILESS_MAIN(TestCheckCommand)
#include "tst_checkcommand.moc"
