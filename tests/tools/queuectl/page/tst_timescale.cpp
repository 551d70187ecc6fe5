#include "tools/queuectl/page/timescale.h"

#include <QtTest>

#include <ctime>

using namespace Qt::StringLiterals;
using namespace queuectl;

namespace {

const QString form = u"yyyy-MM-dd HH:mm"_s;

QDateTime at(const QString &text)
{
    return QDateTime::fromString(text, form);
}

} // namespace

/// The parts of the time of a chart, in a zone whose clock changes.
class TestTimeScale : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void parts_data();
    void parts();
    void partsOfTimes();
    void positions();
    void marksKeepApart_data();
    void marksKeepApart();
    void endBeforeBegin();
};

void TestTimeScale::initTestCase()
{
    qputenv("TZ", "Europe/Berlin");
    qputenv("LC_ALL", "C.UTF-8");
    ::tzset();
}

void TestTimeScale::parts_data()
{
    QTest::addColumn<QString>("begin");
    QTest::addColumn<QString>("end");
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<int>("count");
    QTest::addColumn<QString>("secondEdge");
    const auto row = [](const char *name, const char *begin, const char *end, qint64 seconds,
                        int count, const char *secondEdge) {
        QTest::newRow(name) << QString::fromLatin1(begin) << QString::fromLatin1(end) << seconds
                            << count << QString::fromLatin1(secondEdge);
    };
    row("two hours", "2026-11-22 12:07", "2026-11-22 14:07", 900, 9, "2026-11-22 12:15");
    row("a day", "2026-11-21 14:10", "2026-11-22 14:10", 1800, 49, "2026-11-21 14:30");
    row("a week", "2026-11-15 14:10", "2026-11-22 14:10", 3 * 3600, 57, "2026-11-15 15:00");
    row("a week from midnight", "2026-11-15 00:00", "2026-11-22 00:00", 3 * 3600, 56,
        "2026-11-15 03:00");
    row("a month", "2026-05-23 14:10", "2026-06-22 14:10", 12 * 3600, 61, "2026-05-24 00:00");
    row("a year", "2025-11-22 14:10", "2026-11-22 14:10", 7 * 86400, 53, "2025-11-29 00:00");
    // Two o'clock does not come; or it comes twice, which makes one part longer.
    row("an hour less", "2026-03-28 12:00", "2026-03-29 12:00", 1800, 46, "2026-03-28 12:30");
    row("an hour more", "2026-10-24 12:00", "2026-10-25 12:00", 1800, 48, "2026-10-24 12:30");
}

void TestTimeScale::parts()
{
    QFETCH(const QString, begin);
    QFETCH(const QString, end);
    QFETCH(const qint64, seconds);
    QFETCH(const int, count);
    QFETCH(const QString, secondEdge);
    const TimeScale scale(at(begin), at(end));
    QCOMPARE(scale.partSeconds(), seconds);
    QCOMPARE(scale.count(), count);
    QCOMPARE(scale.edge(0), at(begin));
    QCOMPARE(scale.edge(1).toString(form), secondEdge);
    QCOMPARE(scale.edge(count), at(end));
    for (int part = 0; part < count; ++part)
        QVERIFY(scale.edge(part) < scale.edge(part + 1));
}

void TestTimeScale::partsOfTimes()
{
    const TimeScale scale(at(u"2026-11-15 14:10"_s), at(u"2026-11-22 14:10"_s));
    QCOMPARE(scale.partOf(at(u"2026-11-15 14:09"_s)), -1);
    QCOMPARE(scale.partOf(at(u"2026-11-15 14:10"_s)), 0);
    QCOMPARE(scale.partOf(at(u"2026-11-15 14:59"_s)), 0);
    QCOMPARE(scale.partOf(at(u"2026-11-15 15:00"_s)), 1);
    QCOMPARE(scale.partOf(at(u"2026-11-22 14:09"_s)), scale.count() - 1);
    QCOMPARE(scale.partOf(at(u"2026-11-22 14:10"_s)), -1);
    QCOMPARE(scale.partOf(QDateTime()), -1);
}

void TestTimeScale::positions()
{
    const TimeScale scale(at(u"2026-11-21 12:00"_s), at(u"2026-11-22 12:00"_s));
    QCOMPARE(scale.position(at(u"2026-11-20 12:00"_s)), 0.0);
    QCOMPARE(scale.position(at(u"2026-11-21 18:00"_s)), 0.25);
    QCOMPARE(scale.position(at(u"2026-11-23 12:00"_s)), 1.0);
}

void TestTimeScale::marksKeepApart_data()
{
    QTest::addColumn<qint64>("seconds");
    QTest::addColumn<QString>("text");
    QTest::newRow("ten minutes") << qint64(600) << QString();
    QTest::newRow("an hour") << qint64(3600) << u"13:15"_s;
    QTest::newRow("a day") << qint64(86400) << u"18:00"_s;
    QTest::newRow("a week") << qint64(7 * 86400) << u"17 Nov"_s;
    QTest::newRow("a month") << qint64(30 * 86400) << u"27 Oct"_s;
    QTest::newRow("a year") << qint64(365 * 86400) << u"7 Jan"_s;
}

void TestTimeScale::marksKeepApart()
{
    QFETCH(const qint64, seconds);
    QFETCH(const QString, text);
    const QDateTime end = at(u"2026-11-22 14:10"_s);
    const QList<TimeScale::Mark> marks = TimeScale(end.addSecs(-seconds), end).marks();
    QVERIFY(marks.size() <= 9);
    double former = 0;
    QStringList texts;
    for (const TimeScale::Mark &mark : marks) {
        QVERIFY2(mark.position - former > 0.05, qPrintable(mark.text));
        former = mark.position;
        texts.append(mark.text);
    }
    QVERIFY(former < 0.95);
    QVERIFY2(text.isEmpty() || texts.contains(text), qPrintable(texts.join(u' ')));
}

void TestTimeScale::endBeforeBegin()
{
    const QDateTime begin = at(u"2026-11-22 14:10"_s);
    const TimeScale scale(begin, begin.addDays(-1));
    QCOMPARE(scale.end(), begin.addSecs(60));
    QCOMPARE(scale.count(), 1);
}

QTEST_GUILESS_MAIN(TestTimeScale)
#include "tst_timescale.moc"
