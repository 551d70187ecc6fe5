#include "rig/childprocess.h"
#include "rig/error.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using rig::ChildProcess;
using rig::Error;

/// A shell script instead of the programs that the rig starts.
class TestChildProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void endsByItself();
    void orderlyEnd();
    void endInTime();
    void killed();
    void killedWithTheObject();
    void outputOfSeveralRuns();
    void errorsApart();
    void environment();
    void fileRightsHold();
    void resourceUse();
    void missingProgram();

private:
    static QStringList script(const QString &text) { return {u"-c"_s, text}; }
    QByteArray content(const QString &name) const;

    const QString shell = u"/bin/sh"_s;
    QTemporaryDir folder;
};

QByteArray TestChildProcess::content(const QString &name) const
{
    QFile file(folder.filePath(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : "no such file";
}

void TestChildProcess::endsByItself()
{
    ChildProcess process(shell, script(u"exit 7"_s));
    QVERIFY(!process.hasEnded());
    process.start();
    QVERIFY(process.waitForEnd());
    QVERIFY(process.hasEnded() && !process.isRunning());
    QCOMPARE(process.end(), u"exit 7"_s);
    QCOMPARE(process.processId(), 0);
}

void TestChildProcess::orderlyEnd()
{
    ChildProcess process(shell,
                         script(u"trap 'exit 0' TERM; echo ready; while :; do sleep 0.01; done"_s));
    process.setOutputFile(folder.filePath(u"orderly"_s));
    process.start();
    QVERIFY(process.isRunning());
    // The shell must reach its trap first.
    QVERIFY(QTest::qWaitFor([this] { return content(u"orderly"_s) == "ready\n"; }, 60'000));
    QVERIFY(process.stop());
    QCOMPARE(process.end(), u"exit 0"_s);
}

void TestChildProcess::endInTime()
{
    ChildProcess process(shell, script(u"exec sleep 600"_s));
    process.start();
    QVERIFY(!process.waitForEnd(10ms));
    QVERIFY(process.isRunning());
    // It ends by the signal, which is not a clean end.
    QVERIFY(!process.stop());
    QCOMPARE(process.end(), u"signal"_s);
}

void TestChildProcess::killed()
{
    ChildProcess process(shell, script(u"exec sleep 600"_s));
    process.start();
    process.signal(SIGSTOP);
    QVERIFY(process.isRunning());
    process.kill();
    QVERIFY(process.hasEnded());
    QCOMPARE(process.end(), u"signal"_s);
}

void TestChildProcess::killedWithTheObject()
{
    pid_t id = 0;
    {
        ChildProcess process(shell, script(u"exec sleep 600"_s));
        process.start();
        id = static_cast<pid_t>(process.processId());
        QCOMPARE(::kill(id, 0), 0);
    }
    QVERIFY(::kill(id, 0) != 0);
}

void TestChildProcess::outputOfSeveralRuns()
{
    ChildProcess process(shell, script(u"echo out; echo err >&2"_s));
    process.setOutputFile(folder.filePath(u"both"_s));
    for (int run = 0; run < 2; ++run) {
        process.start();
        QVERIFY(process.waitForEnd());
    }
    QCOMPARE(content(u"both"_s), "out\nerr\nout\nerr\n");
}

void TestChildProcess::errorsApart()
{
    ChildProcess process(shell, script(u"echo out; echo err >&2"_s));
    process.setOutputFile(folder.filePath(u"out"_s));
    process.setErrorFile(folder.filePath(u"err"_s));
    process.start();
    QVERIFY(process.waitForEnd());
    QCOMPARE(content(u"out"_s), "out\n");
    QCOMPARE(content(u"err"_s), "err\n");
}

void TestChildProcess::environment()
{
    ChildProcess process(shell, script(u"echo \"$RIG_TEST\""_s));
    process.setOutputFile(folder.filePath(u"variables"_s));
    process.setVariable(u"RIG_TEST"_s, u"a b"_s);
    process.start();
    QVERIFY(process.waitForEnd());
    QCOMPARE(content(u"variables"_s), "a b\n");
}

void TestChildProcess::fileRightsHold()
{
    QFile secret(folder.filePath(u"secret"_s));
    QVERIFY(secret.open(QIODevice::WriteOnly));
    secret.close();
    QVERIFY(secret.setPermissions(QFile::Permissions()));
    ChildProcess process(shell,
                         script(u"test ! -r '%1' && test ! -w '%1'"_s.arg(secret.fileName())));
    process.obeyFileRights();
    process.start();
    QVERIFY(process.waitForEnd());
    QCOMPARE(process.end(), u"exit 0"_s);
}

void TestChildProcess::resourceUse()
{
    ChildProcess process(shell, script(u"while :; do :; done"_s));
    process.start();
    const rig::ProcessUse use = process.use();
    QVERIFY(use.memory() > 0 && use.memory() <= use.peakMemory());
    QCOMPARE(use.threads(), 1);
    QVERIFY(use.descriptors() >= 3);
    QVERIFY(QTest::qWaitFor([&use] { return use.processorTime() > 10ms; }, 60'000));
    process.kill();
    QVERIFY_THROWS_EXCEPTION(Error, use.memory());
    QVERIFY_THROWS_EXCEPTION(Error, use.processorTime());

    const rig::ProcessUse own(::getpid());
    const int before = own.sockets();
    const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
    QCOMPARE(own.sockets(), before + 1);
    ::close(socket);
}

void TestChildProcess::missingProgram()
{
    ChildProcess process(u"/nonexistent/program"_s);
    QVERIFY_THROWS_EXCEPTION(Error, process.start());
}

QTEST_GUILESS_MAIN(TestChildProcess)
#include "tst_childprocess.moc"
