#include <QProcess>
#include <QTest>

#include <cerrno>
#include <csignal>
#include <cstring>

using namespace Qt::StringLiterals;

/// Each case runs in its own process, which gets a real signal.
class TestSignalHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void signalEndsTheLoop_data();
    void signalEndsTheLoop();
    void withoutAFunction_data();
    void withoutAFunction();
    void signalBeforeTheLoopIsKept();
    void signalToAnotherThread();
    void brokenPipeDoesNotEndTheProcess();
    void manySignalsAtOnce();
    void interruptedReadIsRepeated();
    void withoutAFreeFile();

private:
    static std::unique_ptr<QProcess> start(const QStringList &options);
    /// Waits for the end; the output without the line "ready".
    static QByteArray finish(QProcess &process);
};

std::unique_ptr<QProcess> TestSignalHandler::start(const QStringList &options)
{
    auto process = std::make_unique<QProcess>();
    process->start(QStringLiteral(SIGNALPROBE), options);
    return process;
}

QByteArray TestSignalHandler::finish(QProcess &process)
{
    if (!process.waitForFinished(30'000))
        qFatal("signalprobe: %s", qPrintable(process.errorString()));
    return process.readAllStandardOutput().replace("ready\n", "");
}

void TestSignalHandler::signalEndsTheLoop_data()
{
    QTest::addColumn<int>("number");
    QTest::addColumn<bool>("isChecked");
    const std::array signals{std::pair{"SIGTERM", SIGTERM}, std::pair{"SIGINT", SIGINT},
                             std::pair{"SIGQUIT", SIGQUIT}, std::pair{"SIGHUP", SIGHUP}};
    for (const auto &[name, number] : signals) {
        QTest::addRow("%s, end judged", name) << number << true;
        QTest::addRow("%s, end not judged", name) << number << false;
    }
}

void TestSignalHandler::signalEndsTheLoop()
{
    QFETCH(int, number);
    QFETCH(bool, isChecked);
    const auto process = start(isChecked ? QStringList() : QStringList{u"unchecked"_s});
    QVERIFY(process->waitForReadyRead(30'000));
    QCOMPARE(::kill(static_cast<pid_t>(process->processId()), number), 0);
    const int code = isChecked ? 128 + number : 0;
    QCOMPARE(finish(*process),
             "handler on the main thread\nloop ended with " + QByteArray::number(code) + "\n");
    QCOMPARE(process->exitStatus(), QProcess::NormalExit);
    QCOMPARE(process->exitCode(), code);
}

void TestSignalHandler::withoutAFunction_data()
{
    QTest::addColumn<QString>("option");
    QTest::newRow("none registered") << u"nohandler"_s;
    QTest::newRow("taken back") << u"takenback"_s;
}

void TestSignalHandler::withoutAFunction()
{
    QFETCH(QString, option);
    const auto process = start({option, u"unchecked"_s, u"early"_s});
    QCOMPARE(finish(*process), "loop ended with 0\n");
}

void TestSignalHandler::signalBeforeTheLoopIsKept()
{
    const auto process = start({u"early"_s});
    QCOMPARE(finish(*process), "handler on the main thread\nloop ended with 143\n");
}

void TestSignalHandler::signalToAnotherThread()
{
    const auto process = start({u"thread"_s});
    QCOMPARE(finish(*process), "handler on the main thread\nloop ended with 143\n");
}

void TestSignalHandler::brokenPipeDoesNotEndTheProcess()
{
    const auto process = start({u"pipe"_s});
    QVERIFY(process->waitForReadyRead(30'000));
    QCOMPARE(::kill(static_cast<pid_t>(process->processId()), SIGTERM), 0);
    QCOMPARE(finish(*process), "handler on the main thread\nloop ended with 143\n");
}

void TestSignalHandler::manySignalsAtOnce()
{
    const auto process = start({u"unchecked"_s});
    QVERIFY(process->waitForReadyRead(30'000));
    for (int count = 0; count < 1000; ++count)
        ::kill(static_cast<pid_t>(process->processId()), SIGTERM);
    const QByteArray output = finish(*process);
    QVERIFY2(output.startsWith("handler on the main thread\n"), output.constData());
    QVERIFY2(output.endsWith("loop ended with 0\n"), output.constData());
    QCOMPARE(process->exitCode(), 0);
}

void TestSignalHandler::interruptedReadIsRepeated()
{
    const auto process = start({u"interrupted"_s, u"early"_s});
    QCOMPARE(finish(*process), "read failed\nhandler on the main thread\nloop ended with 143\n");
}

/// The service does not start if nothing could end it in order.
void TestSignalHandler::withoutAFreeFile()
{
    const auto process = start({u"nofiles"_s});
    QCOMPARE(finish(*process),
             QByteArray("signalhandler: pipe2 failed: ") + strerror(EMFILE) + "\n");
    QCOMPARE(process->exitCode(), 3);
}

QTEST_GUILESS_MAIN(TestSignalHandler)
#include "tst_signalhandler.moc"
