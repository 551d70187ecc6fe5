#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"
#include "tools/queuectl/failure.h"

#include <QFile>
#include <QJsonArray>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

namespace {

const QMap<QString, QString> russian{{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}};

/// A message that was delivered at once.
Record atOnce(int id, int secondsAgo)
{
    return {.id = id, .secondsAgo = secondsAgo};
}

/// A message that was delivered after some attempts.
Record late(int id, int secondsAgo, int spanSeconds)
{
    return {.id = id, .attempts = 3, .secondsAgo = secondsAgo, .spanSeconds = spanSeconds};
}

Record kept(int id, int secondsAgo, int spanSeconds, const QString &text = u"503"_s)
{
    return {.id = id,
            .verdict = u"kept"_s,
            .kind = u"service"_s,
            .status = 0,
            .text = text,
            .attempts = 3,
            .secondsAgo = secondsAgo,
            .spanSeconds = spanSeconds};
}

Record dropped(int id, int secondsAgo, int attempts, int spanSeconds)
{
    return {.id = id,
            .verdict = u"dropped"_s,
            .attempts = attempts,
            .secondsAgo = secondsAgo,
            .spanSeconds = spanSeconds};
}

Record ofType(const QString &type, Record record)
{
    record.type = type;
    return record;
}

} // namespace

/// `queuectl outages`: which services were away, and when.
class TestQueuectlOutages : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void outages_data();
    void outages();
    void table();
    void tableInRussian();
    void json();
    void nothingToTell();
    void refusals();

private:
    std::unique_ptr<Till> till;
    std::unique_ptr<JournalFixture> journal;
};

void TestQueuectlOutages::init()
{
    journal.reset();
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    journal = std::make_unique<JournalFixture>(till->database.root());
}

void TestQueuectlOutages::outages_data()
{
    QTest::addColumn<QList<Record>>("records");
    QTest::addColumn<bool>("isFailing");
    QTest::addColumn<QStringList>("found");
    using Records = QList<Record>;
    const auto row = [](const char *name, const Records &records, bool isFailing,
                        const QStringList &found) {
        QTest::newRow(name) << records << isFailing << found;
    };
    row("delivered at once", {atOnce(1, 100)}, false, {});
    row("dropped at once", {dropped(1, 100, 1, 0)}, false, {});
    row("delivered late", {late(1, 100, 50)}, false, {u"heineken 150-100 1"_s});
    row("a retry within the same second", {late(1, 100, 0)}, false, {});
    row("two messages, one outage", {late(1, 100, 50), late(2, 99, 80)}, false,
        {u"heineken 180-100 2"_s});
    row("outages apart are two", {late(1, 100, 50), late(2, 200, 40)}, false,
        {u"heineken 240-200 1"_s, u"heineken 150-100 1"_s});
    row("another delivery ends it", {late(1, 100, 80), atOnce(2, 120)}, false,
        {u"heineken 180-120 1"_s});
    row("it goes on", {kept(1, 10, 50)}, true, {u"heineken 60-now 1 503"_s});
    row("the newest failure is told", {kept(1, 10, 50), kept(2, 5, 20, u"504"_s)}, true,
        {u"heineken 60-now 2 504"_s});
    row("an earlier outage is over", {late(1, 300, 50), kept(2, 10, 20)}, true,
        {u"heineken 350-300 1"_s, u"heineken 30-now 1 503"_s});
    row("another type", {late(1, 100, 50), ofType(u"cardlab"_s, late(2, 120, 80))}, false,
        {u"heineken 150-100 1"_s});
    row("over before the time asked for", {late(1, 1100, 50)}, false, {});
    row("over after it, begun before", {late(1, 900, 500)}, false, {u"heineken 1400-900 1"_s});
}

void TestQueuectlOutages::outages()
{
    QFETCH(QList<Record>, records);
    QFETCH(bool, isFailing);
    QFETCH(QStringList, found);
    const QDateTime now = QDateTime::currentDateTime();
    for (const Record &record : records)
        journal->put(record);
    journal->streak(u"heineken"_s, 0, isFailing ? 60 : 0);

    // To ten seconds: the records were written a moment later.
    const auto ago = [&now](const QJsonValue &time) {
        const QDateTime moment = QDateTime::fromString(time.toString(), Qt::ISODate);
        return moment.isValid() ? QString::number((moment.secsTo(now) + 2) / 10 * 10) : u"now"_s;
    };
    const QString since = now.addSecs(-1000).toString(u"yyyy-MM-dd HH:mm:ss"_s);
    const QJsonArray outages =
        till->run({u"outages"_s, u"--since"_s, since, u"--type"_s, u"heineken"_s, u"--json"_s})
            .json()
            .value(u"outages"_s)
            .toArray();
    QStringList lines;
    for (const QJsonValue &outage : outages)
        lines.append(
            u"%1 %2-%3 %4 %5"_s
                .arg(outage[u"type"_s].toString(), ago(outage[u"from"_s]), ago(outage[u"until"_s]),
                     QString::number(outage[u"messages"_s].toInt()), outage[u"answer"_s].toString())
                .trimmed());
    QCOMPARE(lines, found);
}

void TestQueuectlOutages::table()
{
    journal->put(late(1, 7200, 3600));
    journal->put(kept(2, 60, 600, u"password=hush, отказ"_s));
    journal->streak(u"heineken"_s, 0, 600);
    const CommandResult result = till->run({u"outages"_s, u"--since"_s, u"7d"_s});
    QCOMPARE(result.exitCode, ExitCode::Done);
    const QStringList lines = result.out.split(u'\n');
    QVERIFY2(lines.at(0).startsWith(u"From"_s), qPrintable(result.out));
    static const QRegularExpression over(u"\\d  +1 h  heineken +1  -$"_s);
    QVERIFY2(over.match(lines.at(1)).hasMatch(), qPrintable(result.out));
    static const QRegularExpression goingOn(
        u"\\d  +-  +11 min  heineken +1  .*password=\\*\\*\\*"_s);
    QVERIFY2(goingOn.match(lines.at(2)).hasMatch(), qPrintable(result.out));
}

void TestQueuectlOutages::tableInRussian()
{
    journal->put(late(1, 60, 600));
    const CommandResult result = till->run({u"outages"_s, u"--since"_s, u"2h"_s}, {}, russian);
    QVERIFY2(result.out.contains(u"10 мин"_s), qPrintable(result.out));
    QVERIFY2(result.out.contains(u"сбой продолжается"_s), qPrintable(result.out));
}

void TestQueuectlOutages::json()
{
    journal->put(kept(2, 60, 600));
    journal->streak(u"heineken"_s, 0, 600);
    const QJsonObject object = till->run({u"outages"_s, u"--since"_s, u"2h"_s, u"--json"_s}).json();
    const QJsonArray outages = object.value(u"outages"_s).toArray();
    QCOMPARE(outages.size(), 1);
    const QJsonObject outage = outages.first().toObject();
    QCOMPARE(outage.keys(), (QStringList{u"answer"_s, u"cause"_s, u"from"_s, u"messages"_s,
                                         u"seconds"_s, u"type"_s, u"until"_s}));
    QVERIFY(outage.value(u"until"_s).isNull());
    QCOMPARE(outage.value(u"cause"_s).toString(), u"service"_s);
    QCOMPARE(outage.value(u"answer"_s).toString(), u"503"_s);
    QVERIFY(outage.value(u"seconds"_s).toInteger() >= 660);
}

void TestQueuectlOutages::nothingToTell()
{
    journal->put(atOnce(1, 60));
    const CommandResult result = till->run({u"outages"_s, u"--since"_s, u"2h"_s});
    QCOMPARE(result.exitCode, ExitCode::Done);
    QVERIFY2(result.out.startsWith(u"No service was away since "_s), qPrintable(result.out));
}

void TestQueuectlOutages::refusals()
{
    const CommandResult slip = till->run({u"outages"_s, u"--type"_s, u"heinekn"_s});
    QCOMPARE(slip.exitCode, ExitCode::NotFound);
    QVERIFY2(slip.err.contains(u"did you mean heineken?"_s), qPrintable(slip.err));
    QCOMPARE(till->run({u"outages"_s, u"--since"_s, u"soon"_s}).exitCode, ExitCode::Usage);
    const QString file = journal->file();
    journal.reset();
    QVERIFY(QFile::remove(file));
    const CommandResult missing = till->run({u"outages"_s});
    QCOMPARE(missing.exitCode, ExitCode::NotFound);
    QVERIFY2(missing.err.contains(u"There is no delivery journal"_s), qPrintable(missing.err));
}

QTEST_GUILESS_MAIN(TestQueuectlOutages)
#include "tst_queuectloutages.moc"
