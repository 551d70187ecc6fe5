#include "shared/core/databasevalues.h"

#include <QSqlError>
#include <QTest>

using namespace Qt::StringLiterals;

class TestDatabaseValues : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void errorHasAText_data();
    void errorHasAText();
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

QTEST_APPLESS_MAIN(TestDatabaseValues)
#include "tst_databasevalues.moc"
