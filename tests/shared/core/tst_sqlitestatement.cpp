#include "shared/core/sqlitestatement.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>
#include <QVariant>

#include <algorithm>
#include <memory>

using namespace Qt::StringLiterals;

/// A statement that passes by Qt's driver must not be distinguishable from one that does not.
class TestSqliteStatement : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    // The first case: what is found out about the library holds for the process.
    void noHandle();
    void columnsAreThoseOfTheDriver_data();
    void columnsAreThoseOfTheDriver();
    void valuesAreBoundInOrder();
    void rowsOneByOne();
    void executedAgainInTheMiddle();
    void finishedStatementHoldsNoSnapshot();
    void refusedText();
    void refusedExecution();
    void errorInTheMiddleOfTheRows();
    void connectionThatIsClosed();
    void otherConnectionsKeepTheirStatements();

private:
    sqlite3 *handle() const { return SqliteStatement::handleOf(QSqlDatabase::database(name)); }
    QVariant valueOf(const QString &statement) const;
    void run(const QString &statement) const;
    /// How many files of the test's folder the process has open.
    qsizetype openFiles() const;

    const QString name = u"statements"_s;
    std::unique_ptr<QTemporaryDir> folder;
};

void TestSqliteStatement::init()
{
    QTest::failOnWarning(QRegularExpression(u"."_s));
    folder = std::make_unique<QTemporaryDir>();
    QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
    database.setDatabaseName(folder->filePath(u"rows.db"_s));
    database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=0"_s);
    QVERIFY(database.open());
    run(u"PRAGMA journal_mode = WAL"_s);
    run(u"CREATE TABLE row (number INTEGER PRIMARY KEY, value)"_s);
}

void TestSqliteStatement::cleanup()
{
    if (QSqlDatabase::contains(name))
        QSqlDatabase::removeDatabase(name);
}

void TestSqliteStatement::noHandle()
{
    {
        QSqlDatabase database = QSqlDatabase::database(name);
        database.close();
        QCOMPARE(SqliteStatement::handleOf(database), nullptr);
    }
    QCOMPARE(SqliteStatement::handleOf(QSqlDatabase()), nullptr);
}

void TestSqliteStatement::columnsAreThoseOfTheDriver_data()
{
    QTest::addColumn<QString>("literal");
    QTest::addRow("number") << u"17"_s;
    QTest::addRow("negative number") << u"-17"_s;
    QTest::addRow("number beyond 32 bits") << u"4294967297"_s;
    QTest::addRow("fraction") << u"1.5"_s;
    QTest::addRow("text") << u"'{\"a\": 1}'"_s;
    QTest::addRow("Russian text") << u"'Плати QR №5 👍'"_s;
    QTest::addRow("number as text") << u"'0042'"_s;
    QTest::addRow("empty text") << u"''"_s;
    QTest::addRow("NULL") << u"NULL"_s;
    QTest::addRow("text with a zero character") << u"'a' || char(0) || 'b'"_s;
    QTest::addRow("text that is not UTF-8") << u"CAST(x'7b22cfeb22' AS TEXT)"_s;
    QTest::addRow("BLOB") << u"x'7b7d'"_s;
    QTest::addRow("BLOB that is not UTF-8") << u"x'00ff80fe'"_s;
    QTest::addRow("empty BLOB") << u"x''"_s;
}

void TestSqliteStatement::columnsAreThoseOfTheDriver()
{
    QFETCH(const QString, literal);
    const QVariant expected = valueOf(u"SELECT "_s + literal);
    SqliteStatement statement(handle(), "SELECT " + literal.toUtf8());
    QVERIFY(statement.execute());
    QVERIFY(statement.next());
    QCOMPARE(statement.value(0), expected);
    QCOMPARE(statement.value(0).metaType(), expected.metaType());
    QCOMPARE(statement.value(0).isNull(), expected.isNull());
}

void TestSqliteStatement::valuesAreBoundInOrder()
{
    run(u"INSERT INTO row VALUES (1, 'да'), (2, 'да'), (3, ''), (4, NULL)"_s);
    SqliteStatement statement(handle(),
                              "SELECT number FROM row WHERE value = :text AND number > :least");
    const auto found = [&statement](const QString &text, int least) {
        return statement.execute(text, least) && statement.next() ? statement.value(0).toInt() : 0;
    };
    QCOMPARE(found(u"да"_s, 0), 1);
    QCOMPARE(found(u"да"_s, 1), 2);
    QCOMPARE(found(u"да"_s, 2), 0);
    QCOMPARE(found(u"нет"_s, 0), 0);
    QCOMPARE(found(u""_s, 0), 3);
    QCOMPARE(found(QString(), 0), 3);
}

void TestSqliteStatement::rowsOneByOne()
{
    SqliteStatement statement(handle(), "SELECT number FROM row WHERE number <= ? ORDER BY number");
    QVERIFY(statement.execute(2));
    QVERIFY(!statement.next());

    run(u"INSERT INTO row (number) VALUES (1), (2), (3)"_s);
    QVERIFY(statement.execute(2));
    QVERIFY(statement.next());
    QCOMPARE(statement.value(0), 1);
    QVERIFY(statement.next());
    QCOMPARE(statement.value(0), 2);
    QVERIFY(!statement.next());
    QVERIFY(!statement.next());
    QVERIFY(!statement.lastError().isValid());
}

void TestSqliteStatement::executedAgainInTheMiddle()
{
    run(u"INSERT INTO row (number) VALUES (1), (2)"_s);
    SqliteStatement statement(handle(), "SELECT number FROM row WHERE number >= ? ORDER BY number");
    QVERIFY(statement.execute(1));
    QVERIFY(statement.execute(2));
    QVERIFY(statement.next());
    QCOMPARE(statement.value(0), 2);
    QVERIFY(!statement.next());
}

void TestSqliteStatement::finishedStatementHoldsNoSnapshot()
{
    run(u"INSERT INTO row (number) VALUES (1), (2)"_s);
    SqliteStatement statement(handle(), "SELECT number FROM row");
    const auto truncatesLog = [this] {
        return valueOf(u"PRAGMA wal_checkpoint(TRUNCATE)"_s) == QVariant(0);
    };
    QVERIFY(statement.execute());
    QVERIFY(!truncatesLog());
    statement.finish();
    QVERIFY(!statement.next());
    QVERIFY(truncatesLog());
}

void TestSqliteStatement::refusedText()
{
    const SqliteStatement statement(handle(), "SELECT absent FROM row");
    QVERIFY(!statement.isPrepared());
    QCOMPARE(statement.lastError().databaseText(), u"no such column: absent"_s);
}

void TestSqliteStatement::refusedExecution()
{
    run(u"INSERT INTO row VALUES (1, 'a')"_s);
    const QString insertion = u"INSERT INTO row VALUES (1, 'b')"_s;
    QSqlQuery query(QSqlDatabase::database(name));
    QVERIFY(!query.exec(insertion));

    SqliteStatement statement(handle(), insertion.toUtf8());
    QVERIFY(!statement.execute());
    QVERIFY(!statement.next());
    QVERIFY(statement.lastError().isValid());
    QCOMPARE(statement.lastError().text(), query.lastError().text());

    run(u"DELETE FROM row"_s);
    QVERIFY(statement.execute());
    QVERIFY(!statement.lastError().isValid());
}

void TestSqliteStatement::errorInTheMiddleOfTheRows()
{
    run(u"INSERT INTO row VALUES (1, '{}'), (2, 'no JSON')"_s);
    SqliteStatement statement(handle(), "SELECT json_extract(value, '$') FROM row ORDER BY number");
    QVERIFY(statement.execute());
    QVERIFY(statement.next());
    QVERIFY(!statement.next());
    QCOMPARE(statement.lastError().databaseText(), u"malformed JSON"_s);
}

void TestSqliteStatement::connectionThatIsClosed()
{
    SqliteStatement statement(handle(), "SELECT number FROM row");
    SqliteStatement unfinished(handle(), "SELECT 1");
    QVERIFY(unfinished.execute());
    QVERIFY(openFiles() > 0);

    SqliteStatement::finalizeAll(handle());
    QSqlDatabase::removeDatabase(name);
    QCOMPARE(openFiles(), 0);
    QVERIFY(!statement.isPrepared());
    QVERIFY(!statement.execute());
    QVERIFY(!statement.next());
    QVERIFY(statement.lastError().isValid());
    QVERIFY(!unfinished.next());
}

void TestSqliteStatement::otherConnectionsKeepTheirStatements()
{
    const QString otherName = u"other"_s;
    {
        QSqlDatabase other = QSqlDatabase::cloneDatabase(QSqlDatabase::database(name), otherName);
        QVERIFY(other.open());
        SqliteStatement statement(handle(), "SELECT 1");
        const SqliteStatement ofOther(SqliteStatement::handleOf(other), "SELECT 1");
        SqliteStatement::finalizeAll(SqliteStatement::handleOf(other));
        QVERIFY(!ofOther.isPrepared());
        QVERIFY(statement.execute());
    }
    QSqlDatabase::removeDatabase(otherName);
}

QVariant TestSqliteStatement::valueOf(const QString &statement) const
{
    QSqlQuery query(QSqlDatabase::database(name));
    return query.exec(statement) && query.next() ? query.value(0) : QVariant();
}

void TestSqliteStatement::run(const QString &statement) const
{
    QSqlQuery query(QSqlDatabase::database(name));
    QVERIFY2(query.exec(statement), qPrintable(query.lastError().text()));
}

qsizetype TestSqliteStatement::openFiles() const
{
    const QFileInfoList entries = QDir(u"/proc/self/fd"_s).entryInfoList(QDir::Files);
    return std::ranges::count_if(entries, [this](const QFileInfo &entry) {
        return entry.symLinkTarget().startsWith(folder->path());
    });
}

QTEST_GUILESS_MAIN(TestSqliteStatement)
#include "tst_sqlitestatement.moc"
