#include "shared/core/writeaheadlog.h"

#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "tests/shared/core/ownconnection.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/realfunction.h"

#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <functional>
#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

/// Runs when a checkpoint, in each of its rounds, makes SQLite sync a file.
std::function<void()> duringSync;

} // namespace

/// Replaces the C library's function in this process.
extern "C" int fdatasync(int file)
{
    static const auto next = realFunction<int(int)>("fdatasync");
    if (duringSync) {
        // The function makes SQLite sync a file as well.
        const auto function = std::exchange(duringSync, nullptr);
        function();
        duringSync = function;
    }
    return next(file);
}

/// The write-ahead log of an SQLite file that grew, and the till that uses the file meanwhile.
class TestWriteAheadLog : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void largeLogIsTruncated();
    void ordinaryLogStays();
    void connectionWithoutALog();
    void logThatTheTillReadsStays();
    void logOfADeletedFileStays();
    void logIsCopied();
    void logThatGrowsAllTheTime();
    void connectionWithoutTheDatabase();

private:
    /// One row of that many bytes, all of them in the log.
    void put(int bytes);
    QString name() { return factory->getConnection().connectionName(); }
    qint64 logSize() const { return QFileInfo(queue->file() + u"-wal"_s).size(); }

    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    std::unique_ptr<QueueDatabase> queue;
    /// The till's own connection.
    QSqlDatabase till;
};

namespace {

constexpr int large = 9 << 20;

} // namespace

void TestWriteAheadLog::init()
{
    QTest::failOnWarning(QRegularExpression(u"."_s));
    queue = std::make_unique<QueueDatabase>();
    queue->ids();
    till = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s);
    till.setDatabaseName(queue->file());
    QVERIFY(till.open());
}

void TestWriteAheadLog::cleanup()
{
    duringSync = nullptr;
    till = QSqlDatabase();
    QSqlDatabase::removeDatabase(u"till"_s);
    queue.reset();
}

void TestWriteAheadLog::put(int bytes)
{
    queue->query(
        u"INSERT INTO message (type, body, cardnumber, statuscode) VALUES ('loya', ?, '', '')"_s,
        {QString(bytes, u'x')});
}

void TestWriteAheadLog::largeLogIsTruncated()
{
    put(large);
    QVERIFY(logSize() > large);
    factory->shrinkLog(name());
    QCOMPARE(logSize(), 0);
    QCOMPARE(queue->ids().size(), 1);
    // The next statement waits for a lock as before.
    QCOMPARE(queue->query(u"PRAGMA busy_timeout"_s).value(0).value(0), 5000);
}

void TestWriteAheadLog::ordinaryLogStays()
{
    put(large / 9);
    const qint64 size = logSize();
    QVERIFY(size > 0);
    factory->shrinkLog(name());
    QCOMPARE(logSize(), size);
}

void TestWriteAheadLog::connectionWithoutALog()
{
    factory->shrinkLog(u"unknown"_s);
    const QString own = name();
    QVERIFY(QFile::remove(queue->file() + u"-wal"_s));
    factory->shrinkLog(own);
    QVERIFY(!QFile::exists(queue->file() + u"-wal"_s));
}

void TestWriteAheadLog::logThatTheTillReadsStays()
{
    put(1);
    QSqlQuery reading(till);
    QVERIFY(reading.exec(u"BEGIN"_s) && reading.exec(u"SELECT * FROM message"_s));
    put(large);
    const qint64 size = logSize();
    factory->shrinkLog(name());
    QCOMPARE(logSize(), size);
    QVERIFY(reading.exec(u"COMMIT"_s));
    factory->shrinkLog(name());
    QCOMPARE(logSize(), 0);
}

void TestWriteAheadLog::logOfADeletedFileStays()
{
    put(large);
    const QString own = name();
    const qint64 size = logSize();
    QVERIFY(QFile::rename(queue->file(), queue->file() + u".old"_s));
    factory->shrinkLog(own);
    QCOMPARE(logSize(), size);
}

void TestWriteAheadLog::logIsCopied()
{
    put(large / 9);
    QSqlQuery query(factory->getConnection());
    QVERIFY(copyWriteAheadLog(query));
    QVERIFY(QFileInfo(queue->file()).size() > large / 9);
    QVERIFY(logSize() > 0);
}

/// Each round finds the rows that the till wrote during the one before.
void TestWriteAheadLog::logThatGrowsAllTheTime()
{
    put(1);
    QSqlQuery writing(till);
    int written = 0;
    duringSync = [&] {
        written += writing.exec(u"UPDATE message SET body = body || '.'"_s);
    };
    QSqlQuery query(factory->getConnection());
    const bool isCopied = copyWriteAheadLog(query);
    duringSync = nullptr;
    QVERIFY(written >= 5);
    QVERIFY(!isCopied);
    QVERIFY(copyWriteAheadLog(query));
}

void TestWriteAheadLog::connectionWithoutTheDatabase()
{
    QSqlQuery query(till);
    QVERIFY(!copyWriteAheadLog(query));
}

QTEST_GUILESS_MAIN(TestWriteAheadLog)
#include "tst_writeaheadlog.moc"
