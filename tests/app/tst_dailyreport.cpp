#include "app/dailyreport.h"
#include "tests/support/fixedtime.h"
#include "tests/support/logcapture.h"

#include <QTest>

#include <thread>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

class Recorder : public OutcomeSink
{
public:
    void take(const Outcome &outcome) override { got.append(QString::number(outcome.id)); }
    void note(const Fact &fact) override { got.append(fact.name); }
    QStringList got;
};

Outcome attempt(const QString &type, Verdict verdict)
{
    Outcome outcome;
    outcome.id = 7;
    outcome.type = type;
    outcome.verdict = verdict;
    return outcome;
}

/// In the till's own zone.
qint64 at(const QString &time)
{
    return QDateTime::fromString(time, Qt::ISODate).toSecsSinceEpoch();
}

} // namespace

class TestDailyReport : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void reportsOnceADay();
    void reportsTheRestAtTheEnd();
    void clockThatWasSetBackCountsAsAnotherDay();
    void passesEverythingOn();
    void countsReportsOfManyWorkers();
};

void TestDailyReport::reportsOnceADay()
{
    FixedTime time(at(u"2026-11-22T08:01:00"_s));
    const LogCapture log(u"outcome"_s);
    DailyReport report(nullptr);
    report.take(attempt(u"cardlab"_s, Verdict::Delivered));
    report.take(attempt(u"cardlab"_s, Verdict::Kept));
    report.take(attempt(u"cardlab"_s, Verdict::Kept));
    report.take(attempt(u"cardlab"_s, Verdict::Delivered));
    report.take(attempt(u"atolpay"_s, Verdict::Dropped));
    time.set(at(u"2026-11-22T23:59:59"_s));
    report.reportIfDue();
    QCOMPARE(log.lines(), QStringList());
    time.set(at(u"2026-11-23T00:00:10"_s));
    report.reportIfDue();
    QCOMPARE(
        log.lines(),
        (QStringList{
            u"INFO Итоги с 2026-11-22 08:01: доставлено 2, снято с доставки 1, неудачных попыток 2"_s,
            u"INFO   atolpay: доставлено 0, снято с доставки 1, неудачных попыток 0"_s,
            u"INFO   cardlab: доставлено 2, снято с доставки 0, неудачных попыток 2"_s}));
    report.reportIfDue();
    QCOMPARE(log.lines().size(), 3);
    time.set(at(u"2026-11-24T00:00:15"_s));
    report.reportIfDue();
    QCOMPARE(log.lines().mid(3),
             QStringList{u"INFO Итоги с 2026-11-23 00:00: сообщений не было"_s});
}

/// A till that is switched off each evening would never write its report.
void TestDailyReport::reportsTheRestAtTheEnd()
{
    const FixedTime time(at(u"2026-11-22T08:01:00"_s));
    const LogCapture log(u"outcome"_s);
    DailyReport report(nullptr);
    report.reportRest();
    QCOMPARE(log.lines(), QStringList());
    report.take(attempt(u"cardlab"_s, Verdict::Delivered));
    report.reportRest();
    QCOMPARE(log.lines().size(), 2);
    report.reportRest();
    QCOMPARE(log.lines().size(), 2);
}

void TestDailyReport::clockThatWasSetBackCountsAsAnotherDay()
{
    FixedTime time(at(u"2026-11-22T08:01:00"_s));
    const LogCapture log(u"outcome"_s);
    DailyReport report(nullptr);
    report.take(attempt(u"cardlab"_s, Verdict::Delivered));
    time.set(at(u"2001-01-01T00:00:00"_s));
    report.reportIfDue();
    report.reportIfDue();
    QCOMPARE(log.lines().size(), 2);
}

void TestDailyReport::passesEverythingOn()
{
    const auto next = std::make_shared<Recorder>();
    DailyReport report(next);
    report.note({.name = u"clock"_s});
    report.take(attempt(u"cardlab"_s, Verdict::Kept));
    QCOMPARE(next->got, (QStringList{u"clock"_s, u"7"_s}));
}

void TestDailyReport::countsReportsOfManyWorkers()
{
    const LogCapture log(u"outcome"_s);
    DailyReport report(nullptr);
    std::vector<std::thread> workers;
    for (int worker = 0; worker < 4; ++worker) {
        workers.emplace_back([&] {
            for (int i = 0; i < 500; ++i)
                report.take(attempt(u"cardlab"_s, Verdict::Delivered));
        });
    }
    for (std::thread &worker : workers)
        worker.join();
    report.reportRest();
    QVERIFY2(log.lines().last().contains(u"доставлено 2000,"), qPrintable(log.lines().last()));
}

QTEST_GUILESS_MAIN(TestDailyReport)
#include "tst_dailyreport.moc"
