#include "shared/core/sqlitefilelock.h"
#include "tests/shared/core/refusedlock.h"

#include <QFile>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>

#include <cerrno>

using namespace Qt::StringLiterals;

/// The lock against SQLite itself.
class TestSqliteFileLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void freeFileIsLocked();
    void openFileIsNot();
    void othersAreLockedOut();
    void missingFile();
    void errorOfTheLock_data();
    void errorOfTheLock();
    void keptNamesAreNew();

private:
    QString path() const { return folder->filePath(u"queues.db"_s); }
    /// The error of reading the file by a connection of that name, which stays.
    static QString read(const QString &name, const QString &path);

    std::unique_ptr<QTemporaryDir> folder;
};

void TestSqliteFileLock::init()
{
    folder = std::make_unique<QTemporaryDir>();
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"maker"_s);
        database.setDatabaseName(path());
        QVERIFY(database.open());
        QSqlQuery query(database);
        QVERIFY(query.exec(u"PRAGMA journal_mode=WAL"_s));
        QVERIFY(query.exec(u"CREATE TABLE message (messageid INTEGER)"_s));
    }
    QSqlDatabase::removeDatabase(u"maker"_s);
}

QString TestSqliteFileLock::read(const QString &name, const QString &path)
{
    QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, name);
    database.setDatabaseName(path);
    database.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=0"_s);
    if (!database.open())
        return database.lastError().text();
    QSqlQuery query(database);
    return query.exec(u"SELECT * FROM message"_s) ? QString() : query.lastError().text();
}

void TestSqliteFileLock::freeFileIsLocked()
{
    for (int i = 0; i < 2; ++i) {
        const SqliteFileLock lock(path());
        QVERIFY2(lock.isTaken(), qPrintable(lock.reason()));
        QVERIFY(!lock.isInUse());
        // Neither has another program that takes this lock.
        QVERIFY(SqliteFileLock(path()).isInUse());
    }
}

/// Idle connections count: they have the log open.
void TestSqliteFileLock::openFileIsNot()
{
    QCOMPARE(read(u"till"_s, path()), QString());
    {
        const SqliteFileLock lock(path());
        QVERIFY(!lock.isTaken());
        QVERIFY(lock.isInUse());
        QVERIFY(!lock.reason().isEmpty());
    }
    QSqlDatabase::removeDatabase(u"till"_s);
    QVERIFY(SqliteFileLock(path()).isTaken());
}

void TestSqliteFileLock::othersAreLockedOut()
{
    {
        const SqliteFileLock lock(path());
        QVERIFY(read(u"till"_s, path()).contains(u"database is locked"));
    }
    QSqlDatabase::removeDatabase(u"till"_s);
    QCOMPARE(read(u"till"_s, path()), QString());
    QSqlDatabase::removeDatabase(u"till"_s);
}

void TestSqliteFileLock::missingFile()
{
    const SqliteFileLock lock(folder->filePath(u"nothing.db"_s));
    QVERIFY(!lock.isTaken());
    QVERIFY(!lock.isInUse());
    QVERIFY(!lock.reason().isEmpty());
    QVERIFY(!QFile::exists(folder->filePath(u"nothing.db"_s)));
}

void TestSqliteFileLock::errorOfTheLock_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("isInUse");
    QTest::newRow("locked by another program") << EAGAIN << true;
    QTest::newRow("the same on other systems") << EACCES << true;
    QTest::newRow("file server without locks") << ENOLCK << false;
}

void TestSqliteFileLock::errorOfTheLock()
{
    QFETCH(int, error);
    lockError = error;
    const SqliteFileLock lock(path());
    lockError = 0;
    QVERIFY(!lock.isTaken());
    QTEST(lock.isInUse(), "isInUse");
    QCOMPARE(lock.reason(), qt_error_string(error));
}

void TestSqliteFileLock::keptNamesAreNew()
{
    // A link that points nowhere is a name as well.
    const QString linked = SqliteFileLock::keptName(path(), u"linked"_s);
    QVERIFY(QFile::link(folder->filePath(u"nowhere"_s), linked));
    QVERIFY(SqliteFileLock::keptName(path(), u"linked"_s) != linked);

    QStringList names;
    for (const QString &ending : {u""_s, u"-wal"_s, u"-shm"_s, u""_s}) {
        const QString name = SqliteFileLock::keptName(path(), u"replaced"_s);
        static const QRegularExpression form(u"queues\\.db\\.replaced-\\d{8}-\\d{6}(-\\d+)?$"_s);
        QVERIFY2(form.match(name).hasMatch(), qPrintable(name));
        QVERIFY(!names.contains(name));
        names.append(name);
        QFile file(name + ending);
        QVERIFY(file.open(QIODevice::WriteOnly));
    }
}

QTEST_GUILESS_MAIN(TestSqliteFileLock)
#include "tst_sqlitefilelock.moc"
