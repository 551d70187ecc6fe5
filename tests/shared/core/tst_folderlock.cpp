#include "shared/core/folderlock.h"
#include "tests/support/realfunction.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <fcntl.h>
#include <functional>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

using namespace Qt::StringLiterals;
using Result = FolderLock::Result;

namespace {

/// What the system says of the next calls; 0: what it really says.
int lockError = 0;
int writingError = 0;
/// Which of the next calls fstat() fails, from 1.
int failingStatus = 0;
/// stat() fails.
bool isFolderUnknown = false;
/// The next lstat() names another file system than the real one.
bool isOtherFileSystem = false;
/// Runs once, just before a lock is taken.
std::function<void()> beforeLock;
std::atomic<int> lockCalls = 0;
/// The account that the system names; -1: the real one.
int account = -1;

} // namespace

// The part of the system in this test: the lock finds the program's own functions before those of
// the library.
extern "C" int flock(int file, int operation) noexcept
{
    static const auto next = realFunction<int(int, int)>("flock");
    ++lockCalls;
    if (beforeLock)
        std::exchange(beforeLock, nullptr)();
    if (lockError == 0)
        return next(file, operation);
    errno = lockError;
    return -1;
}

extern "C" int open(const char *path, int flags, ...)
{
    static const auto next = realFunction<int(const char *, int, ...)>("open");
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
    va_end(rest);
    if (writingError == 0 || (flags & (O_WRONLY | O_RDWR)) == 0)
        return next(path, flags, mode);
    errno = writingError;
    return -1;
}

extern "C" int fstat(int file, struct stat *status) noexcept
{
    static const auto next = realFunction<int(int, struct stat *)>("fstat");
    if (failingStatus == 0 || --failingStatus > 0)
        return next(file, status);
    errno = ESTALE;
    return -1;
}

extern "C" int stat(const char *path, struct stat *status) noexcept
{
    static const auto next = realFunction<int(const char *, struct stat *)>("stat");
    if (!isFolderUnknown)
        return next(path, status);
    errno = ESTALE;
    return -1;
}

extern "C" int lstat(const char *path, struct stat *status) noexcept
{
    static const auto next = realFunction<int(const char *, struct stat *)>("lstat");
    const int result = next(path, status);
    if (isOtherFileSystem) {
        isOtherFileSystem = false;
        ++status->st_dev;
    }
    return result;
}

extern "C" uid_t geteuid() noexcept
{
    static const auto next = realFunction<uid_t()>("geteuid");
    return account < 0 ? next() : static_cast<uid_t>(account);
}

class TestFolderLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void oneHolderAtATime();
    void roleReplacesTheFormerOne();
    void leftoverFileIsNotALock();
    void checkDoesNotTakeTheLock();
    void childrenDoNotInherit();
    void deletedFileIsMadeAgain();
    void linkIsRefused();
    void folderIsRefused();
    void withoutAFolder();
    void folderWithoutLocks();
    void readOnlyFileSystem();
    void fileOfAnotherUser();
    void rightsOfTheFile();
    void fileOfRootGetsTheFoldersOwner();
    void toolOfAnotherUser();
    void fileReplacedDuringTheLock_data();
    void fileReplacedDuringTheLock();
    void fileThatTheServerForgot();

private:
    QString path() const { return folder->filePath(u"queue.lock"_s); }

    std::unique_ptr<QTemporaryDir> folder;
};

void TestFolderLock::init()
{
    folder = std::make_unique<QTemporaryDir>();
}

void TestFolderLock::oneHolderAtATime()
{
    QVERIFY(!FolderLock::holder(path()));
    FolderLock second(path());
    {
        FolderLock first(path());
        QCOMPARE(first.take(u"active"_s), Result::Taken);
        QCOMPARE(second.take(u"active"_s), Result::Held);
        const auto holder = FolderLock::holder(path());
        QVERIFY(holder);
        QCOMPARE(holder->processId, qint64{::getpid()});
        QCOMPARE(holder->role, u"active"_s);
    }
    QVERIFY(!FolderLock::holder(path()));
    QCOMPARE(second.take(u"active"_s), Result::Taken);
}

void TestFolderLock::roleReplacesTheFormerOne()
{
    FolderLock lock(path());
    QCOMPARE(lock.take(u"a-role-with-a-long-name"_s), Result::Taken);
    for (const QString &role : {u"standby"_s, u"active"_s, u"x"_s}) {
        lock.setRole(role);
        QCOMPARE(FolderLock::holder(path())->role, role);
    }
}

void TestFolderLock::leftoverFileIsNotALock()
{
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly));
    // The number of a running process that holds no lock.
    file.write(R"({"pid":1,"role":"active"})");
    file.close();
    QVERIFY(!FolderLock::holder(path()));
    FolderLock lock(path());
    QCOMPARE(lock.take(u"active"_s), Result::Taken);
    QCOMPARE(FolderLock::holder(path())->processId, qint64{::getpid()});
}

void TestFolderLock::checkDoesNotTakeTheLock()
{
    {
        FolderLock once(path());
        QCOMPARE(once.take(u"active"_s), Result::Taken);
    }
    std::atomic<bool> isEnding = false;
    std::atomic<int> looks = 0;
    std::thread looker([&] {
        while (!isEnding) {
            FolderLock::holder(path());
            ++looks;
            QThread::msleep(1);
        }
    });
    int refused = 0;
    while (looks < 300) {
        FolderLock lock(path());
        refused += lock.take(u"active"_s) != Result::Taken;
    }
    isEnding = true;
    looker.join();
    QCOMPARE(refused, 0);
}

void TestFolderLock::childrenDoNotInherit()
{
    QProcess child;
    {
        FolderLock lock(path());
        QCOMPARE(lock.take(u"active"_s), Result::Taken);
        child.start(u"cat"_s, QStringList());
        QVERIFY(child.waitForStarted());
    }
    QVERIFY(child.state() == QProcess::Running);
    QVERIFY(!FolderLock::holder(path()));
    child.closeWriteChannel();
    QVERIFY(child.waitForFinished());
}

void TestFolderLock::deletedFileIsMadeAgain()
{
    FolderLock lock(path());
    QCOMPARE(lock.take(u"active"_s), Result::Taken);
    QVERIFY(QFile::remove(path()));
    QVERIFY(!FolderLock::holder(path()));
    FolderLock other(path());
    QCOMPARE(other.take(u"active"_s), Result::Taken);
    QVERIFY(FolderLock::holder(path()));
}

void TestFolderLock::linkIsRefused()
{
    const QString target = folder->filePath(u"settings.ini"_s);
    QFile file(target);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("[queue]\n");
    file.close();
    QVERIFY(QFile::link(target, path()));
    FolderLock lock(path());
    QCOMPARE(lock.take(u"active"_s), Result::Refused);
    QVERIFY(!lock.reason().isEmpty());
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), "[queue]\n");
}

void TestFolderLock::folderIsRefused()
{
    QVERIFY(QDir().mkdir(path()));
    FolderLock lock(path());
    QCOMPARE(lock.take(u"active"_s), Result::Refused);
    QVERIFY(!FolderLock::holder(path()));

    QVERIFY(QDir().rmdir(path()));
    QCOMPARE(::mkfifo(QFile::encodeName(path()).constData(), 0600), 0);
    QCOMPARE(lock.take(u"active"_s), Result::Refused);
    QVERIFY(!FolderLock::holder(path()));
}

void TestFolderLock::withoutAFolder()
{
    FolderLock lock(folder->filePath(u"missing/queue.lock"_s));
    QCOMPARE(lock.take(u"active"_s), Result::Unavailable);
    QVERIFY(!lock.reason().isEmpty());
    lock.setRole(u"active"_s);
}

/// A folder of a server that has no locks to give.
void TestFolderLock::folderWithoutLocks()
{
    FolderLock lock(path());
    lockError = ENOLCK;
    const Result result = lock.take(u"active"_s);
    const bool isHeld = FolderLock::holder(path()).has_value();
    lockError = 0;
    QCOMPARE(result, Result::Unavailable);
    QCOMPARE(lock.reason(), qt_error_string(ENOLCK));
    QVERIFY(!isHeld);
    QCOMPARE(lock.take(u"active"_s), Result::Taken);
}

/// What cannot be written can be locked, where a file is left.
void TestFolderLock::readOnlyFileSystem()
{
    writingError = EROFS;
    const auto restore = qScopeGuard([] { writingError = 0; });
    FolderLock first(path());
    QCOMPARE(first.take(u"active"_s), Result::Unavailable);
    QCOMPARE(first.reason(), qt_error_string(ENOENT));
    writingError = 0;
    QVERIFY(QFile(path()).open(QIODevice::WriteOnly));
    writingError = EROFS;
    QCOMPARE(first.take(u"active"_s), Result::Taken);
    FolderLock second(path());
    QCOMPARE(second.take(u"active"_s), Result::Held);
}

/// Its rights are that user's affair.
void TestFolderLock::fileOfAnotherUser()
{
    if (::geteuid() != 0)
        QSKIP("only root gives a file away");
    QFile file(path());
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();
    QVERIFY(file.setPermissions(QFile::ReadOwner | QFile::WriteOwner));
    constexpr uid_t nobody = 65534;
    QCOMPARE(::chown(QFile::encodeName(path()).constData(), nobody, nobody), 0);
    FolderLock lock(path());
    QCOMPARE(lock.take(u"active"_s), Result::Taken);
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(path()).constData(), &status), 0);
    QCOMPARE(status.st_uid, nobody);
    QCOMPARE(status.st_mode & 07777, 0600U);
}

void TestFolderLock::rightsOfTheFile()
{
    const mode_t former = ::umask(077);
    FolderLock lock(path());
    const Result result = lock.take(u"active"_s);
    ::umask(former);
    QCOMPARE(result, Result::Taken);
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(path()).constData(), &status), 0);
    QCOMPARE(status.st_mode & 07777, mode_t{0660});
}

void TestFolderLock::fileOfRootGetsTheFoldersOwner()
{
    if (::geteuid() != 0)
        QSKIP("only root gives files away");
    constexpr uid_t nobody = 65534;
    const auto ownerOf = [](const QString &name) {
        struct stat status = {};
        return ::stat(QFile::encodeName(name).constData(), &status) == 0 ? status.st_uid : 1;
    };
    QCOMPARE(::chown(QFile::encodeName(folder->path()).constData(), nobody, nobody), 0);
    {
        FolderLock lock(path());
        QCOMPARE(lock.take(u"restore"_s), Result::Taken);
    }
    QCOMPARE(ownerOf(path()), nobody);
    // The folder's owner is unknown, but the lock is good.
    {
        isFolderUnknown = true;
        FolderLock lock(folder->filePath(u"other.lock"_s));
        const Result result = lock.take(u"restore"_s);
        isFolderUnknown = false;
        QCOMPARE(result, Result::Taken);
    }
    QCOMPARE(ownerOf(folder->filePath(u"other.lock"_s)), uid_t{0});
    // An existing file keeps its owner: it may be any file of this name.
    QCOMPARE(::chown(QFile::encodeName(path()).constData(), 0, 0), 0);
    FolderLock lock(path());
    QCOMPARE(lock.take(u"restore"_s), Result::Taken);
    QCOMPARE(ownerOf(path()), uid_t{0});
}

/// An account that is neither root nor the file's owner can change neither its owner nor its
/// rights.
void TestFolderLock::toolOfAnotherUser()
{
    if (::geteuid() != 0)
        QSKIP("only root gives a folder away");
    constexpr uid_t nobody = 65534;
    QCOMPARE(::chown(QFile::encodeName(folder->path()).constData(), nobody, nobody), 0);
    const mode_t former = ::umask(077);
    account = nobody;
    FolderLock lock(path());
    const Result result = lock.take(u"restore"_s);
    account = -1;
    ::umask(former);
    QCOMPARE(result, Result::Taken);
    struct stat status = {};
    QCOMPARE(::stat(QFile::encodeName(path()).constData(), &status), 0);
    QCOMPARE(status.st_uid, uid_t{0});
    QCOMPARE(status.st_mode & 07777, mode_t{0600});
}

void TestFolderLock::fileReplacedDuringTheLock_data()
{
    QTest::addColumn<bool>("isReplaced");
    QTest::addColumn<bool>("isMounted");
    QTest::newRow("moved away") << false << false;
    QTest::newRow("replaced") << true << false;
    QTest::newRow("same number on another file system") << false << true;
}

/// A lock on a file that the path no longer names would exclude nobody.
void TestFolderLock::fileReplacedDuringTheLock()
{
    QFETCH(bool, isReplaced);
    QFETCH(bool, isMounted);
    beforeLock = [=, this] {
        isOtherFileSystem = isMounted;
        if (isMounted)
            return;
        QFile::rename(path(), path() + u".old"_s);
        if (isReplaced)
            (void)QFile(path()).open(QIODevice::WriteOnly);
    };
    FolderLock lock(path());
    lockCalls = 0;
    QCOMPARE(lock.take(u"active"_s), Result::Taken);
    QCOMPARE(lockCalls, 2);
    const auto holder = FolderLock::holder(path());
    QVERIFY(holder);
    QCOMPARE(holder->processId, qint64{::getpid()});
}

/// A file server may have forgotten the open file at any call.
void TestFolderLock::fileThatTheServerForgot()
{
    const auto restore = qScopeGuard([] { failingStatus = 0; });
    FolderLock lock(path());
    failingStatus = 1;
    QCOMPARE(lock.take(u"active"_s), Result::Refused);
    // Its rights are unknown, but the lock is good.
    failingStatus = 2;
    QCOMPARE(lock.take(u"active"_s), Result::Taken);
    {
        // The next attempt finds the file again.
        FolderLock other(folder->filePath(u"other.lock"_s));
        failingStatus = 3;
        QCOMPARE(other.take(u"active"_s), Result::Taken);
        QCOMPARE(failingStatus, 0);
    }
    failingStatus = 1;
    QVERIFY(!FolderLock::holder(path()));
    QVERIFY(FolderLock::holder(path()));
}

QTEST_GUILESS_MAIN(TestFolderLock)
#include "tst_folderlock.moc"
