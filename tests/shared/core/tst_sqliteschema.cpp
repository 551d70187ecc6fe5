#include "shared/core/sqliteschema.h"

#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/databasestatements.h"
#include "shared/core/guarded.h"
#include "tests/shared/core/anotherprogram.h"
#include "tests/shared/core/ownconnection.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTest>

#include <linux/capability.h>
#include <memory>
#include <sys/prctl.h>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

/// Our tables in a file that the till has created, or in a new one.
class TestSqliteSchema : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { queue.reset(); }

    void sqliteFileIsCreatedWithTables();
    void sqliteMissingTablesAreCreated_data();
    void sqliteMissingTablesAreCreated();
    void sqliteTablesAreMadeOnceByManyThreads();
    void sqliteTablesAreMadeOnceByManyProcesses_data();
    void sqliteTablesAreMadeOnceByManyProcesses();
    void sqliteFileThatTakesNoTableIsUsed();
    void sqliteFileThatIsReadOnlyIsUsed();
    void sqliteFileWithoutTablesThatTakesNoneIsRefused();
    void sqliteFileWithoutTablesThatTheTillWritesIsRefused();
    void sqliteTablesAreNotMadeForTools();
    void driverThatIsNotInstalled_data();
    void driverThatIsNotInstalled();
    void tablesThatAnotherServiceHasMade();
    void tablesThatCannotBeMade_data();
    void tablesThatCannotBeMade();
    void schemaThatIsNotAttached();

private:
    /// Runs statements on the file as the till does, with the file as its main database.
    void asTill(const QStringList &statements);
    /// As in `message(message_card,message_type)`, in order.
    QStringList tablesWithIndexes();

    std::unique_ptr<QueueDatabase> queue;
};

void TestSqliteSchema::init()
{
    QTest::failOnWarning(QRegularExpression(u"."_s));
    ConnectionFactory::setWithCheck(true);
    queue = std::make_unique<QueueDatabase>();
}

void TestSqliteSchema::sqliteFileIsCreatedWithTables()
{
    QVERIFY(!QFile::exists(queue->file()));
    QCOMPARE(queue->query(u"SELECT name FROM queues.sqlite_master WHERE type = 'table' "
                          "AND name NOT LIKE 'sqlite%' ORDER BY name"_s),
             (QList<QVariantList>{{u"documentcard"_s}, {u"message"_s}}));
    QVERIFY(QFile::exists(queue->file()));
}

void TestSqliteSchema::sqliteMissingTablesAreCreated_data()
{
    QTest::addColumn<QStringList>("made");
    QTest::addColumn<QStringList>("all");

    const QString message = u"CREATE TABLE message (messageid INTEGER PRIMARY KEY)"_s;
    const QString cards = u"CREATE TABLE documentcard (id INTEGER PRIMARY KEY)"_s;
    const QString ours = u"message(message_card,message_creationtime,message_type)"_s;
    const QString ourCards = u"documentcard(documentcard_cheque)"_s;
    QTest::newRow("nothing") << QStringList{} << QStringList{ourCards, ours};
    QTest::newRow("the till's messages")
        << QStringList{message} << QStringList{ourCards, u"message()"_s};
    QTest::newRow("under a name in capitals")
        << QStringList{u"CREATE TABLE Message (messageid INTEGER PRIMARY KEY)"_s}
        << QStringList{u"Message()"_s, ourCards};
    QTest::newRow("the till's cards")
        << QStringList{cards} << QStringList{u"documentcard()"_s, ours};
    QTest::newRow("both are the till's")
        << QStringList{message, cards} << QStringList{u"documentcard()"_s, u"message()"_s};
    QTest::newRow("a view of the till's")
        << QStringList{u"CREATE TABLE work (messageid INTEGER PRIMARY KEY)"_s,
                       u"CREATE VIEW message AS SELECT * FROM work"_s}
        << QStringList{ourCards, u"message()"_s, u"work()"_s};
    QTest::newRow("other tables alone")
        << QStringList{u"CREATE TABLE sales (id INTEGER PRIMARY KEY)"_s}
        << QStringList{ourCards, ours, u"sales()"_s};
}

void TestSqliteSchema::sqliteMissingTablesAreCreated()
{
    QFETCH(QStringList, made);
    QFETCH(QStringList, all);
    asTill(made);
    QCOMPARE(connectError(), QString());
    QCOMPARE(tablesWithIndexes(), all);
}

void TestSqliteSchema::sqliteTablesAreMadeOnceByManyThreads()
{
    asTill({u"CREATE TABLE message (messageid INTEGER PRIMARY KEY)"_s});
    Guarded<QStringList> errors;
    onThreads(16, [&] {
        const QString error = connectError();
        removeOwnConnection();
        errors.lock()->append(error);
    });
    QCOMPARE(errors.copy(), QStringList(16, QString()));
    QCOMPARE(tablesWithIndexes(),
             (QStringList{u"documentcard(documentcard_cheque)"_s, u"message()"_s}));
}

void TestSqliteSchema::sqliteTablesAreMadeOnceByManyProcesses_data()
{
    QTest::addColumn<QStringList>("made");
    QTest::addColumn<QString>("messages");
    QTest::newRow("new file") << QStringList{}
                              << u"message(message_card,message_creationtime,message_type)"_s;
    QTest::newRow("the till's file")
        << QStringList{u"CREATE TABLE message (messageid INTEGER PRIMARY KEY)"_s} << u"message()"_s;
}

void TestSqliteSchema::sqliteTablesAreMadeOnceByManyProcesses()
{
    QFETCH(QStringList, made);
    QFETCH(QString, messages);
    if (!made.isEmpty())
        asTill(made);
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < 4; ++i) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->start(QCoreApplication::applicationFilePath(), {anotherprogram::count});
    }
    for (const auto &process : processes) {
        QVERIFY(process->waitForFinished());
        QCOMPARE(QString::fromUtf8(process->readAllStandardOutput()), u"rows: 0\n"_s);
    }
    QCOMPARE(tablesWithIndexes(), (QStringList{u"documentcard(documentcard_cheque)"_s, messages}));
}

/// The till's table can be used without ours.
void TestSqliteSchema::sqliteFileThatTakesNoTableIsUsed()
{
    asTill({u"CREATE TABLE message (messageid INTEGER PRIMARY KEY)"_s,
            u"CREATE TABLE other (id INTEGER)"_s,
            // The name is taken.
            u"CREATE INDEX documentcard ON other (id)"_s});
    const LogCapture log(u"database"_s);
    QCOMPARE(connectError(), QString());
    QCOMPARE(queue->ids(), QList<int>());
    const QStringList errors =
        log.lines().filter(u"ERROR Не удалось создать таблицы в базе данных"_s);
    QVERIFY2(errors.size() == 1 && errors.first().contains(u"documentcard"),
             qPrintable(log.lines().join(u'\n')));
    QCOMPARE(tablesWithIndexes(), (QStringList{u"message()"_s, u"other(documentcard)"_s}));
}

void TestSqliteSchema::sqliteFileThatIsReadOnlyIsUsed()
{
    asTill({u"CREATE TABLE message (messageid INTEGER PRIMARY KEY)"_s,
            u"INSERT INTO message DEFAULT VALUES"_s});
    const QString folder = QFileInfo(queue->file()).path();
    QVERIFY(QFile::setPermissions(queue->file(), QFile::ReadOwner));
    QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
    QProcess process;
    // Only root can drop it, and only root has it.
    process.setChildProcessModifier([] { ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE); });
    process.start(QCoreApplication::applicationFilePath(), {anotherprogram::count});
    const bool isFinished = process.waitForFinished();
    QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QVERIFY(isFinished);
    QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), u"rows: 1\n"_s);
}

void TestSqliteSchema::sqliteFileWithoutTablesThatTakesNoneIsRefused()
{
    asTill({u"CREATE TABLE other (id INTEGER)"_s, u"DROP TABLE other"_s});
    QSqlDatabase till = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s);
    till.setDatabaseName(queue->file());
    QVERIFY(till.open());
    QVERIFY(QSqlQuery(till).exec(u"PRAGMA locking_mode=EXCLUSIVE"_s));
    QVERIFY(QSqlQuery(till).exec(u"BEGIN EXCLUSIVE"_s));
    const QString error = connectError();
    till = QSqlDatabase();
    QSqlDatabase::removeDatabase(u"till"_s);
    QVERIFY2(error.contains(u"database is locked"), qPrintable(error));
}

/// The file can be read meanwhile, and without a table for messages it is of no use.
void TestSqliteSchema::sqliteFileWithoutTablesThatTheTillWritesIsRefused()
{
    asTill({u"PRAGMA journal_mode=WAL"_s, u"CREATE TABLE other (id INTEGER)"_s,
            u"DROP TABLE other"_s});
    QSqlDatabase till = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s);
    till.setDatabaseName(queue->file());
    QVERIFY(till.open());
    QVERIFY(QSqlQuery(till).exec(u"BEGIN IMMEDIATE"_s));
    const QString error = connectError();
    QVERIFY(QSqlQuery(till).exec(u"COMMIT"_s));
    till = QSqlDatabase();
    QSqlDatabase::removeDatabase(u"till"_s);
    QVERIFY2(error.startsWith(u"Не удалось создать таблицы в базе данных "_s)
                 && error.contains(u"database is locked"),
             qPrintable(error));
    QCOMPARE(connectError(), QString());
}

/// A tool that only looks changes nothing.
void TestSqliteSchema::sqliteTablesAreNotMadeForTools()
{
    asTill({u"CREATE TABLE sales (id INTEGER PRIMARY KEY)"_s});
    ConnectionFactory::setCreatesTables(false);
    const QString error = connectError();
    ConnectionFactory::setCreatesTables(true);
    QCOMPARE(error, QString());
    QCOMPARE(tablesWithIndexes(), QStringList{u"sales()"_s});
}

void TestSqliteSchema::driverThatIsNotInstalled_data()
{
    QTest::addColumn<QString>("driver");
    QTest::addColumn<QString>("package");
    QTest::newRow("file") << u"QSQLITE"_s << u"libqt6sql6-sqlite"_s;
    QTest::newRow("server") << u"QMYSQL"_s << u"libqt6sql6-mysql"_s;
}

void TestSqliteSchema::driverThatIsNotInstalled()
{
    QFETCH(QString, driver);
    QFETCH(QString, package);
    queue->setSettings(u"[database]\ndriver = %1\n"_s.arg(driver));
    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {anotherprogram::countWithoutDrivers});
    QVERIFY(process.waitForFinished());
    QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()),
             u"Драйвер базы данных %1 не установлен (пакет %2)\n"_s.arg(driver, package));
}

/// It was faster since the tables were looked for.
void TestSqliteSchema::tablesThatAnotherServiceHasMade()
{
    QCOMPARE(connectError(), QString());
    const QStringList tables = tablesWithIndexes();
    const LogCapture log(u"database"_s);
    createSchemaTables(queue->file(), false, u"schema"_s, 0ms);
    QCOMPARE(tablesWithIndexes(), tables);
    QCOMPARE(log.lines(), QStringList());
}

void TestSqliteSchema::tablesThatCannotBeMade_data()
{
    QTest::addColumn<QStringList>("made");
    QTest::addColumn<QStringList>("held");
    QTest::addColumn<bool>("isNew");
    QTest::addColumn<QString>("reason");

    const QString table = u"CREATE TABLE other (id INTEGER)"_s;
    const QStringList damage{table, u"PRAGMA writable_schema=ON"_s,
                             u"UPDATE sqlite_master SET sql = 'damaged'"_s};
    const QStringList row{table, u"INSERT INTO other VALUES (1), (2)"_s};
    QTest::newRow("damaged") << damage << QStringList{} << false << u"malformed"_s;
    QTest::newRow("in use while it is new")
        << row << QStringList{u"BEGIN EXCLUSIVE"_s} << true << u"locked"_s;
    QTest::newRow("the till reads")
        << row << QStringList{u"SELECT * FROM other"_s} << false << u"locked"_s;
}

/// The till does its part between the opening of the file and the creation of our tables.
void TestSqliteSchema::tablesThatCannotBeMade()
{
    QFETCH(QStringList, made);
    QFETCH(QStringList, held);
    QFETCH(bool, isNew);
    asTill(made);
    QString error;
    {
        QSqlDatabase till = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s);
        till.setDatabaseName(queue->file());
        QVERIFY(till.open());
        QSqlQuery query(till);
        query.setForwardOnly(true);
        for (const QString &statement : std::as_const(held))
            QVERIFY2(query.exec(statement), qPrintable(query.lastError().text()));
        try {
            createSchemaTables(queue->file(), isNew, u"schema"_s, 0ms);
        } catch (const BasicException &exception) {
            error = exception.tr().ru();
        }
    }
    QSqlDatabase::removeDatabase(u"till"_s);
    QVERIFY2(
        error.startsWith(u"Не удалось создать таблицы в базе данных '%1': "_s.arg(queue->file())),
        qPrintable(error));
    QFETCH(QString, reason);
    QVERIFY2(error.contains(reason), qPrintable(error));
    // The same on a path without a folder.
    QVERIFY_THROWS_EXCEPTION(
        BasicException,
        createSchemaTables(queue->root() + u"/missing/queues.db"_s, isNew, u"schema"_s, 0ms));
    QVERIFY(!QSqlDatabase::contains(u"schema"_s));
}

void TestSqliteSchema::schemaThatIsNotAttached()
{
    {
        QSqlDatabase till = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s);
        till.setDatabaseName(queue->file());
        QVERIFY(till.open());
        QSqlQuery query(till);
        QVERIFY(!readSchemaTables(query, u"queues"_s));
        QVERIFY(query.lastError().isValid());
        QVERIFY(readSchemaTables(query, u"main"_s));
        QVERIFY_THROWS_EXCEPTION(BasicException, executeStatement(till, u"nonsense"_s, u"what"_s));
    }
    QSqlDatabase::removeDatabase(u"till"_s);
}

void TestSqliteSchema::asTill(const QStringList &statements)
{
    {
        QSqlDatabase till = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s);
        till.setDatabaseName(queue->file());
        QVERIFY(till.open());
        QSqlQuery query(till);
        for (const QString &statement : statements)
            QVERIFY2(query.exec(statement), qPrintable(query.lastError().text()));
    }
    QSqlDatabase::removeDatabase(u"till"_s);
}

QStringList TestSqliteSchema::tablesWithIndexes()
{
    QStringList result;
    const QList<QVariantList> rows = queue->query(
        u"SELECT name, (SELECT group_concat(name) FROM (SELECT i.name AS name "
        "FROM queues.sqlite_master AS i WHERE i.type = 'index' AND i.tbl_name = t.name "
        "ORDER BY i.name)) FROM queues.sqlite_master AS t WHERE type IN ('table', 'view') "
        "AND name NOT LIKE 'sqlite%' ORDER BY name"_s);
    for (const QVariantList &row : rows)
        result.append(u"%1(%2)"_s.arg(row[0].toString(), row[1].toString()));
    return result;
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (const auto code = anotherprogram::run(QCoreApplication::arguments()))
        return *code;
    TestSqliteSchema test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_sqliteschema.moc"
