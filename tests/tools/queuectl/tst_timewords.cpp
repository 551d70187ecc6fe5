#include "tools/queuectl/failure.h"
#include "tools/queuectl/timewords.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

/// The times that an operator types.
class TestTimeWords : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void times_data();
    void times();
    void refused_data();
    void refused();
    void dayOfAClockChange();
    void exact();

private:
    const QDateTime now{QDate(2026, 11, 22), QTime(14, 30, 15)};
};

void TestTimeWords::initTestCase()
{
    // A zone whose clocks change; the till's own may have none.
    qputenv("TZ", "Europe/Berlin");
    tzset();
}

void TestTimeWords::times_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("last");
    const auto moment = [](const char *name, const QString &word, const QString &time) {
        QTest::newRow(name) << word << time << time;
    };
    QTest::newRow("today") << u"today"_s << u"2026-11-22T00:00:00"_s << u"2026-11-23T00:00:00"_s;
    QTest::newRow("сегодня") << u"Сегодня"_s << u"2026-11-22T00:00:00"_s
                             << u"2026-11-23T00:00:00"_s;
    QTest::newRow("yesterday") << u"yesterday"_s << u"2026-11-21T00:00:00"_s
                               << u"2026-11-22T00:00:00"_s;
    QTest::newRow("вчера") << u"вчера"_s << u"2026-11-21T00:00:00"_s << u"2026-11-22T00:00:00"_s;
    QTest::newRow("a day") << u"2026-02-28"_s << u"2026-02-28T00:00:00"_s
                           << u"2026-03-01T00:00:00"_s;
    moment("minutes", u"45min"_s, u"2026-11-22T13:45:15"_s);
    moment("hours", u"2h"_s, u"2026-11-22T12:30:15"_s);
    moment("hours in Russian", u"2ч"_s, u"2026-11-22T12:30:15"_s);
    moment("days", u"7d"_s, u"2026-11-15T14:30:15"_s);
    moment("days in Russian", u"7д"_s, u"2026-11-15T14:30:15"_s);
    moment("minutes in Russian", u"45мин"_s, u"2026-11-22T13:45:15"_s);
    moment("time of day", u"09:05"_s, u"2026-11-22T09:05:00"_s);
    moment("with seconds", u"09:05:07"_s, u"2026-11-22T09:05:07"_s);
    moment("date and time", u"2026-11-20 14:00"_s, u"2026-11-20T14:00:00"_s);
    moment("ISO", u"2026-11-20T14:00:05"_s, u"2026-11-20T14:00:05"_s);
    moment("ISO with a zone", u"2026-11-20T14:00:05+03:00"_s, u"2026-11-20T12:00:05"_s);
    moment("ISO in UTC", u"2026-11-20T14:00:05Z"_s, u"2026-11-20T15:00:05"_s);
    moment("as the history prints it", u"2026-11-20T14:00:05.123+01:00"_s,
           u"2026-11-20T14:00:05.123"_s);
}

void TestTimeWords::times()
{
    QFETCH(const QString, word);
    QFETCH(const QString, first);
    QFETCH(const QString, last);
    const auto expected = [](const QString &text) {
        return QDateTime::fromString(text, Qt::ISODateWithMs);
    };
    QCOMPARE(readTime(u"since"_s, word, DayEnd::First, now), expected(first));
    QCOMPARE(readTime(u"until"_s, word, DayEnd::Last, now), expected(last));
}

void TestTimeWords::refused_data()
{
    QTest::addColumn<QString>("word");
    for (const char *word : {"", "tomorrow", "2", "h", "0h", "-2h", "2 h", "2w",
                             "99999999999999999999h", "4000d", "2026-13-01", "2026-02-30", "25:00",
                             "2026-11-22 25:00", "11-22", "2h3h", "٢h", "\x1b[31m"})
        QTest::newRow(word) << QString::fromUtf8(word);
}

void TestTimeWords::refused()
{
    QFETCH(const QString, word);
    try {
        readTime(u"since"_s, word, DayEnd::First, now);
        QFAIL("it was taken");
    } catch (const Failure &failure) {
        QCOMPARE(failure.exitCode(), Usage);
        QVERIFY(failure.tr().ru().contains(u"--since"));
        QVERIFY(failure.tr().ru().contains(word));
    }
}

void TestTimeWords::dayOfAClockChange()
{
    // 2026-10-25 has 25 hours there: a day back is the same time of day, 24 hours are not.
    const QDateTime noon(QDate(2026, 10, 25), QTime(12, 0));
    QCOMPARE(readTime(u"since"_s, u"1d"_s, DayEnd::First, noon).time(), QTime(12, 0));
    QCOMPARE(readTime(u"since"_s, u"24h"_s, DayEnd::First, noon).time(), QTime(13, 0));
}

void TestTimeWords::exact()
{
    QCOMPARE(exactTime(QDateTime(QDate(2026, 11, 22), QTime(14, 0, 5, 123))),
             u"2026-11-22T14:00:05.123+01:00"_s);
    QCOMPARE(exactTime(QDateTime(QDate(2026, 7, 1), QTime(14, 0))),
             u"2026-07-01T14:00:00.000+02:00"_s);
    QCOMPARE(exactTime(QDateTime()), QString());
}

QTEST_GUILESS_MAIN(TestTimeWords)
#include "tst_timewords.moc"
