#include "shared/core/connectionfactory.h"
#include "shared/core/dbqueuebroker.h"
#include "shared/core/singleton.h"
#include "tests/shared/core/anotherprogram.h"
#include "tests/shared/core/ownconnection.h"
#include "tests/shared/core/refusedlock.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/realfunction.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>
#include <QThread>

#include <cerrno>
#include <cstdio>
#include <latch>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

/// What the system says of the next calls; 0: what it really says.
int renameError = 0;
/// stat() names another file system than the real one.
bool isOtherFileSystem = false;

} // namespace

/// Replaces the C library's function in this process. ENOENT: another program was faster.
extern "C" int rename(const char *from, const char *to) noexcept
{
    static const auto next = realFunction<int(const char *, const char *)>("rename");
    if (renameError == 0)
        return next(from, to);
    if (renameError == ENOENT)
        ::unlink(from);
    errno = renameError;
    return -1;
}

extern "C" int stat(const char *path, struct stat *status) noexcept
{
    static const auto next = realFunction<int(const char *, struct stat *)>("stat");
    const int result = next(path, status);
    if (isOtherFileSystem)
        ++status->st_dev;
    return result;
}

/// An SQLite file that is deleted or replaced while the service has it open.
class TestReplacedFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup() { queue.reset(); }

    void sqliteFileThatIsGoneIsNoticed();
    void sqliteFileThatWasReplacedIsNoticed();
    void sameNumberOnAnotherFileSystemIsNoticed();
    void sqliteFileThatIsGoneTakesNoRows();
    void formerLogIsNotMixedIn_data();
    void formerLogIsNotMixedIn();
    void formerLogIsPutAsideAtTheEnd();
    void formerLogThatAnotherProgramUses();
    void replacedFileWithoutALog();
    void replacedFileWithItsOwnLog();
    void formerLogThatCannotBeRenamed_data();
    void formerLogThatCannotBeRenamed();
    void newFileThatCannotBeLocked();

private:
    /// A file with rows of type `backup`, while the database in use has others, most of them in
    /// its log.
    QString makeBackup();
    /// Like `mv`: the former file has no name any more.
    void moveIntoPlace(const QString &file);
    /// The write-ahead logs that were put aside.
    QStringList keptLogs();

    ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
    std::unique_ptr<QueueDatabase> queue;
};

void TestReplacedFile::init()
{
    QTest::failOnWarning(QRegularExpression(u"."_s));
    ConnectionFactory::setWithCheck(true);
    queue = std::make_unique<QueueDatabase>();
}

void TestReplacedFile::sqliteFileThatIsGoneIsNoticed()
{
    const QString name = factory->getConnection().connectionName();
    QVERIFY(factory->isConnectionCurrent(name));
    QVERIFY(QFile::remove(queue->file()));
    QVERIFY(!factory->isConnectionCurrent(name));

    factory->removeConnection(name);
    QVERIFY(factory->isConnectionCurrent(factory->getConnection().connectionName()));
    QCOMPARE(queue->ids(), QList<int>());
}

void TestReplacedFile::sqliteFileThatWasReplacedIsNoticed()
{
    const QString name = factory->getConnection().connectionName();
    QVERIFY(QFile::rename(queue->file(), queue->file() + u".old"_s));
    QFile replacement(queue->file());
    QVERIFY(replacement.open(QIODevice::WriteOnly));
    QVERIFY(!factory->isConnectionCurrent(name));
}

/// Inode numbers are unique only within a file system.
void TestReplacedFile::sameNumberOnAnotherFileSystemIsNoticed()
{
    const QString name = factory->getConnection().connectionName();
    QVERIFY(factory->isConnectionCurrent(name));
    isOtherFileSystem = true;
    const bool isCurrent = factory->isConnectionCurrent(name);
    isOtherFileSystem = false;
    QVERIFY(!isCurrent);
}

void TestReplacedFile::sqliteFileThatIsGoneTakesNoRows()
{
    queue->put(u"cardlab"_s, u"{}"_s);
    for (const QString &suffix : {u""_s, u"-wal"_s, u"-shm"_s})
        QVERIFY(QFile::remove(queue->file() + suffix));
    Singleton<DBQueueBroker>::instance()->enqueue(u"mindbox"_s, {}, QString());
    QVERIFY2(QFile::exists(queue->file()), "the row went into the deleted file");
    QCOMPARE(queue->ids().size(), 1);
}

void TestReplacedFile::formerLogIsNotMixedIn_data()
{
    QTest::addColumn<bool>("isReplaced");
    QTest::addColumn<bool>("isLinked");
    QTest::newRow("replaced") << true << false;
    QTest::newRow("deleted") << false << false;
    QTest::newRow("replaced, below a link") << true << true;
    QTest::newRow("deleted, below a link") << false << true;
}

/// Moves a backup to the path, or deletes the file, and leaves `-wal` and `-shm` in place.
void TestReplacedFile::formerLogIsNotMixedIn()
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
        // It has not noticed yet, and reads the file that it has open.
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
    // The contents of the former log are kept, and it is reported only once.
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
void TestReplacedFile::formerLogIsPutAsideAtTheEnd()
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
    process.start(QCoreApplication::applicationFilePath(), {anotherprogram::count});
    QVERIFY(process.waitForFinished());
    QCOMPARE(QString::fromUtf8(process.readAllStandardOutput()), u"rows: 50\n"_s);
}

/// The program has begun to mix the two files. Nothing can be saved, but the service does not take
/// part.
void TestReplacedFile::formerLogThatAnotherProgramUses()
{
    const QString backup = makeBackup();
    const QString log = queue->file() + u"-wal"_s;
    moveIntoPlace(backup);
    QProcess other;
    other.start(QCoreApplication::applicationFilePath(), {anotherprogram::hold, queue->file()});
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

void TestReplacedFile::replacedFileWithoutALog()
{
    const QString backup = makeBackup();
    const LogCapture log(u"database"_s);
    for (int round = 1; round <= 2; ++round) {
        queue->ids();
        for (const QString &ending : {u"-wal"_s, u"-shm"_s})
            QVERIFY(QFile::remove(queue->file() + ending));
        QVERIFY(QFile::copy(backup, backup + u".copy"_s));
        moveIntoPlace(backup + u".copy"_s);
        // Logged once, regardless of the number of connections.
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

/// The operator has copied the companions of the new file as well.
void TestReplacedFile::replacedFileWithItsOwnLog()
{
    const QString backup = makeBackup();
    queue->ids();
    for (const QString &ending : {u"-wal"_s, u"-shm"_s}) {
        QVERIFY(QFile::rename(queue->file() + ending, queue->file() + u".old"_s + ending));
        QFile own(queue->file() + ending);
        QVERIFY(own.open(QIODevice::WriteOnly));
    }
    moveIntoPlace(backup);
    const LogCapture log(u"database"_s);
    QCOMPARE(queue->ids(u"backup"_s).size(), 50);
    QCOMPARE(log.lines().filter(u"ERROR "_s).size(), 1);
    QCOMPARE(keptLogs(), QStringList());
}

void TestReplacedFile::formerLogThatCannotBeRenamed_data()
{
    QTest::addColumn<int>("error");
    QTest::addColumn<bool>("isReplacedByHand");
    QTest::newRow("no right to the folder") << EACCES << false;
    QTest::newRow("then replaced by hand") << EACCES << true;
    QTest::newRow("deleted meanwhile") << ENOENT << false;
    QTest::newRow("deleted meanwhile, then replaced by hand") << ENOENT << true;
}

void TestReplacedFile::formerLogThatCannotBeRenamed()
{
    QFETCH(int, error);
    QFETCH(bool, isReplacedByHand);
    const QString backup = makeBackup();
    const QString log = queue->file() + u"-wal"_s;
    moveIntoPlace(backup);
    const LogCapture lines(u"database"_s);
    renameError = error;
    const QString text = connectError();
    renameError = 0;
    // The former connection ended first, and its attempt lost the log to the other program.
    const QString left = error == ENOENT ? queue->file() + u"-shm"_s : log;
    QVERIFY2(text.contains(u"рядом остался журнал '%1' прежнего файла (%2)"_s.arg(
                 left, qt_error_string(error))),
             qPrintable(text));
    if (isReplacedByHand) {
        for (const QString &ending : {u"-wal"_s, u"-shm"_s}) {
            QFile::rename(queue->file() + ending, queue->file() + u".old"_s + ending);
            QFile own(queue->file() + ending);
            QVERIFY(own.open(QIODevice::WriteOnly));
        }
    }
    QCOMPARE(connectError(), QString());
    QCOMPARE(queue->ids(u"backup"_s).size(), 50);
    // Only the former file's log is put aside.
    QCOMPARE(keptLogs().size(), error == EACCES && !isReplacedByHand ? 1 : 0);
}

void TestReplacedFile::newFileThatCannotBeLocked()
{
    const QString backup = makeBackup();
    const QString second = backup + u".second"_s;
    QVERIFY(QFile::copy(backup, second));
    moveIntoPlace(backup);
    const LogCapture lines(u"database"_s);
    lockError = ENOLCK;
    const QString text = connectError();
    // Each replacement is reported.
    moveIntoPlace(second);
    QCOMPARE(connectError(), text);
    lockError = 0;
    QVERIFY2(text.contains(u"(%1)"_s.arg(qt_error_string(ENOLCK))), qPrintable(text));
    QCOMPARE(lines.lines().filter(u"ERROR "_s), QStringList(2, u"ERROR "_s + text));
    QCOMPARE(keptLogs(), QStringList());
    QCOMPARE(connectError(), QString());
    QCOMPARE(keptLogs().size(), 1);
}

QString TestReplacedFile::makeBackup()
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

void TestReplacedFile::moveIntoPlace(const QString &file)
{
    if (::rename(QFile::encodeName(file).constData(), QFile::encodeName(queue->file()).constData())
        != 0)
        qFatal("%s", qPrintable(qt_error_string(errno)));
}

QStringList TestReplacedFile::keptLogs()
{
    const QFileInfo file(queue->file());
    QStringList result;
    const QStringList names =
        file.dir().entryList({file.fileName() + u".replaced-*-wal"_s}, QDir::Files);
    for (const QString &name : names)
        result.append(file.dir().filePath(name));
    return result;
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (const auto code = anotherprogram::run(QCoreApplication::arguments()))
        return *code;
    TestReplacedFile test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_replacedfile.moc"
