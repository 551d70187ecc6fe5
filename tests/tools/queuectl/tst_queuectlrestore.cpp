#include "shared/core/connectionfactory.h"
#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "shared/core/singleton.h"
#include "tests/tools/queuectl/till.h"

#include "tools/queuectl/failure.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QtTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using queuectl::ExitCode;

/// A backup is restored, or nothing changes.
class TestQueuectlRestore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void backupIsPutIntoPlace();
    void ownerAndRightsStay();
    void formerLogIsKeptWithItsFile();
    void logOfAnotherFileIsTakenAway();
    void backupWithALogBesideIt();
    void lostDatabase();
    void linkToTheDatabase();
    void badBackups_data();
    void badBackups();
    void lockOfTheService();
    void tillHasItOpen();
    void questions_data();
    void questions();
    void noTerminalToAskOn();
    void databaseServer();

private:
    /// The types of the rows, read from a file that no program has open.
    static QStringList rows(const QString &file);
    void close();
    /// A backup with the rows a and b, while the database has b, c and d.
    QString makeBackup();
    /// Every file in the database's folder with a digest of its contents.
    QStringList folder() const;
    CommandResult restore(const QString &file, const QStringList &more = {u"--yes"_s});
    QString kept() const;

    std::unique_ptr<Till> till;
};

void TestQueuectlRestore::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
}

QStringList TestQueuectlRestore::rows(const QString &file)
{
    QStringList result;
    {
        QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"rows"_s);
        database.setDatabaseName(file);
        database.open();
        QSqlQuery query(database);
        if (!query.exec(u"PRAGMA integrity_check"_s) || !query.next()
            || query.value(0).toString() != u"ok")
            result.append(u"damaged"_s);
        if (!query.exec(u"SELECT type FROM message ORDER BY messageid"_s))
            result.append(query.lastError().text());
        while (query.next())
            result.append(query.value(0).toString());
    }
    QSqlDatabase::removeDatabase(u"rows"_s);
    return result;
}

void TestQueuectlRestore::close()
{
    const QStringList names = QSqlDatabase::connectionNames();
    for (const QString &name : names)
        Singleton<ConnectionFactory>::instance()->removeConnection(name);
}

QString TestQueuectlRestore::makeBackup()
{
    const QString backup = till->database.root() + u"/backup.db"_s;
    till->database.put(u"a"_s, u"{}"_s);
    till->database.put(u"b"_s, u"{}"_s);
    till->database.query(u"VACUUM queues INTO ?"_s, {backup});
    till->database.query(u"DELETE FROM message WHERE type = 'a'"_s);
    till->database.put(u"c"_s, u"{}"_s);
    till->database.put(u"d"_s, u"{}"_s);
    close();
    return backup;
}

QStringList TestQueuectlRestore::folder() const
{
    QStringList result;
    const QDir dir = QFileInfo(till->database.file()).dir();
    const QStringList names = dir.entryList(QDir::Files | QDir::Hidden, QDir::Name);
    for (const QString &name : names) {
        QFile file(dir.filePath(name));
        // A lock file that no process has locked means nothing.
        if (name == u"queue.lock" || !file.open(QIODevice::ReadOnly))
            continue;
        const QByteArray digest =
            QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256).toHex();
        result.append(name + u' ' + QString::fromLatin1(digest));
    }
    return result;
}

CommandResult TestQueuectlRestore::restore(const QString &file, const QStringList &more)
{
    return till->run(QStringList{u"restore"_s, file} + more);
}

QString TestQueuectlRestore::kept() const
{
    const QDir dir = QFileInfo(till->database.file()).dir();
    const QStringList names = dir.entryList({u"queues.db.before-restore-*"_s}, QDir::Files);
    for (const QString &name : names) {
        if (!name.endsWith(u"-wal"))
            return dir.filePath(name);
    }
    return {};
}

void TestQueuectlRestore::backupIsPutIntoPlace()
{
    const QString backup = makeBackup();
    const CommandResult outcome = restore(backup, {u"--yes"_s, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    const QJsonObject result = outcome.json();
    QCOMPARE(result.value(u"restored"_s), QJsonValue(true));
    QCOMPARE(result.value(u"file"_s).toString(), till->database.file());
    QCOMPARE(result.value(u"source"_s).toString(), backup);
    QCOMPARE(result.value(u"rows"_s).toInt(), 2);
    QCOMPARE(result.value(u"formerRows"_s).toInt(), 3);
    QCOMPARE(result.value(u"kept"_s).toArray(), QJsonArray{kept()});
    QCOMPARE(folder().size(), 2);
    QCOMPARE(rows(till->database.file()), (QStringList{u"a"_s, u"b"_s}));
    QCOMPARE(rows(kept()), (QStringList{u"b"_s, u"c"_s, u"d"_s}));
    QCOMPARE(rows(backup), (QStringList{u"a"_s, u"b"_s}));
    // And the service adds the tables that it needs.
    QCOMPARE(till->database.ids().size(), 2);
    close();

    QVERIFY(restore(backup).out.contains(u"is restored from %1, rows: 2"_s.arg(backup)));
}

void TestQueuectlRestore::ownerAndRightsStay()
{
    const QString backup = makeBackup();
    const QByteArray file = QFile::encodeName(till->database.file());
    QCOMPARE(::chmod(file.constData(), 0640), 0);
    QCOMPARE(::chmod(QFile::encodeName(backup).constData(), 0600), 0);
    constexpr uid_t nobody = 65534;
    const bool isRoot = ::geteuid() == 0;
    if (isRoot)
        QCOMPARE(::chown(file.constData(), nobody, nobody), 0);
    QCOMPARE(restore(backup).exitCode, ExitCode::Done);
    struct stat status = {};
    QCOMPARE(::stat(file.constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t{0640});
    QCOMPARE(status.st_uid, isRoot ? nobody : ::geteuid());
    QCOMPARE(status.st_gid, isRoot ? nobody : ::getegid());
}

void TestQueuectlRestore::formerLogIsKeptWithItsFile()
{
    // As after a crash: the last rows are only in the log.
    const QString file = till->database.file();
    const QString backup = till->database.root() + u"/backup.db"_s;
    till->database.put(u"a"_s, u"{}"_s);
    till->database.query(u"VACUUM queues INTO ?"_s, {backup});
    till->database.query(u"PRAGMA queues.wal_checkpoint(TRUNCATE)"_s);
    till->database.put(u"b"_s, u"{}"_s);
    for (const QString &ending : {u""_s, u"-wal"_s, u"-shm"_s})
        QVERIFY(QFile::copy(file + ending, backup + u".crash"_s + ending));
    close();
    for (const QString &ending : {u""_s, u"-wal"_s, u"-shm"_s}) {
        QFile::remove(file + ending);
        QVERIFY(QFile::rename(backup + u".crash"_s + ending, file + ending));
    }

    const CommandResult outcome = restore(backup, {u"--yes"_s, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QCOMPARE(outcome.json().value(u"formerRows"_s).toInt(), 2);
    QCOMPARE(outcome.json().value(u"kept"_s).toArray(), (QJsonArray{kept(), kept() + u"-wal"_s}));
    QCOMPARE(folder().size(), 3);
    QCOMPARE(rows(file), QStringList{u"a"_s});
    QCOMPARE(rows(kept()), (QStringList{u"a"_s, u"b"_s}));
}

/// The case in which the service stops delivering: a backup was moved to the path beside the log of
/// the former file.
void TestQueuectlRestore::logOfAnotherFileIsTakenAway()
{
    const QString file = till->database.file();
    const QString backup = makeBackup();
    till->database.query(u"DELETE FROM message"_s);
    for (int i = 0; i < 200; ++i)
        till->database.put(u"former"_s, QString(1000, u'x'));
    QVERIFY(QFile::copy(file + u"-wal"_s, backup + u".log"_s));
    close();
    QVERIFY(QFile::remove(file));
    QVERIFY(QFile::copy(backup, file));
    QVERIFY(QFile::rename(backup + u".log"_s, file + u"-wal"_s));

    QCOMPARE(restore(backup).exitCode, ExitCode::Done);
    QCOMPARE(rows(file), (QStringList{u"a"_s, u"b"_s}));
    // Neither of them was changed by that.
    QVERIFY(QFileInfo(kept() + u"-wal"_s).size() > 200'000);
    QVERIFY(QFile::remove(kept() + u"-wal"_s));
    QCOMPARE(rows(kept()), (QStringList{u"a"_s, u"b"_s}));
}

void TestQueuectlRestore::backupWithALogBesideIt()
{
    const QString file = till->database.file();
    const QString backup = till->database.root() + u"/backup.db"_s;
    till->database.put(u"a"_s, u"{}"_s);
    till->database.query(u"PRAGMA queues.wal_checkpoint(TRUNCATE)"_s);
    till->database.put(u"b"_s, u"{}"_s);
    for (const QString &ending : {u""_s, u"-wal"_s})
        QVERIFY(QFile::copy(file + ending, backup + ending));
    till->database.query(u"DELETE FROM message"_s);
    close();
    QCOMPARE(restore(backup).exitCode, ExitCode::Done);
    QCOMPARE(rows(file), (QStringList{u"a"_s, u"b"_s}));
    QVERIFY2(QFileInfo(backup + u"-wal"_s).size() > 0, "the backup was changed");
}

void TestQueuectlRestore::lostDatabase()
{
    const QString backup = makeBackup();
    const QString file = till->database.file();
    QVERIFY(QFile::remove(file));
    till->write(u"/tallocash/cash/queue/queues.db-wal"_s, "what is left");
    const CommandResult outcome = restore(backup, {u"--yes"_s, u"--json"_s});
    QCOMPARE(outcome.exitCode, ExitCode::Done);
    QVERIFY(outcome.json().value(u"formerRows"_s).isNull());
    QCOMPARE(outcome.json().value(u"kept"_s).toArray().size(), 1);
    QCOMPARE(rows(file), (QStringList{u"a"_s, u"b"_s}));
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(file).constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t{0660});
}

void TestQueuectlRestore::linkToTheDatabase()
{
    const QString backup = makeBackup();
    const QString file = till->database.file();
    const QString elsewhere = till->database.root() + u"/disk/elsewhere.db"_s;
    QVERIFY(QDir().mkpath(QFileInfo(elsewhere).path()));
    QVERIFY(QFile::rename(file, elsewhere));
    QVERIFY(QFile::link(elsewhere, file));
    QCOMPARE(restore(backup).exitCode, ExitCode::Done);
    QVERIFY(QFileInfo(file).isSymLink());
    QCOMPARE(rows(elsewhere), (QStringList{u"a"_s, u"b"_s}));
    QCOMPARE(QFileInfo(elsewhere).dir().entryList({u"elsewhere.db.before-restore-*"_s}).size(), 1);
}

void TestQueuectlRestore::badBackups_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("reason");
    // clang-format off
    QTest::newRow("missing")          << u"missing"_s   << int(ExitCode::NotFound) << u"There is no file"_s;
    QTest::newRow("a folder")         << u"folder"_s    << int(ExitCode::NotFound) << u"There is no file"_s;
    QTest::newRow("the file itself")  << u"itself"_s    << int(ExitCode::Failed)   << u"is the database itself"_s;
    QTest::newRow("text")             << u"text"_s      << int(ExitCode::Found)    << u"not a readable SQLite file"_s;
    QTest::newRow("empty")            << u"empty"_s     << int(ExitCode::Found)    << u"no table message"_s;
    QTest::newRow("cut off")          << u"cut off"_s   << int(ExitCode::Found)    << u"SQLite"_s;
    QTest::newRow("damaged")          << u"damaged"_s   << int(ExitCode::Found)    << u"it is damaged"_s;
    QTest::newRow("another database") << u"another"_s   << int(ExitCode::Found)    << u"no table message"_s;
    QTest::newRow("a column short")   << u"short"_s     << int(ExitCode::Found)    << u"no column statuscode"_s;
    // clang-format on
}

void TestQueuectlRestore::badBackups()
{
    QFETCH(QString, kind);
    QFETCH(int, exitCode);
    QFETCH(QString, reason);
    for (int i = 0; i < 100; ++i)
        till->database.put(u"big"_s, QString(1000, u'x'));
    QString backup = makeBackup();
    const auto change = [&backup](const QStringList &statements) {
        {
            QSqlDatabase database = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"change"_s);
            database.setDatabaseName(backup);
            QVERIFY(database.open());
            QSqlQuery query(database);
            for (const QString &statement : statements)
                QVERIFY2(query.exec(statement), qPrintable(query.lastError().text()));
        }
        QSqlDatabase::removeDatabase(u"change"_s);
    };
    QFile file(backup);
    if (kind == u"missing") {
        QVERIFY(file.remove());
    } else if (kind == u"folder") {
        backup = till->database.root();
    } else if (kind == u"itself") {
        backup = till->database.file();
    } else if (kind == u"text" || kind == u"empty") {
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        file.write(kind == u"text" ? QByteArray(5000, 'x') : QByteArray());
        file.close();
    } else if (kind == u"cut off") {
        QVERIFY(file.resize(file.size() / 2));
    } else if (kind == u"damaged") {
        QVERIFY(file.open(QIODevice::ReadWrite) && file.seek(file.size() / 2));
        QCOMPARE(file.write(QByteArray(8192, '\x5A')), 8192);
        file.close();
    } else if (kind == u"another") {
        change({u"DROP TABLE message"_s});
    } else {
        change({u"ALTER TABLE message DROP COLUMN statuscode"_s});
    }
    const QStringList before = folder();

    const CommandResult outcome = restore(backup);
    QCOMPARE(outcome.exitCode, exitCode);
    QVERIFY2((outcome.out + outcome.err).contains(reason), qPrintable(outcome.out + outcome.err));
    if (exitCode != ExitCode::NotFound)
        QVERIFY((outcome.out + outcome.err).contains(u"Nothing was changed."));
    QCOMPARE(folder(), before);
    if (exitCode == ExitCode::Found) {
        const QJsonObject result = restore(backup, {u"--yes"_s, u"--json"_s}).json();
        QCOMPARE(result.value(u"restored"_s), QJsonValue(false));
        QVERIFY(result.value(u"fault"_s).toString().contains(reason));
    }
}

void TestQueuectlRestore::lockOfTheService()
{
    const QString backup = makeBackup();
    const QStringList before = folder();
    FolderLock lock(serviceLockFile());
    QCOMPARE(lock.take(u"active"_s), FolderLock::Result::Taken);
    const CommandResult outcome = restore(backup);
    QCOMPARE(outcome.exitCode, ExitCode::Failed);
    QVERIFY2(outcome.err.contains(u"Process %1 works on the folder"_s.arg(::getpid())),
             qPrintable(outcome.err));
    QCOMPARE(folder(), before);
}

void TestQueuectlRestore::tillHasItOpen()
{
    const QString backup = makeBackup();
    till->database.ids();
    const CommandResult outcome = restore(backup);
    QCOMPARE(outcome.exitCode, ExitCode::Failed);
    QVERIFY2(
        outcome.err.contains(u"The database is open in tst_queuectlres (%1)"_s.arg(::getpid())),
        qPrintable(outcome.err));
    QCOMPARE(kept(), QString());
    QCOMPARE(till->database.ids().size(), 3);
    close();
    QCOMPARE(restore(backup).exitCode, ExitCode::Done);
}

void TestQueuectlRestore::questions_data()
{
    QTest::addColumn<QByteArray>("answer");
    QTest::addColumn<bool>("isDone");
    QTest::newRow("yes") << QByteArray("y\n") << true;
    QTest::newRow("no") << QByteArray("n\n") << false;
    QTest::newRow("nothing") << QByteArray("\n") << false;
}

void TestQueuectlRestore::questions()
{
    QFETCH(QByteArray, answer);
    QFETCH(bool, isDone);
    const QString backup = makeBackup();
    const QString file = till->database.file();
    const CommandResult outcome = till->runOnTerminal({u"restore"_s, backup}, answer);
    const QString question = u"Replace %1 (rows: 3) by %2 (rows: 2)?"_s.arg(file, backup);
    QVERIFY2(outcome.out.contains(question), qPrintable(outcome.out));
    QCOMPARE(outcome.exitCode, isDone ? ExitCode::Done : ExitCode::NotConfirmed);
    QCOMPARE(kept().isEmpty(), !isDone);
    QCOMPARE(rows(file).size(), isDone ? 2 : 3);
    QCOMPARE(QFileInfo(file).dir().entryList({u"*restoring*"_s}), QStringList());
}

void TestQueuectlRestore::noTerminalToAskOn()
{
    const QString backup = makeBackup();
    const CommandResult outcome = restore(backup, {});
    QCOMPARE(outcome.exitCode, ExitCode::NotConfirmed);
    QVERIFY(outcome.err.contains(u"--yes"));
    QCOMPARE(kept(), QString());
    QCOMPARE(rows(till->database.file()).size(), 3);
}

void TestQueuectlRestore::databaseServer()
{
    const QString backup = makeBackup();
    till->setSettings(u"[database]\ndriver = QMYSQL\nsocket = /nowhere\n"_s);
    const CommandResult outcome = restore(backup);
    QCOMPARE(outcome.exitCode, ExitCode::Failed);
    QVERIFY2(outcome.err.contains(u"The settings name a database server"), qPrintable(outcome.err));
}

QTEST_GUILESS_MAIN(TestQueuectlRestore)
#include "tst_queuectlrestore.moc"
