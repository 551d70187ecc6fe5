#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"
#include "tools/queuectl/page/pagevalues.h"

#include <QtTest>

#include <numeric>

using namespace Qt::StringLiterals;
using namespace queuectl;

namespace {

const QString body = u"{\"url\":\"https://sales.example:8443/v2\",\"body\":\"1\"}"_s;

int sumOf(const QList<int> &values)
{
    return std::accumulate(values.cbegin(), values.cend(), 0);
}

/// The values of the last seven days.
PageValues week()
{
    const QDateTime now = QDateTime::currentDateTime();
    return collectPage(now.addDays(-7), now);
}

/// Seconds ago, to the minute.
int minutesAgo(const QDateTime &time)
{
    return static_cast<int>((time.secsTo(QDateTime::currentDateTime()) + 30) / 60);
}

/// As in "heineken 90-30, messages: 2".
QString shownOutage(const Outage &outage)
{
    return u"%1 %2-%3, messages: %4"_s.arg(
        outage.type, QString::number(minutesAgo(outage.begin)),
        outage.isOngoing ? u"now"_s : QString::number(minutesAgo(outage.end)),
        QString::number(outage.messages));
}

/// A message by its first attempt and its delivery, in minutes ago.
Record delivered(int first, int last, const QString &type = u"heineken"_s)
{
    return {.type = type,
            .attempts = first == last ? 1 : 3,
            .secondsAgo = last * 60,
            .spanSeconds = (first - last) * 60};
}

/// The same of one that was not delivered.
Record failed(const QString &verdict, const QString &kind, int first, int last)
{
    return {.verdict = verdict,
            .kind = kind,
            .status = 0,
            .attempts = 3,
            .secondsAgo = last * 60,
            .spanSeconds = (first - last) * 60};
}

using Records = QList<Record>;

} // namespace

Q_DECLARE_METATYPE(Record)

/// What is gathered for the page.
class TestReportValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void countsByTypeAndTime();
    void firstQuarterIsCut();
    void failingTypesComeFirst();
    void outages_data();
    void outages();
    void outagesBeforeTheTime();
    void waitingByAgeAndCause();
    void addressesOfTypes();
    void droppedNewestFirst();
    void listsHaveLimits();
    void secretsAreMasked();
    void withoutJournal();
    void withoutDatabase();
    void journalBeginsLater();
    void plansUseIndexes();

private:
    std::unique_ptr<Till> till;
    std::unique_ptr<JournalFixture> journal;
};

void TestReportValues::init()
{
    qputenv("LC_ALL", "C.UTF-8");
    journal.reset();
    till.reset();
    till = std::make_unique<Till>();
    journal = std::make_unique<JournalFixture>(till->database.root());
}

void TestReportValues::countsByTypeAndTime()
{
    constexpr int day = 24 * 60;
    journal->put(delivered(2 * day, 2 * day));
    journal->put(delivered(2 * day, 2 * day - 300));
    journal->put(delivered(60, 60, u"loya"_s));
    journal->put(failed(u"dropped"_s, u"request"_s, 30, 10));
    journal->put(failed(u"kept"_s, u"network"_s, 8 * day, 10));
    journal->put(delivered(8 * day, 8 * day));
    const PageValues page = week();
    QCOMPARE(page.types.size(), 2);
    QCOMPARE(page.types[0].type, u"heineken"_s);
    QCOMPARE(page.types[0].delivered, 2);
    // The one that was first tried before the week counts no more.
    QCOMPARE(page.types[0].failed, 2);
    QCOMPARE(page.types[0].dropped, 1);
    QCOMPARE(page.types[1].delivered, 1);
    QCOMPARE(sumOf(page.flow.delivered), 3);
    QCOMPARE(sumOf(page.flow.failed), 2);
    QCOMPARE(sumOf(page.flow.dropped), 1);
    const QDateTime now = page.scale.end();
    QCOMPARE(page.flow.delivered[page.scale.partOf(now.addSecs(-3600))], 1);
    QCOMPARE(page.flow.failed[page.scale.partOf(now.addSecs(-2 * day * 60))], 1);
    QCOMPARE(page.flow.delivered[page.scale.partOf(now.addSecs((300 - 2 * day) * 60))], 1);
}

/// The beginning lies within a quarter of an hour by which SQLite counts.
void TestReportValues::firstQuarterIsCut()
{
    const QDateTime now = QDateTime::currentDateTime();
    journal->put(delivered(119, 119));
    journal->put(delivered(121, 121));
    const PageValues page = collectPage(now.addSecs(-2 * 3600), now);
    QCOMPARE(sumOf(page.flow.delivered), 1);
    QCOMPARE(page.flow.delivered[page.scale.partOf(now.addSecs(-119 * 60))], 1);
}

void TestReportValues::failingTypesComeFirst()
{
    for (int i = 0; i < 3; ++i)
        journal->put(delivered(60, 60));
    journal->put(delivered(60, 60, u"loya"_s));
    journal->streak(u"heineken"_s, 60, 0);
    journal->streak(u"loya"_s, 3600, 600);
    // Nothing of this type waits any more.
    journal->streak(u"spasibo"_s, 3600, 600);
    till->database.put(u"loya"_s, body);
    const PageValues page = week();
    QCOMPARE(page.types.size(), 2);
    QCOMPARE(page.types[0].type, u"loya"_s);
    QCOMPARE(minutesAgo(page.types[0].failingSince), 10);
    QVERIFY(!page.types[1].failingSince.isValid());
}

void TestReportValues::outages_data()
{
    QTest::addColumn<Records>("records");
    QTest::addColumn<bool>("isFailing");
    QTest::addColumn<QStringList>("wanted");
    const auto row = [](const char *name, const Records &records, const QStringList &wanted,
                        bool isFailing = false) {
        QTest::newRow(name) << records << isFailing << wanted;
    };
    row("all went well", {delivered(90, 90), delivered(30, 30)}, {});
    row("from the first failure to the next delivery",
        {delivered(95, 95), delivered(90, 30), delivered(80, 29)},
        {u"heineken 90-30, messages: 2"_s});
    row("delivery between two failures", {delivered(90, 60), delivered(50, 30)},
        {u"heineken 90-60, messages: 1"_s, u"heineken 50-30, messages: 1"_s});
    row("others are delivered while one is repeated",
        {delivered(90, 10), delivered(80, 80), delivered(70, 70)},
        {u"heineken 90-80, messages: 1"_s});
    row("refused", {failed(u"kept"_s, u"request"_s, 90, 10), delivered(5, 5)}, {});
    row("no access", {failed(u"kept"_s, u"credentials"_s, 90, 10), delivered(5, 5)}, {});
    row("stays, cannot be reached", {failed(u"kept"_s, u"network"_s, 90, 10)},
        {u"heineken 90-now, messages: 1"_s}, true);
    row("stays, and others were delivered since",
        {failed(u"kept"_s, u"service"_s, 90, 10), delivered(60, 60)},
        {u"heineken 90-60, messages: 1"_s});
    row("dropped in the end", {failed(u"dropped"_s, u"certificate"_s, 90, 40)},
        {u"heineken 90-40, messages: 1"_s});
    row("repeated at once",
        {{.attempts = 2, .secondsAgo = 600, .spanSeconds = 59}, delivered(5, 5)}, {});
    row("types by themselves", {delivered(90, 30), delivered(60, 60, u"loya"_s)},
        {u"heineken 90-30, messages: 1"_s});
}

void TestReportValues::outages()
{
    QFETCH(const Records, records);
    QFETCH(const bool, isFailing);
    QFETCH(const QStringList, wanted);
    for (const Record &record : records)
        journal->put(record);
    journal->streak(u"heineken"_s, 60, isFailing ? 5400 : 0);
    const PageValues page = week();
    QStringList found;
    for (const Outage &outage : page.outages)
        found.append(shownOutage(outage));
    QCOMPARE(found, wanted);
}

void TestReportValues::outagesBeforeTheTime()
{
    journal->put(delivered(200, 100));
    journal->put(delivered(90, 5));
    const QDateTime now = QDateTime::currentDateTime();
    const PageValues page = collectPage(now.addSecs(-3600), now);
    QCOMPARE(page.outages.size(), 1);
    QCOMPARE(shownOutage(page.outages[0]), u"heineken 90-5, messages: 1"_s);
}

void TestReportValues::waitingByAgeAndCause()
{
    const auto put = [this](int secondsAgo, const QString &kind, const QString &type) {
        const int id = till->database.put(type, body);
        till->setAge(id, secondsAgo);
        if (!kind.isEmpty())
            journal->put({.id = id, .type = type, .verdict = u"kept"_s, .kind = kind});
    };
    put(5, {}, u"heineken"_s);
    put(700, u"network"_s, u"heineken"_s);
    put(800, u"network"_s, u"loya"_s);
    put(90'000, u"network"_s, u"heineken"_s);
    const PageValues page = week();
    QCOMPARE(page.waiting, 4);
    QVERIFY(page.oldestSeconds >= 90'000 && page.oldestSeconds < 90'100);
    QCOMPARE(page.waitingCauses.size(), 2);
    QCOMPARE(page.waitingCauses[0].cause, Cause::Network);
    QCOMPARE(page.waitingCauses[0].ages, (QList<int>{0, 2, 0, 1}));
    QCOMPARE(page.waitingCauses[0].total, 3);
    QCOMPARE(page.waitingCauses[1].cause, Cause::Turn);
    QCOMPARE(page.waitingCauses[1].ages, (QList<int>{1, 0, 0, 0}));
    QStringList types;
    for (const WaitingType &type : page.waitingTypes)
        types.append(
            u"%1 %2 %3"_s.arg(type.type, causeName(type.cause), QString::number(type.count)));
    QCOMPARE(types,
             (QStringList{u"heineken network 2"_s, u"heineken turn 1"_s, u"loya network 1"_s}));
    QCOMPARE(page.destinations.size(), 1);
    QCOMPARE(page.destinations[0].address, u"sales.example:8443"_s);
}

void TestReportValues::addressesOfTypes()
{
    till->setSettings(u"[ApMindbox]\nurl = https://mail.example/v3\n"_s);
    till->database.put(u"heineken"_s, body);
    const PageValues page = week();
    QCOMPARE(page.addresses.value(u"heineken"_s), u"sales.example:8443"_s);
    QCOMPARE(page.addresses.value(u"apmindbox"_s), u"mail.example"_s);
    QVERIFY(!page.addresses.contains(u"loya"_s));
}

void TestReportValues::droppedNewestFirst()
{
    for (int id = 1; id <= 60; ++id)
        journal->put({.id = id,
                      .verdict = u"dropped"_s,
                      .kind = u"request"_s,
                      .status = 422,
                      .text = u"unknown card"_s,
                      .reference = u"4711"_s,
                      .attempts = 2,
                      .secondsAgo = 100 * id});
    const PageValues page = week();
    QCOMPARE(page.dropped.size(), 50);
    QCOMPARE(page.furtherDropped, 10);
    const DroppedMessage first = page.dropped.first();
    QCOMPARE(first.id, 1);
    QCOMPARE(first.reference, u"4711"_s);
    QCOMPARE(first.attempts, 2);
    QCOMPARE(first.cause, Cause::Request);
    QCOMPARE(first.answer, u"HTTP 422, unknown card"_s);
    QCOMPARE(page.dropped.last().id, 50);
}

/// A table and a journal may hold types of any number.
void TestReportValues::listsHaveLimits()
{
    journal->run(u"BEGIN"_s);
    for (int i = 0; i < 100; ++i) {
        const QString type = u"type-%1"_s.arg(i);
        journal->put(delivered(90 + i, 30, type));
        till->database.put(type, u"{\"url\":\"https://host-%1.example/\"}"_s.arg(i));
    }
    journal->run(u"COMMIT"_s);
    const PageValues page = week();
    QCOMPARE(page.types.size() + page.furtherTypes, 100);
    QCOMPARE(page.furtherTypes, 40);
    QCOMPARE(page.waitingTypes.size() + page.furtherWaitingTypes, 100);
    QCOMPARE(page.furtherWaitingTypes, 60);
    QCOMPARE(page.destinations.size() + page.furtherDestinations, 100);
    QCOMPARE(page.furtherDestinations, 70);
    QCOMPARE(page.concerns.size() + page.furtherConcerns, 100);
    QCOMPARE(page.furtherConcerns, 70);
    QCOMPARE(page.outages.size() + page.furtherOutages, 100);
    QCOMPARE(page.furtherOutages, 60);
    // The longest ones stay.
    QVERIFY(std::all_of(page.outages.cbegin(), page.outages.cend(),
                        [](const Outage &outage) { return outage.seconds() >= 120 * 60; }));
}

void TestReportValues::secretsAreMasked()
{
    till->setSettings(u"[apmindbox]\npassword = hunter2\n"_s);
    till->database.put(u"heineken"_s, u"{\"host\":\"h/?token=hunter2&card=4276380012345678\"}"_s);
    journal->put({.verdict = u"dropped"_s,
                  .kind = u"request"_s,
                  .text = u"{\"password\":\"hunter2\"} card 4276380012345678"_s,
                  .reference = u"/v2?token=hunter2"_s});
    const PageValues page = week();
    QCOMPARE(page.dropped.first().reference, u"/v2?token=***"_s);
    QVERIFY(page.dropped.first().answer.contains(u"***5678"_s));
    QVERIFY(page.destinations.first().address.contains(u"***5678"_s));
    QVERIFY(page.settings.first().text.contains(u"password = ***"_s));
    QVERIFY(!page.settings.first().text.contains(u"hunter2"_s));
    QVERIFY(!page.dropped.first().answer.contains(u"hunter2"_s));
    QVERIFY(!page.destinations.first().address.contains(u"hunter2"_s));
}

void TestReportValues::withoutJournal()
{
    journal->close();
    QVERIFY(QFile::remove(journal->file()));
    till->database.put(u"heineken"_s, body);
    const PageValues page = week();
    QVERIFY2(page.journalFault.startsWith(u"There is no delivery journal yet"_s),
             qPrintable(page.journalFault));
    QCOMPARE(page.waiting, 1);
    QVERIFY(page.types.isEmpty() && page.outages.isEmpty() && page.dropped.isEmpty());
    QVERIFY(!page.hasService);
    QVERIFY(page.versions.first().startsWith(u"queue "_s));
}

void TestReportValues::withoutDatabase()
{
    till->setSettings(u"[database]\nname = /nowhere/queues.db\n"_s);
    journal->put(delivered(60, 60));
    const PageValues page = week();
    QVERIFY2(page.databaseFault.contains(u"/nowhere/queues.db"_s), qPrintable(page.databaseFault));
    QCOMPARE(page.waiting, 0);
    QCOMPARE(sumOf(page.flow.delivered), 1);
}

void TestReportValues::journalBeginsLater()
{
    journal->put(delivered(60, 60));
    QCOMPARE(minutesAgo(week().journalBegin), 60);
    journal->run(u"UPDATE outcome SET first = first - 700000000"_s);
    QVERIFY(!week().journalBegin.isValid());
}

void TestReportValues::plansUseIndexes()
{
    const QDateTime now = QDateTime::currentDateTime();
    for (const JournalStatement &statement : {endedByTimeStatement(now), failedByTimeStatement(now),
                                              failedStatement(now), deliveriesStatement(now)}) {
        const QStringList plan = journal->plan(statement.text, statement.values);
        QVERIFY2(plan.first().startsWith(u"SEARCH outcome USING INDEX outcome_last"_s),
                 qPrintable(plan.join(u'\n')));
    }
    // However many there are, they are not sorted.
    const JournalStatement deliveries = deliveriesStatement(now);
    QCOMPARE(journal->plan(deliveries.text, deliveries.values).size(), 1);
}

QTEST_GUILESS_MAIN(TestReportValues)
#include "tst_reportvalues.moc"
