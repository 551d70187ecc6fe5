#include "shared/net/httpdate.h"

#include <QDateTime>
#include <QTest>

using namespace Qt::StringLiterals;

class TestHttpDate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void dates_data();
    void dates();
    void everyDayOfYears();
};

void TestHttpDate::dates_data()
{
    QTest::addColumn<QByteArray>("text");
    /// Empty: nothing is read.
    QTest::addColumn<QString>("time");
    const auto row = [](const char *name, const char *text, const QString &time = {}) {
        QTest::newRow(name) << QByteArray(text) << time;
    };
    // clang-format off
    row("as HTTP writes it",   "Sun, 06 Nov 1994 08:49:37 GMT",  u"1994-11-06T08:49:37Z"_s);
    row("a leap day",          "Thu, 29 Feb 2024 23:59:59 GMT",  u"2024-02-29T23:59:59Z"_s);
    row("a leap second",       "Sat, 31 Dec 2016 23:59:60 GMT",  u"2017-01-01T00:00:00Z"_s);
    row("another day's name",  "Mon, 06 Nov 1994 08:49:37 GMT",  u"1994-11-06T08:49:37Z"_s);
    row("no leap year",        "Wed, 29 Feb 2023 23:59:59 GMT");
    row("no such day",         "Sun, 00 Nov 1994 08:49:37 GMT");
    row("no such day's name",  "Abc, 06 Nov 1994 08:49:37 GMT");
    row("no such month",       "Sun, 06 Növ 1994 08:49:37 GMT");
    row("month in lower case", "Sun, 06 nov 1994 08:49:37 GMT");
    row("no such hour",        "Sun, 06 Nov 1994 24:00:00 GMT");
    row("no such minute",      "Sun, 06 Nov 1994 08:60:00 GMT");
    row("no such second",      "Sun, 06 Nov 1994 08:49:61 GMT");
    row("another zone",        "Sun, 06 Nov 1994 08:49:37 MSK");
    row("an offset",           "Sun, 06 Nov 1994 08:49:37 +0300");
    row("no zone",             "Sun, 06 Nov 1994 08:49:37");
    row("a letter",            "Sun, 06 Nov 1994 08:4x:37 GMT");
    row("a sign",              "Sun, -6 Nov 1994 08:49:37 GMT");
    row("day without a zero",  "Sun, 6 Nov 1994 08:49:37 GMT");
    row("a form of old",       "Sunday, 06-Nov-94 08:49:37 GMT");
    row("a form of C",         "Sun Nov  6 08:49:37 1994");
    row("more after it",       "Sun, 06 Nov 1994 08:49:37 GMT;");
    row("empty",               "");
    row("rubbish",             "\xff\xfe");
    // clang-format on
}

void TestHttpDate::dates()
{
    QFETCH(QByteArray, text);
    QFETCH(QString, time);
    const auto read = http::parseDate(text);
    QCOMPARE(read.has_value(), !time.isEmpty());
    if (read)
        QCOMPARE(QDateTime::fromSecsSinceEpoch(read->time_since_epoch().count(), Qt::UTC),
                 QDateTime::fromString(time, Qt::ISODate));
}

void TestHttpDate::everyDayOfYears()
{
    const QDateTime begin(QDate(1999, 1, 1), QTime(0, 0, 1), Qt::UTC);
    for (int day = 0; day < 40 * 366; ++day) {
        const QDateTime time = begin.addSecs(qint64{day} * 86'399);
        const QString text = QLocale::c().toString(time, u"ddd, dd MMM yyyy HH:mm:ss 'GMT'"_s);
        const auto read = http::parseDate(text.toUtf8());
        QVERIFY2(read.has_value(), qPrintable(text));
        QCOMPARE(read->time_since_epoch().count(), time.toSecsSinceEpoch());
    }
}

QTEST_GUILESS_MAIN(TestHttpDate)
#include "tst_httpdate.moc"
