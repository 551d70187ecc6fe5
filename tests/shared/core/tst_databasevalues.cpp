#include "shared/core/databasevalues.h"

#include <QDateTime>
#include <QSqlError>
#include <QTest>

using namespace Qt::StringLiterals;

class TestDatabaseValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void errorHasAText_data();
    void errorHasAText();
    void time_data();
    void time();
};

void TestDatabaseValues::errorHasAText_data()
{
    QTest::addColumn<QSqlError>("error");
    QTest::addColumn<QString>("statement");
    QTest::addColumn<QString>("text");

    const QString silent = u"драйвер базы данных не назвал причину"_s;
    QTest::newRow("the driver's words")
        << QSqlError(u"Unable to fetch row"_s, u"database is locked"_s) << u"SELECT 1"_s
        << u"database is locked Unable to fetch row"_s;
    QTest::newRow("nothing") << QSqlError() << QString() << silent;
    QTest::newRow("blanks") << QSqlError(u" "_s, u"\n"_s) << QString() << silent;
    QTest::newRow("a statement") << QSqlError() << u"SELECT 1"_s
                                 << silent + u", запрос: SELECT 1"_s;
    QTest::newRow("a code") << QSqlError(QString(), QString(), QSqlError::StatementError, u"2014"_s)
                            << u"SELECT 1"_s << silent + u", код ошибки 2014, запрос: SELECT 1"_s;
}

void TestDatabaseValues::errorHasAText()
{
    QFETCH(QSqlError, error);
    QFETCH(QString, statement);
    QFETCH(QString, text);
    QCOMPARE(databaseErrorText(error, statement), text);
}

void TestDatabaseValues::time_data()
{
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QDateTime>("time");

    const QDate day(2026, 2, 3);
    const QDateTime local(day, QTime(4, 5, 6));
    // The time zone of this test is five hours ahead of UTC.
    const QDateTime early(day, QTime(9, 5, 6));
    // clang-format off
    QTest::newRow("text, as our schema writes it") << QVariant(u"2026-02-03 04:05:06"_s)        << local;
    QTest::newRow("text with a T")                 << QVariant(u"2026-02-03T04:05:06"_s)        << local;
    QTest::newRow("text with milliseconds")        << QVariant(u"2026-02-03T04:05:06.250"_s)    << local.addMSecs(250);
    QTest::newRow("text of Greenwich")             << QVariant(u"2026-02-03T04:05:06Z"_s)       << early;
    QTest::newRow("the same with a blank")         << QVariant(u"2026-02-03 04:05:06Z"_s)       << early;
    QTest::newRow("the same with milliseconds")    << QVariant(u"2026-02-03T04:05:06.250Z"_s)   << early.addMSecs(250);
    QTest::newRow("text of Moscow")                << QVariant(u"2026-02-03T04:05:06+03:00"_s)  << local.addSecs(2 * 3600);
    QTest::newRow("the same with a blank ")        << QVariant(u"2026-02-03 04:05:06+03:00"_s)  << local.addSecs(2 * 3600);
    QTest::newRow("the same without a colon")      << QVariant(u"2026-02-03T04:05:06+0300"_s)   << local.addSecs(2 * 3600);
    QTest::newRow("text of our own zone")          << QVariant(u"2026-02-03T04:05:06+05:00"_s)  << local;
    QTest::newRow("text of the west")              << QVariant(u"2026-02-03T04:05:06-03:30"_s)  << early.addSecs(7 * 1800);
    QTest::newRow("blanks around")                 << QVariant(u" 2026-02-03T04:05:06Z "_s)     << early;
    QTest::newRow("text as bytes")                 << QVariant("2026-02-03T04:05:06Z"_ba)       << early;
    // A server returns its local time without a zone, and some drivers treat it as UTC.
    QTest::newRow("time of a driver")              << QVariant(local)                           << local;
    QTest::newRow("time of a driver, as UTC")      << QVariant(QDateTime(day, QTime(4, 5, 6), Qt::UTC)) << local;
    QTest::newRow("no time")                       << QVariant(u"noon"_s)                       << QDateTime();
    QTest::newRow("a number")                      << QVariant(5)                               << QDateTime();
    QTest::newRow("nothing")                       << QVariant()                                << QDateTime();
    // clang-format on
}

void TestDatabaseValues::time()
{
    QFETCH(QVariant, value);
    QFETCH(QDateTime, time);
    const QDateTime found = databaseTime(value);
    QCOMPARE(found, time);
    QCOMPARE(found.timeSpec(), Qt::LocalTime);
}

int main(int argc, char **argv)
{
    qputenv("TZ", "Asia/Yekaterinburg");
    TestDatabaseValues test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_databasevalues.moc"
