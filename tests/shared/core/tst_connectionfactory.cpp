#include "rig/mariadbserver.h"
#include "shared/core/basicexception.h"
#include "shared/core/config.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/dbqueuebroker.h"
#include "shared/core/paths.h"
#include "shared/core/singleton.h"
#include "shared/core/writegate.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlDriver>
#include <QSqlError>
#include <QSqlQuery>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <cstdio>
#include <latch>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <thread>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;

namespace {

const QString probe = u"SELECT COUNT(messageid), creationtime FROM queues.message LIMIT 1"_s;

void removeOwnConnection()
{
    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    const QString name = factory->getConnection().connectionName();
    factory->removeConnection(name);
}

/// Has this program, started once more, open the database and tell how many rows it has.
const QString countArgument = u"--count"_s;

int countRows()
{
    Config::setConfigsPathList(settingsFolders(), {});
    try {
        QSqlQuery query(Singleton<ConnectionFactory>::instance()->getConnection());
        const bool isRead = query.exec(u"SELECT COUNT(*) FROM message"_s) && query.next();
        std::printf("rows: %s\n",
                    qPrintable(isRead ? query.value(0).toString() : query.lastError().text()));
    } catch (const BasicException &exception) {
        std::printf("%s\n", qPrintable(exception.tr().ru()));
    }
    return 0;
}

/// Has it open the file of the next argument as a till does, until its input ends.
const QString holdArgument = u"--hold"_s;

int holdFile(const QString &path)
{
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s);
        database.setDatabaseName(path);
        if (!database.open() || !QSqlQuery(database).exec(u"SELECT * FROM message LIMIT 1"_s))
            return 1;
        std::puts("open");
        std::fflush(stdout);
        while (std::getchar() != EOF) {
        }
    }
    QSqlDatabase::removeDatabase(QLatin1StringView(QSqlDatabase::defaultConnection));
    return 0;
}

/// Runs `function` on `count` threads at once and waits for their end.
void onThreads(int count, const std::function<void()> &function)
{
    std::latch start(count);
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(QThread::create([&] {
            start.arrive_and_wait();
            function();
        }));
        threads.back()->start();
    }
    for (const auto &thread : threads)
        thread->wait();
}

} // namespace

/// What holds on both databases runs once on each: the column `server` tells which.
class TestConnectionFactory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void cleanupTestCase();

    void operationsKeepTheirPlaces();
    void sqliteFileIsCreatedWithTables();
    void sqliteMissingTablesAreCreated_data();
    void sqliteMissingTablesAreCreated();
    void sqliteTablesAreMadeOnceByManyThreads();
    void sqliteTablesAreMadeOnceByManyProcesses_data();
    void sqliteTablesAreMadeOnceByManyProcesses();
    void sqliteFileThatTakesNoTableIsUsed();
    void sqliteFileThatIsReadOnlyIsUsed();
    void sqliteFileWithoutTablesThatTakesNoneIsRefused();
    void sqliteSurvivesAPowerCut();
    void sqliteWaitsForALock();
    void sqliteFileIsOpenedByManyAtOnce();
    void sqliteFileThatIsGoneIsNoticed();
    void sqliteFileThatWasReplacedIsNoticed();
    void sqliteFileThatIsGoneTakesNoRows();
    void sqliteFileHasOneGate();
    void formerLogIsNotMixedIn_data();
    void formerLogIsNotMixedIn();
    void formerLogIsPutAsideAtTheEnd();
    void formerLogThatAnotherProgramUses();
    void replacedFileWithoutALog();

    void serverIsReachedOverTheSocket();
    void serverConnectionLostAndReopened();

    void messageIsInTheSchema_data() { bothDatabases(); }
    void messageIsInTheSchema();
    void probePasses_data() { bothDatabases(); }
    void probePasses();
    void probeShowsTheOldestRow_data() { bothDatabases(); }
    void probeShowsTheOldestRow();
    void textsKeepEveryLetter_data() { bothDatabases(); }
    void textsKeepEveryLetter();
    void textsCompareByTheirBytes_data() { bothDatabases(); }
    void textsCompareByTheirBytes();
    void idsAreNeverGivenTwice_data() { bothDatabases(); }
    void idsAreNeverGivenTwice();
    void eachThreadHasItsConnection_data() { bothDatabases(); }
    void eachThreadHasItsConnection();
    void removalIsSilent_data() { bothDatabases(); }
    void removalIsSilent();
    void brokerWritesOneRow_data() { bothDatabases(); }
    void brokerWritesOneRow();
    void brokerWaitsForItsTurn_data() { bothDatabases(); }
    void brokerWaitsForItsTurn();
    void brokerThrowsWithoutTable_data() { bothDatabases(); }
    void brokerThrowsWithoutTable();

    void failureIsReadable_data();
    void failureIsReadable();
    void checkIsOnlyMadeWhenAskedFor();

private:
    static void bothDatabases();
    /// Runs statements on the file as the till does, with the file as its main database.
    void asTill(const QStringList &statements);
    /// A file with rows of type `backup`, while the database in use has others, most of them in
    /// its log.
    QString makeBackup();
    /// As `mv` does: the file that was there has no name any more.
    void moveIntoPlace(const QString &file);
    /// The write-ahead logs that were put aside.
    QStringList keptLogs();
    /// As in `message(message_card,message_type)`, in order.
    QStringList tablesWithIndexes();
    /// Leads the service to the database of the data row.
    void useDatabase();
    QString connectError();

    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    std::unique_ptr<MariaDbServer> server;
    std::unique_ptr<QueueDatabase> queue;
};

void TestConnectionFactory::initTestCase()
{
    server = std::make_unique<MariaDbServer>();
}

void TestConnectionFactory::init()
{
    QTest::failOnWarning(QRegularExpression(u"."_s));
    ConnectionFactory::setWithCheck(true);
    queue = std::make_unique<QueueDatabase>();
}

void TestConnectionFactory::cleanup()
{
    queue.reset();
    server->run(u"TRUNCATE queues.message"_s);
}

void TestConnectionFactory::cleanupTestCase()
{
    server.reset();
}

void TestConnectionFactory::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&ConnectionFactory::removeConnection), 0);
    QCOMPARE(slotOf(&ConnectionFactory::getConnection), 3);
}

void TestConnectionFactory::sqliteFileIsCreatedWithTables()
{
    QVERIFY(!QFile::exists(queue->file()));
    QCOMPARE(queue->query(u"SELECT name FROM queues.sqlite_master WHERE type = 'table' "
                          "AND name NOT LIKE 'sqlite%' ORDER BY name"_s),
             (QList<QVariantList>{{u"documentcard"_s}, {u"message"_s}}));
    QVERIFY(QFile::exists(queue->file()));
}

void TestConnectionFactory::sqliteMissingTablesAreCreated_data()
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

void TestConnectionFactory::sqliteMissingTablesAreCreated()
{
    QFETCH(QStringList, made);
    QFETCH(QStringList, all);
    asTill(made);
    QCOMPARE(connectError(), QString());
    QCOMPARE(tablesWithIndexes(), all);
}

void TestConnectionFactory::sqliteTablesAreMadeOnceByManyThreads()
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

void TestConnectionFactory::sqliteTablesAreMadeOnceByManyProcesses_data()
{
    QTest::addColumn<QStringList>("made");
    QTest::addColumn<QString>("messages");
    QTest::newRow("new file") << QStringList{}
                              << u"message(message_card,message_creationtime,message_type)"_s;
    QTest::newRow("the till's file")
        << QStringList{u"CREATE TABLE message (messageid INTEGER PRIMARY KEY)"_s} << u"message()"_s;
}

void TestConnectionFactory::sqliteTablesAreMadeOnceByManyProcesses()
{
    QFETCH(QStringList, made);
    QFETCH(QString, messages);
    if (!made.isEmpty())
        asTill(made);
    std::vector<std::unique_ptr<QProcess>> processes;
    for (int i = 0; i < 4; ++i) {
        processes.push_back(std::make_unique<QProcess>());
        processes.back()->start(QCoreApplication::applicationFilePath(), {countArgument});
    }
    for (const auto &process : processes) {
        QVERIFY(process->waitForFinished());
        QCOMPARE(QString::fromUtf8(process->readAllStandardOutput()), u"rows: 0\n"_s);
    }
    QCOMPARE(tablesWithIndexes(), (QStringList{u"documentcard(documentcard_cheque)"_s, messages}));
}

/// The till's table can be used without ours.
void TestConnectionFactory::sqliteFileThatTakesNoTableIsUsed()
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

void TestConnectionFactory::sqliteFileThatIsReadOnlyIsUsed()
{
    asTill({u"CREATE TABLE message (messageid INTEGER PRIMARY KEY)"_s,
            u"INSERT INTO message DEFAULT VALUES"_s});
    const QString folder = QFileInfo(queue->file()).path();
    QVERIFY(QFile::setPermissions(queue->file(), QFile::ReadOwner));
    QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::ExeOwner));
    QProcess process;
    // Nobody but root may give it up, and nobody else has it.
    process.setChildProcessModifier([] { ::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE); });
    process.start(QCoreApplication::applicationFilePath(), {countArgument});
    const bool isFinished = process.waitForFinished();
    QVERIFY(QFile::setPermissions(folder, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
    QVERIFY(isFinished);
    QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), u"rows: 1\n"_s);
}

void TestConnectionFactory::sqliteFileWithoutTablesThatTakesNoneIsRefused()
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

void TestConnectionFactory::sqliteSurvivesAPowerCut()
{
    QCOMPARE(queue->query(u"PRAGMA queues.journal_mode"_s).value(0).value(0), u"wal"_s);
    constexpr int full = 2;
    QCOMPARE(queue->query(u"PRAGMA queues.synchronous"_s).value(0).value(0), full);
}

void TestConnectionFactory::sqliteWaitsForALock()
{
    QCOMPARE(queue->query(u"PRAGMA busy_timeout"_s).value(0).value(0), 5000);
}

void TestConnectionFactory::sqliteFileIsOpenedByManyAtOnce()
{
    constexpr int count = 16;
    Guarded<QStringList> errors;
    onThreads(count, [&] {
        try {
            Singleton<DBQueueBroker>::instance()->enqueue(u"cardlab"_s, {}, u""_s);
            removeOwnConnection();
        } catch (const BasicException &exception) {
            errors.lock()->append(exception.tr().ru());
        }
    });
    QCOMPARE(errors.copy(), QStringList());
    QCOMPARE(queue->ids().size(), count);
}

void TestConnectionFactory::sqliteFileThatIsGoneIsNoticed()
{
    const QString name = factory->getConnection().connectionName();
    QVERIFY(factory->isConnectionCurrent(name));
    QVERIFY(QFile::remove(queue->file()));
    QVERIFY(!factory->isConnectionCurrent(name));

    factory->removeConnection(name);
    QVERIFY(factory->isConnectionCurrent(factory->getConnection().connectionName()));
    QCOMPARE(queue->ids(), QList<int>());
}

void TestConnectionFactory::sqliteFileThatWasReplacedIsNoticed()
{
    const QString name = factory->getConnection().connectionName();
    QVERIFY(QFile::rename(queue->file(), queue->file() + u".old"_s));
    QFile replacement(queue->file());
    QVERIFY(replacement.open(QIODevice::WriteOnly));
    QVERIFY(!factory->isConnectionCurrent(name));
}

void TestConnectionFactory::sqliteFileThatIsGoneTakesNoRows()
{
    queue->put(u"cardlab"_s, u"{}"_s);
    for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
        QVERIFY(QFile::remove(queue->file() + suffix));
    Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());
    QVERIFY2(QFile::exists(queue->file()), "the row went into the deleted file");
    QCOMPARE(queue->ids().size(), 1);
}

/// By whatever path it is reached, and another one after it was replaced.
void TestConnectionFactory::sqliteFileHasOneGate()
{
    const QString link = queue->root() + u"/link.db"_s;
    WriteGate *const gate = factory->gateOf(factory->getConnection());
    QVERIFY(gate);
    QVERIFY(QFile::link(queue->file(), link));
    onThreads(2, [&] {
        queue->ids();
        WriteGate *const own = factory->gateOf(factory->getConnection());
        removeOwnConnection();
        QCOMPARE(own, gate);
    });
    removeOwnConnection();
    queue->setSettings(u"[database]\nname = %1\n"_s.arg(link));
    QCOMPARE(factory->gateOf(factory->getConnection()), gate);
    removeOwnConnection();
    queue->setSettings(u"[database]\nname = %1/other.db\n"_s.arg(queue->root()));
    QVERIFY(factory->gateOf(factory->getConnection()) != gate);
}

void TestConnectionFactory::formerLogIsNotMixedIn_data()
{
    QTest::addColumn<bool>("isReplaced");
    QTest::addColumn<bool>("isLinked");
    QTest::newRow("replaced") << true << false;
    QTest::newRow("deleted") << false << false;
    QTest::newRow("replaced, below a link") << true << true;
    QTest::newRow("deleted, below a link") << false << true;
}

/// Somebody moves a backup into place, or deletes the file, and leaves `-wal` and `-shm` where
/// they are.
void TestConnectionFactory::formerLogIsNotMixedIn()
{
    QFETCH(bool, isReplaced);
    QFETCH(bool, isLinked);
    if (isLinked) {
        const QString link = queue->root() + u"/link"_s;
        QVERIFY(QFile::link(QFileInfo(queue->file()).path(), link));
        queue->setSettings(u"[database]\nname = %1/queues.db\n"_s.arg(link));
    }
    const QString backup = makeBackup();
    const LogCapture log(u"database"_s);
    std::latch isOpen(2);
    std::latch isOver(2);
    int readMeanwhile = -1;
    const std::unique_ptr<QThread> worker(QThread::create([&] {
        const QString name = factory->getConnection().connectionName();
        queue->ids();
        isOpen.arrive_and_wait();
        isOver.arrive_and_wait();
        // It has not noticed yet, and reads what it has open.
        QSqlQuery query(QSqlDatabase::database(name, false));
        if (query.exec(u"SELECT COUNT(*) FROM message WHERE type = 'former'"_s) && query.next())
            readMeanwhile = query.value(0).toInt();
        query = QSqlQuery();
        factory->removeConnection(name);
    }));
    worker->start();
    isOpen.arrive_and_wait();
    if (isReplaced)
        moveIntoPlace(backup);
    else
        QVERIFY(QFile::remove(queue->file()));

    const auto restored = queue->ids(u"backup"_s).size();
    const auto mixedIn = queue->ids(u"former"_s).size();
    queue->put(u"later"_s, u"{}"_s);
    isOver.arrive_and_wait();
    worker->wait();
    QCOMPARE(restored, isReplaced ? 50 : 0);
    QCOMPARE(mixedIn, 0);
    QCOMPARE(readMeanwhile, 500);
    // What was in the former log is there still, and only once is it told.
    const QStringList kept = keptLogs();
    QCOMPARE(kept.size(), 1);
    QVERIFY(QFileInfo(kept.first()).size() > 100'000);
    QCOMPARE(log.lines().filter(u"ERROR "_s),
             QStringList{u"ERROR Файл базы данных '%1' удалён или заменён во время работы службы, "
                         "его журнал сохранён как '%2', перезапустите программы кассы, "
                         "у которых он открыт"_s.arg(queue->file(), kept.first())});
    removeOwnConnection();
    QCOMPARE(queue->ids(u"later"_s).size(), 1);
    QCOMPARE(queue->query(u"PRAGMA queues.integrity_check"_s).value(0).value(0), u"ok"_s);
}

/// The next service knows nothing of the former file.
void TestConnectionFactory::formerLogIsPutAsideAtTheEnd()
{
    const QString backup = makeBackup();
    const QString name = factory->getConnection().connectionName();
    moveIntoPlace(backup);
    const LogCapture log(u"database"_s);
    factory->removeConnection(name);
    QCOMPARE(keptLogs().size(), 1);
    QVERIFY(!QFile::exists(queue->file() + u"-wal"_s));
    QVERIFY(!QFile::exists(queue->file() + u"-shm"_s));
    QCOMPARE(log.lines().filter(u"ERROR Файл базы данных"_s).size(), 1);

    QProcess process;
    process.start(QCoreApplication::applicationFilePath(), {countArgument});
    QVERIFY(process.waitForFinished());
    QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), u"rows: 50\n"_s);
}

/// It has begun to mix the two. There is nothing left to save, but the service takes no part in it.
void TestConnectionFactory::formerLogThatAnotherProgramUses()
{
    const QString backup = makeBackup();
    const QString log = queue->file() + u"-wal"_s;
    moveIntoPlace(backup);
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(), {holdArgument, queue->file()});
    QVERIFY(other.waitForReadyRead());
    const qint64 logSize = QFileInfo(log).size();

    const LogCapture lines(u"database"_s);
    const QString text =
        u"Файл базы данных '%1' заменён во время работы службы, рядом остался журнал '%2' прежнего "
        "файла (файл уже открыт другой программой), вместе они повредят базу данных: остановите "
        "службу и программы кассы и восстановите файл командой queuectl restore"_s.arg(
            queue->file(), log);
    QCOMPARE(connectError(), text);
    QCOMPARE(connectError(), text);
    QCOMPARE(lines.lines().filter(u"ERROR "_s), QStringList{u"ERROR "_s + text});
    QCOMPARE(QFileInfo(log).size(), logSize);
    QCOMPARE(keptLogs(), QStringList());

    // The engineer does what the line says.
    other.closeWriteChannel();
    QVERIFY(other.waitForFinished());
    for (const QString &ending : {u"-wal"_s, u"-shm"_s})
        QFile::remove(queue->file() + ending);
    QCOMPARE(connectError(), QString());
}

void TestConnectionFactory::replacedFileWithoutALog()
{
    const QString backup = makeBackup();
    const LogCapture log(u"database"_s);
    for (int round = 1; round <= 2; ++round) {
        queue->ids();
        for (const QString &ending : {u"-wal"_s, u"-shm"_s})
            QVERIFY(QFile::remove(queue->file() + ending));
        QVERIFY(QFile::copy(backup, backup + u".copy"_s));
        moveIntoPlace(backup + u".copy"_s);
        // Told once, however many connections are opened then.
        for (int connection = 0; connection < 2; ++connection) {
            QCOMPARE(queue->ids().size(), 50);
            QCOMPARE(log.lines().filter(u"ERROR "_s).size(), round);
            removeOwnConnection();
        }
    }
    QCOMPARE(log.lines().filter(u"ERROR "_s).last(),
             u"ERROR Файл базы данных '%1' удалён или заменён во время работы службы, "
             "перезапустите программы кассы, у которых он открыт"_s.arg(queue->file()));
    QCOMPARE(keptLogs(), QStringList());
}

void TestConnectionFactory::serverIsReachedOverTheSocket()
{
    queue->setSettings(server->settings());
    QCOMPARE(factory->getConnection().driverName(), u"QMYSQL"_s);
    QCOMPARE(queue->query(u"SELECT CURRENT_USER(), DATABASE()"_s),
             (QList<QVariantList>{{server->user() + u"@localhost"_s, u"queues"_s}}));
    QCOMPARE(queue->query(u"SELECT @@character_set_client, @@character_set_results"_s),
             (QList<QVariantList>{{u"utf8mb4"_s, u"utf8mb4"_s}}));
    QVERIFY(factory->isConnectionCurrent(factory->getConnection().connectionName()));
}

void TestConnectionFactory::serverConnectionLostAndReopened()
{
    queue->setSettings(server->settings());
    queue->put(u"cardlab"_s, u"{}"_s);
    server->kill();
    QVERIFY(!connectError().isEmpty());
    server->start();
    QCOMPARE(connectError(), QString());
    QCOMPARE(queue->ids().size(), 1);
}

void TestConnectionFactory::messageIsInTheSchema()
{
    useDatabase();
    const int id = queue->put(u"cardlab"_s, u"{}"_s, u"777"_s);
    const QVariantList row =
        queue->query(u"SELECT messageid, type, cardnumber FROM queues.message"_s).value(0);
    QCOMPARE(row.value(0).toInt(), id);
    QCOMPARE(row.value(1).toString(), u"cardlab"_s);
    QCOMPARE(row.value(2).toString(), u"777"_s);
}

void TestConnectionFactory::probePasses()
{
    useDatabase();
    const QList<QVariantList> empty = queue->query(probe);
    QCOMPARE(empty.value(0).value(0).toInt(), 0);
    QVERIFY(!empty.value(0).value(1).toDateTime().isValid());

    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    queue->put(u"cardlab"_s, u"{}"_s);
    queue->put(u"heineken"_s, u"{}"_s);
    const QList<QVariantList> rows = queue->query(probe);
    QCOMPARE(rows.size(), 1);
    QCOMPARE(rows.value(0).value(0).toInt(), 2);
    const QDateTime time = rows.value(0).value(1).toDateTime();
    QVERIFY(time.isValid());
    // The clock of the till, not that of Greenwich.
    QVERIFY2(time >= before && time <= QDateTime::currentDateTime(), qPrintable(time.toString()));
}

void TestConnectionFactory::probeShowsTheOldestRow()
{
    useDatabase();
    const QDateTime oldest(QDate(2026, 1, 31), QTime(12, 0));
    const auto insert = [this](int seconds, const QDateTime &from) {
        queue->query(u"INSERT INTO message (type, body, cardnumber, statuscode, creationtime) "
                     "VALUES ('cardlab', '{}', '', '', ?)"_s,
                     {from.addSecs(seconds).toString(u"yyyy-MM-dd HH:mm:ss"_s)});
    };
    const auto shown = [this] {
        return queue->query(probe).value(0).value(1).toDateTime();
    };

    insert(0, oldest);
    for (int i = 1; i < 300; ++i)
        insert(i, oldest);
    QCOMPARE(shown(), oldest);
    // With the statistics that a server gathers in the background, too.
    if (QTest::currentDataTag() == "MariaDB"_ba)
        server->run(u"ANALYZE TABLE queues.message"_s);
    else
        queue->query(u"ANALYZE queues"_s);
    QCOMPARE(shown(), oldest);

    // The clock was set back: the row with the highest id is the oldest.
    insert(-3600, oldest);
    QCOMPARE(shown(), oldest.addSecs(-3600));
    queue->query(u"DELETE FROM message WHERE messageid IN (?, ?)"_s,
                 {queue->ids().last(), queue->ids().first()});
    QCOMPARE(shown(), oldest.addSecs(1));
}

void TestConnectionFactory::textsKeepEveryLetter()
{
    useDatabase();
    const QString text = u"{\"кассир\":\"Ёлкина Щ. 🙂 «ъ»\"}"_s;
    queue->put(u"cardlab"_s, text, u"карта 🙂"_s);
    const QVariantList row = queue->query(u"SELECT body, cardnumber FROM message"_s).value(0);
    QCOMPARE(row.value(0).toByteArray(), text.toUtf8());
    QCOMPARE(row.value(1).toString(), u"карта 🙂"_s);
}

void TestConnectionFactory::textsCompareByTheirBytes()
{
    useDatabase();
    const int id = queue->put(u"spasiboBatch"_s, u"{\"mark\":\"AbC\"}"_s, u"Ab"_s);
    QCOMPARE(queue->ids(u"spasibobatch"_s), QList<int>());
    QCOMPARE(queue->ids(u"spasiboBatch"_s), QList<int>{id});
    const auto found = [this](const QString &condition) {
        return queue->query(u"SELECT 1 FROM message WHERE "_s + condition).size();
    };
    QCOMPARE(found(u"cardnumber = 'ab'"_s), 0);
    QCOMPARE(found(u"cardnumber = 'Ab'"_s), 1);
    QCOMPARE(found(u"body LIKE '%abc%'"_s), 0);
    QCOMPARE(found(u"body LIKE '%AbC%'"_s), 1);
}

void TestConnectionFactory::idsAreNeverGivenTwice()
{
    useDatabase();
    const int first = queue->put(u"cardlab"_s, u"{}"_s);
    queue->query(u"DELETE FROM message"_s);
    QVERIFY(queue->put(u"cardlab"_s, u"{}"_s) > first);
}

void TestConnectionFactory::eachThreadHasItsConnection()
{
    useDatabase();
    Guarded<QSet<QString>> names;
    const auto note = [&] {
        const QString name = factory->getConnection().connectionName();
        QCOMPARE(factory->getConnection().connectionName(), name);
        names.lock()->insert(name);
    };
    note();
    onThreads(8, [&] {
        note();
        removeOwnConnection();
    });
    QCOMPARE(names.lock()->size(), 9);
    QCOMPARE(QSqlDatabase::connectionNames().size(), 1);
}

void TestConnectionFactory::removalIsSilent()
{
    useDatabase();
    onThreads(1, [&] {
        QSqlQuery query(factory->getConnection());
        query.setForwardOnly(true);
        QVERIFY(query.prepare(u"SELECT messageid FROM message WHERE type = :type"_s));
        query.bindValue(u":type"_s, u"cardlab"_s);
        QVERIFY(query.exec());
        removeOwnConnection();
        // The statement is destroyed after its connection, as those of a worker's store are.
    });
}

void TestConnectionFactory::brokerWritesOneRow()
{
    useDatabase();
    const QJsonObject message{{u"заказ"_s, 7}, {u"сумма"_s, u"1'\"00%1 🙂"_s}};
    Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, message, u"4'2"_s);
    Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());

    const QList<QVariantList> rows = queue->query(
        u"SELECT type, body, cardnumber, statuscode FROM message ORDER BY messageid"_s);
    QCOMPARE(rows.size(), 2);
    QCOMPARE(rows[0][0].toString(), u"mindbox"_s);
    QCOMPARE(QJsonDocument::fromJson(rows[0][1].toByteArray()).object(), message);
    QCOMPARE(rows[0][2].toString(), u"4'2"_s);
    QCOMPARE(rows[0][3].toString(), u""_s);
    QCOMPARE(rows[1][1].toByteArray(), "{}");
    QVERIFY(!rows[1][2].isNull());
    QCOMPARE(rows[1][2].toString(), u""_s);
}

void TestConnectionFactory::brokerWaitsForItsTurn()
{
    useDatabase();
    WriteGate *gate = factory->gateOf(factory->getConnection());
    QCOMPARE(gate == nullptr, QTest::currentDataTag() == "MariaDB"_ba);
    WriteGate::Turn held = WriteGate::enter(gate);
    std::thread writer([] {
        Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());
        removeOwnConnection();
    });
    if (gate) {
        while (gate->waiting() == 0)
            std::this_thread::yield();
        QCOMPARE(queue->ids().size(), 0);
    }
    held.end();
    writer.join();
    QCOMPARE(queue->ids().size(), 1);
}

void TestConnectionFactory::brokerThrowsWithoutTable()
{
    useDatabase();
    const bool isServer = QTest::currentDataTag() == "MariaDB"_ba;
    queue->ids();
    if (isServer)
        server->run(u"RENAME TABLE queues.message TO queues.away"_s);
    else
        queue->query(u"DROP TABLE message"_s);
    QString text;
    try {
        Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());
    } catch (const BasicException &exception) {
        text = exception.tr().ru();
    }
    if (isServer)
        server->run(u"RENAME TABLE queues.away TO queues.message"_s);
    QVERIFY2(text.startsWith(u"Не удалось записать сообщение типа 'mindbox' в очередь: "_s)
                 && text.contains(u"message"_s),
             qPrintable(text));
}

void TestConnectionFactory::failureIsReadable_data()
{
    QTest::addColumn<QString>("settings");
    QTest::addColumn<QStringList>("fragments");

    const QString server = this->server->settings();
    const auto with = [&server](const QString &line) {
        return server + line + u"\n"_s;
    };
    const auto sqlite = [](const QString &path) {
        return u"[database]\nname = "_s + path;
    };

    // clang-format off
    QTest::newRow("unknown driver")    << u"[database]\ndriver = QPSQL"_s        << QStringList{u"QPSQL"_s, u"database:driver"_s};
    QTest::newRow("missing folder")    << sqlite(u"/nonexistent/queues.db"_s)    << QStringList{u"/nonexistent/queues.db"_s};
    QTest::newRow("folder as file")    << sqlite(u"/tmp"_s)                      << QStringList{u"'/tmp'"_s};
    QTest::newRow("no database file")  << sqlite(u"/etc/passwd"_s)               << QStringList{u"/etc/passwd"_s, u"not a database"_s};
    QTest::newRow("wrong password")    << with(u"password = till-passwort"_s)    << QStringList{u"'queues'"_s, u"Access denied"_s};
    QTest::newRow("unknown user")      << with(u"user = nobody"_s)               << QStringList{u"Access denied"_s};
    QTest::newRow("unknown schema")    << with(u"name = nothere"_s)              << QStringList{u"'nothere'"_s};
    QTest::newRow("dead socket")       << with(u"socket = /nonexistent/socket"_s)<< QStringList{u"/nonexistent/socket"_s};
    // clang-format on
}

void TestConnectionFactory::failureIsReadable()
{
    QFETCH(QString, settings);
    QFETCH(QStringList, fragments);
    queue->setSettings(settings);

    const QString error = connectError();
    QVERIFY(QRegularExpression(u"^[А-Я][а-я]+ "_s).match(error).hasMatch());
    for (const QString &fragment : fragments)
        QVERIFY2(error.contains(fragment), qPrintable(error));
    QVERIFY2(!error.contains(u"till-pass"_s), qPrintable(error));
    // Nothing half open stays behind.
    QCOMPARE(QSqlDatabase::connectionNames(), QStringList());

    queue->setSettings(QString());
    QCOMPARE(connectError(), QString());
}

void TestConnectionFactory::checkIsOnlyMadeWhenAskedFor()
{
    queue->setSettings(server->settings());
    queue->ids();
    const QByteArray id =
        server->run(u"SELECT id FROM information_schema.processlist WHERE user = 'till'"_s);
    server->run(u"KILL "_s + QString::fromLatin1(id));
    ConnectionFactory::setWithCheck(false);
    QVERIFY(!QSqlQuery(factory->getConnection()).exec(probe));
    ConnectionFactory::setWithCheck(true);
    QVERIFY(QSqlQuery(factory->getConnection()).exec(probe));
}

void TestConnectionFactory::bothDatabases()
{
    QTest::addColumn<bool>("isServer");
    QTest::newRow("SQLite") << false;
    QTest::newRow("MariaDB") << true;
}

void TestConnectionFactory::useDatabase()
{
    QFETCH(bool, isServer);
    if (isServer)
        queue->setSettings(server->settings());
}

void TestConnectionFactory::asTill(const QStringList &statements)
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

QString TestConnectionFactory::makeBackup()
{
    const QString backup = queue->root() + u"/backup.db"_s;
    const auto fill = [this](const QString &type, int count) {
        queue->query(
            u"INSERT INTO message (type, body) WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL "
            "SELECT i + 1 FROM n WHERE i < %1) SELECT '%2', hex(randomblob(200)) FROM n"_s.arg(
                QString::number(count), type));
    };
    fill(u"backup"_s, 50);
    queue->query(u"VACUUM queues INTO ?"_s, {backup});
    queue->query(u"DELETE FROM message"_s);
    fill(u"former"_s, 500);
    if (QFileInfo(queue->file() + u"-wal"_s).size() < 100'000)
        qFatal("the log is empty");
    return backup;
}

void TestConnectionFactory::moveIntoPlace(const QString &file)
{
    if (::rename(QFile::encodeName(file).constData(), QFile::encodeName(queue->file()).constData())
        != 0)
        qFatal("%s", qPrintable(qt_error_string(errno)));
}

QStringList TestConnectionFactory::keptLogs()
{
    const QFileInfo file(queue->file());
    QStringList result;
    const QStringList names =
        file.dir().entryList({file.fileName() + u".replaced-*-wal"_s}, QDir::Files);
    for (const QString &name : names)
        result.append(file.dir().filePath(name));
    return result;
}

QStringList TestConnectionFactory::tablesWithIndexes()
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

QString TestConnectionFactory::connectError()
{
    try {
        factory->getConnection();
        return QString();
    } catch (const BasicException &exception) {
        return exception.tr().ru();
    }
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (QCoreApplication::arguments().value(1) == countArgument)
        return countRows();
    if (QCoreApplication::arguments().value(1) == holdArgument)
        return holdFile(QCoreApplication::arguments().value(2));
    TestConnectionFactory test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_connectionfactory.moc"
