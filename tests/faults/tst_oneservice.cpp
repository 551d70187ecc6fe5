#include "rig/serviceprocess.h"
#include "shared/core/folderlock.h"
#include "shared/core/paths.h"
#include "tests/support/queuedatabase.h"

#include <QDir>
#include <QFile>
#include <QTest>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

struct Outcome
{
    int exitCode = -1;
    QString output;
    QString errors;
};

Outcome runProgram(const QStringList &arguments)
{
    QProcess program;
    program.start(QStringLiteral(QUEUE_PROGRAM), arguments);
    if (!program.waitForFinished(60'000)) {
        program.kill();
        program.waitForFinished();
        return {};
    }
    return {program.exitStatus() == QProcess::NormalExit ? program.exitCode() : -1,
            QString::fromUtf8(program.readAllStandardOutput()),
            QString::fromUtf8(program.readAllStandardError())};
}

} // namespace

/// One service for a folder, tested with the real program.
class TestOneService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void secondOneIsRefused();
    void killedServiceLeavesNoLock();
    void argumentsStartNothing_data();
    void argumentsStartNothing();
    void questions_data();
    void questions();
    void unusableFileIsRefused();
    void deliversWithoutALockFile();
    void roleIsReported();

private:
    rig::ServiceProcess newService() const;
    void start(rig::ServiceProcess &service);

    std::unique_ptr<QueueDatabase> database;
};

void TestOneService::init()
{
    database.reset();
    database = std::make_unique<QueueDatabase>();
}

rig::ServiceProcess TestOneService::newService() const
{
    return {QStringLiteral(QUEUE_PROGRAM), database->till(), {}, rig::ServiceProcess::Log::File};
}

void TestOneService::start(rig::ServiceProcess &service)
{
    database->setSettings(database->till().queueSettings());
    service.start();
    if (!QTest::qWaitFor([&] { return !service.ask(u"/status"_s).isEmpty(); }, 60'000))
        qFatal("the service does not start: %s", service.output().constData());
}

void TestOneService::secondOneIsRefused()
{
    rig::ServiceProcess service = newService();
    start(service);
    const Outcome second = runProgram({});
    const QString sentence =
        u"Каталог '%1' уже обслуживает процесс %2, второй не запускается"_s.arg(
            database->root() + u"/tallocash/cash/queue"_s, QString::number(service.processId()));
    QCOMPARE(second.exitCode, 2);
    QCOMPARE(second.errors, sentence + u'\n');
    QVERIFY2(second.output.endsWith(u" ERROR [queue] "_s + sentence + u'\n'),
             qPrintable(second.output));
    QCOMPARE(second.output.count(u'\n'), 1);
    QVERIFY(service.isRunning());
    QVERIFY(service.stop());
}

void TestOneService::killedServiceLeavesNoLock()
{
    rig::ServiceProcess service = newService();
    start(service);
    service.kill();
    QVERIFY(QFile::exists(serviceLockFile()));
    start(service);
    QVERIFY(service.stop());
}

void TestOneService::argumentsStartNothing_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::newRow("short help") << QStringList{u"-h"_s};
    QTest::newRow("unknown") << QStringList{u"--verbose"_s};
    QTest::newRow("word") << QStringList{u"status"_s};
    QTest::newRow("empty") << QStringList{u""_s};
    QTest::newRow("help and more") << QStringList{u"--help"_s, u"me"_s};
    QTest::newRow("one of Qt's") << QStringList{u"-qmljsdebugger=port:1"_s};
}

void TestOneService::argumentsStartNothing()
{
    QFETCH(QStringList, arguments);
    QVERIFY(!QFile::exists(database->file()));
    const Outcome outcome = runProgram(arguments);
    QCOMPARE(outcome.exitCode, 2);
    QCOMPARE(outcome.output, u""_s);
    QCOMPARE(outcome.errors.count(u'\n'), 1);
    QVERIFY(outcome.errors.startsWith(u"queue не принимает параметров"_s));
    QVERIFY(!QFile::exists(database->file()) && !QFile::exists(serviceLockFile()));
}

void TestOneService::questions_data()
{
    QTest::addColumn<QString>("argument");
    QTest::addColumn<QString>("start");
    QTest::newRow("version") << u"--version"_s
                             << u"queue "_s + QStringLiteral(QUEUE_VERSION) + u'\n';
    QTest::newRow("help") << u"--help"_s << u"queue доставляет сообщения кассы"_s;
}

void TestOneService::questions()
{
    QFETCH(QString, argument);
    QFETCH(QString, start);
    QVERIFY(!QFile::exists(database->file()));
    const Outcome outcome = runProgram({argument});
    QCOMPARE(outcome.exitCode, 0);
    QVERIFY2(outcome.output.startsWith(start), qPrintable(outcome.output));
    QCOMPARE(outcome.errors, u""_s);
    QVERIFY(!QFile::exists(database->file()) && !QFile::exists(serviceLockFile()));
}

void TestOneService::unusableFileIsRefused()
{
    // Root ignores file rights, but not a link.
    QVERIFY(QFile::link(database->root() + u"/elsewhere"_s, serviceLockFile()));
    const Outcome outcome = runProgram({});
    QCOMPARE(outcome.exitCode, 2);
    QVERIFY2(outcome.errors.startsWith(u"Файл '%1' недоступен ("_s.arg(serviceLockFile())),
             qPrintable(outcome.errors));
    QVERIFY(!QFile::exists(database->root() + u"/elsewhere"_s));
    QVERIFY(QFile::remove(serviceLockFile()));

    QFile foreign(serviceLockFile());
    QVERIFY(foreign.open(QIODevice::WriteOnly));
    foreign.close();
    QVERIFY(foreign.setPermissions(QFile::Permissions()));
    rig::ServiceProcess service = newService();
    service.obeyFileRights();
    service.start();
    QVERIFY(service.waitForEnd());
    QCOMPARE(service.end(), u"exit 2"_s);
    QVERIFY(service.output().contains("queue.lock' недоступен (Permission denied)"));
}

void TestOneService::deliversWithoutALockFile()
{
    // A folder without room for a new file: all files that the service writes exist already.
    const QString folder = QFileInfo(serviceLockFile()).path();
    const QByteArray name = QFile::encodeName(folder);
    database->put(u"nosuch"_s, u"{}"_s);
    rig::ServiceProcess service = newService();
    service.obeyFileRights();
    database->setSettings(database->till().queueSettings()
                          + u"[database]\nname = %1/queues.db\n"_s.arg(database->root()));
    QCOMPARE(::chmod(name.constData(), 0555), 0);
    service.start();
    const bool isUp = QTest::qWaitFor([&] { return !service.ask(u"/status"_s).isEmpty(); }, 60'000);
    QCOMPARE(::chmod(name.constData(), 0755), 0);
    QVERIFY2(isUp, service.output().constData());
    QVERIFY(!QFile::exists(serviceLockFile()));
    QCOMPARE(service.output().count("служба работает без защиты от второго запуска"), 1);
    QVERIFY(service.stop());
}

void TestOneService::roleIsReported()
{
    rig::ServiceProcess service = newService();
    start(service);
    const auto holder = FolderLock::holder(serviceLockFile());
    QVERIFY(holder);
    QCOMPARE(holder->processId, service.processId());
    QCOMPARE(holder->role, u"active"_s);
    QVERIFY(service.stop());
    QVERIFY(!FolderLock::holder(serviceLockFile()));
}

QTEST_GUILESS_MAIN(TestOneService)
#include "tst_oneservice.moc"
