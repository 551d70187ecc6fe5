#include "rig/serviceprocess.h"
#include "rig/till.h"
#include "rig/waiting.h"
#include "tools/stand/samplestand.h"
#include "tools/stand/scenarioerror.h"

#include <QProcess>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace rig;
using namespace stand;

/// The demo with the real service, below a folder of its own.
class TestSampleStand : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void deliversSamples();
    void namesWhatWasNotDelivered();
    void showsChosenTypes();
    void deliversOnceTheFailureIsOver_data();
    void deliversOnceTheFailureIsOver();
    void onlyChosenTypesFail();
    void namesWhatTheFailureRemoved();
    void failsOverEveryTransport_data();
    void failsOverEveryTransport();
    void unknownTypes();
    void listsSamples();
    void program_data();
    void program();
    void showsBodies();
    void findsItsScenarios();
    void settingsComeFirst();
    void contradictingSettings();
    void nothingToShow();

private:
    void writeFile(const QString &path, const QByteArray &content);
    /// A file with one sample of the type.
    void writeSample(const QString &type, const QByteArray &more = {});
    bool show(const ShowOptions &options = {});
    QByteArray result() const;
    struct Run
    {
        int exitCode;
        QString output;
        QString errors;
    };
    /// The program with these arguments, in English.
    static Run runStand(const QStringList &arguments,
                        const QString &program = QStringLiteral(STAND_PROGRAM));

    std::unique_ptr<QTemporaryDir> folder;
    QString root;
    QString scenarios;
    /// The service's, of the latest show.
    QString log;
};

void TestSampleStand::init()
{
    folder = std::make_unique<QTemporaryDir>();
    root = folder->filePath(u"root"_s);
    scenarios = folder->filePath(u"scenarios"_s);
    const PortReservation port;
    writeFile(root + u"/tallocash/cash/conf/00.ini"_s,
              "[queue]\ntimeout = 1\nport = " + QByteArray::number(port.port()) + "\n");
    QDir().mkpath(root + u"/tallocash/cash/queue"_s);
    QDir().mkpath(root + u"/tmp"_s);
}

void TestSampleStand::writeFile(const QString &path, const QByteArray &content)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) < 0)
        qFatal("%s", qPrintable(file.errorString()));
}

void TestSampleStand::writeSample(const QString &type, const QByteArray &more)
{
    const QByteArray message = R"("message": {"type": ")" + type.toUtf8()
                               + R"(", "body": {"url": "{{http}}/a", "body": "1"}})";
    writeFile(u"%1/%2.json"_s.arg(scenarios, type),
              R"({"scenarios": [{"name": "told, but no sample"},
                 {"name": "n", "sample": true, )"
                  + message + more + R"(, "exchange": {"request": "POST /a", "body": "1"}}]})");
}

bool TestSampleStand::show(const ShowOptions &options)
{
    SampleStand(root, scenarios, options).writeSettings();
    ServiceProcess service(qEnvironmentVariable("QUEUE_PROGRAM", QStringLiteral(QUEUE_PROGRAM)),
                           Till(root), {});
    service.start();
    const bool isDelivered = SampleStand(root, scenarios, options).run();
    log = service.log().text();
    service.terminate();
    if (!waitUntil([&] { return service.hasEnded(); }) || !service.endFault().isEmpty())
        qFatal("%s\n%s", qPrintable(service.endFault()), qPrintable(service.log().text()));
    return isDelivered;
}

QByteArray TestSampleStand::result() const
{
    QFile file(root + u"/stand-result.txt"_s);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no result");
}

void TestSampleStand::deliversSamples()
{
    writeSample(u"heineken"_s);
    writeSample(u"smartscales"_s, R"(, "settings": {"x": {"peer": "{{http}}"}})");
    QVERIFY(show());
    QFile settings(root + u"/tallocash/cash/conf/10-stand.ini"_s);
    QVERIFY(settings.open(QIODevice::ReadOnly));
    QVERIFY(settings.readAll().contains("[x]\npeer = http://127.0.0.1:"));
    QVERIFY2(result().contains(": 2 "), result());
}

void TestSampleStand::namesWhatWasNotDelivered()
{
    writeSample(u"heineken"_s);
    writeSample(u"cardlab"_s); // puts, and the sample tells of a POST
    QVERIFY(!show());
    QVERIFY2(result().contains(": 1 "), result());
}

void TestSampleStand::showsChosenTypes()
{
    writeSample(u"heineken"_s);
    writeSample(u"smartscales"_s);
    writeSample(u"cardlab"_s); // would go wrong
    QVERIFY(show({.types = {u"heineken"_s, u"smartscales"_s}}));
    QVERIFY2(result().contains(": 2 "), result());
    QVERIFY(!log.contains(u"cardlab"_s));
}

void TestSampleStand::deliversOnceTheFailureIsOver_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QString>("logged");

    // clang-format off
    QTest::newRow("refused") << int(Failure::Kind::Refuse) << u"отклонил соединение"_s;
    QTest::newRow("503")     << int(Failure::Kind::Status) << u"код состояния HTTP 503"_s;
    QTest::newRow("closed")  << int(Failure::Kind::Close)  << u"Ошибка при отправке сообщения"_s;
    // clang-format on
}

void TestSampleStand::deliversOnceTheFailureIsOver()
{
    QFETCH(int, kind);
    QFETCH(QString, logged);
    writeSample(u"heineken"_s);
    const Failure failure{.kind = Failure::Kind(kind), .status = 503};
    QVERIFY(show({.failure = failure, .failingSeconds = 2}));
    QVERIFY2(result().contains(": 1 "), result());
    QVERIFY2(log.contains(logged), qPrintable(log));
}

void TestSampleStand::onlyChosenTypesFail()
{
    writeSample(u"heineken"_s);
    writeSample(u"smartscales"_s);
    const Failure failure{.kind = Failure::Kind::Status, .status = 503};
    QVERIFY(show({.failure = failure, .failingTypes = {u"smartscales"_s}, .failingSeconds = 2}));
    QVERIFY2(result().contains(": 2 "), result());
    QVERIFY2(log.contains(u"ERROR [smartscales]"_s), qPrintable(log));
    QVERIFY2(!log.contains(u"ERROR [heineken]"_s), qPrintable(log));
}

void TestSampleStand::namesWhatTheFailureRemoved()
{
    // Any answer finishes this type.
    scenarios = QStringLiteral(SCENARIOS);
    const Failure failure{.kind = Failure::Kind::Status, .status = 503};
    QVERIFY(
        show({.types = {u"softcheck"_s, u"heineken"_s}, .failure = failure, .failingSeconds = 2}));
    QVERIFY2(result().contains(": 1 "), result());
}

void TestSampleStand::failsOverEveryTransport_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("logged");

    QTest::newRow("HTTP") << u"heineken"_s << u"ERROR [heineken]"_s;
    QTest::newRow("HTTPS with a client's certificate") << u"goldcrown"_s << u"ERROR [goldcrown]"_s;
    QTest::newRow("TCP") << u"eps"_s << u"WARN [eps]"_s;
}

void TestSampleStand::failsOverEveryTransport()
{
    QFETCH(QString, type);
    QFETCH(QString, logged);
    scenarios = QStringLiteral(SCENARIOS);
    const Failure failure{.kind = Failure::Kind::Refuse};
    QVERIFY(show({.types = {type}, .failure = failure, .failingSeconds = 2}));
    QVERIFY2(result().contains(": 1 "), result());
    QVERIFY2(log.contains(logged), qPrintable(log));
}

void TestSampleStand::unknownTypes()
{
    writeSample(u"heineken"_s);
    writeSample(u"smartscales"_s);
    const Failure failure{.kind = Failure::Kind::Refuse};
    const ShowOptions unknown{.types = {u"heiniken"_s}};
    QVERIFY_THROWS_EXCEPTION(UsageError, SampleStand(root, scenarios, unknown));
    const ShowOptions notShown{
        .types = {u"heineken"_s}, .failure = failure, .failingTypes = {u"smartscales"_s}};
    QVERIFY_THROWS_EXCEPTION(UsageError, SampleStand(root, scenarios, notShown));
}

void TestSampleStand::listsSamples()
{
    const QStringList lines = SampleStand::list(QStringLiteral(SCENARIOS));
    QSet<QString> types;
    for (const QString &line : lines)
        types.insert(line.section(u' ', 0, 0));
    QCOMPARE(types.size(), 58);
    const auto kindOf = [&](const QString &type) {
        const QStringList found = lines.filter(QRegularExpression(u"^%1 "_s.arg(type)));
        return found.value(0).simplified().section(u' ', 1, 1);
    };
    QCOMPARE(kindOf(u"heineken"_s), u"HTTP"_s);
    QVERIFY(kindOf(u"goldcrown"_s).contains(u"HTTPS"_s));
    QVERIFY(kindOf(u"eps"_s).contains(u"TCP"_s));
}

TestSampleStand::Run TestSampleStand::runStand(const QStringList &arguments, const QString &program)
{
    QProcess process;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"LC_ALL"_s, u"C.UTF-8"_s);
    process.setProcessEnvironment(environment);
    process.start(program, arguments);
    if (!waitUntil([&] { return process.state() == QProcess::NotRunning; }))
        qFatal("%s does not end", qPrintable(program));
    return {process.exitCode(), QString::fromUtf8(process.readAllStandardOutput()),
            QString::fromUtf8(process.readAllStandardError())};
}

void TestSampleStand::program_data()
{
    QTest::addColumn<QString>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("said");

    // clang-format off
    QTest::newRow("help")              << u"--help"_s                                << 0 << u"--slow <seconds>"_s;
    QTest::newRow("version")           << u"--version"_s                             << 0 << u"queue-stand "_s;
    QTest::newRow("list")              << u"--list"_s                                << 0 << u"\nspasiboBatch "_s;
    QTest::newRow("settings")          << u"--root ROOT --type loya --write-settings"_s << 0 << u""_s;
    QTest::newRow("no settings")       << u"--root NOWHERE"_s                        << 1 << u"call with --write-settings first"_s;
    QTest::newRow("no scenarios")      << u"--list --scenarios NOWHERE"_s            << 1 << u"NOWHERE"_s;
    QTest::newRow("unknown option")    << u"--nonsense"_s                            << 2 << u"nonsense"_s;
    QTest::newRow("a word too many")   << u"--root ROOT heineken"_s                  << 2 << u"heineken"_s;
    QTest::newRow("no root")           << u""_s                                      << 2 << u"--root"_s;
    QTest::newRow("unknown type")      << u"--root ROOT --type heiniken"_s           << 2 << u"heiniken"_s;
    QTest::newRow("two failures")      << u"--root ROOT --refuse --close"_s          << 2 << u"Only one failure can be played"_s;
    QTest::newRow("no failure")        << u"--root ROOT --failing loya"_s            << 2 << u"--failing and --for need"_s;
    QTest::newRow("no status")         << u"--root ROOT --status 99"_s               << 2 << u"'99' is not a number from 200 to 599"_s;
    QTest::newRow("status, a word")    << u"--root ROOT --status down"_s             << 2 << u"'down' is not a number"_s;
    QTest::newRow("slow, but how")     << u"--root ROOT --slow 0"_s                  << 2 << u"--slow: '0'"_s;
    QTest::newRow("for no time")       << u"--root ROOT --refuse --for 0"_s          << 2 << u"--for: '0'"_s;
    QTest::newRow("port, no type")     << u"--port 8000"_s                           << 2 << u"--port needs exactly one --type"_s;
    QTest::newRow("port and root")     << u"--port 8000 --type loya --root ROOT"_s   << 2 << u"--root cannot be used with --port"_s;
    QTest::newRow("no port")           << u"--port 0 --type loya"_s                  << 2 << u"'0' is not a number from 1"_s;
    QTest::newRow("state, no port")    << u"--root ROOT --state PAID"_s              << 2 << u"--state needs --port"_s;
    QTest::newRow("answer, no file")   << u"--port 8000 --type loya --answer NOWHERE"_s << 2 << u"NOWHERE"_s;
    // clang-format on
}

void TestSampleStand::program()
{
    QFETCH(QString, arguments);
    QFETCH(QString, said);
    QStringList words = arguments.split(u' ', Qt::SkipEmptyParts);
    words.replaceInStrings(u"ROOT"_s, root);
    words.replaceInStrings(u"NOWHERE"_s, folder->filePath(u"NOWHERE"_s));
    if (!words.contains(u"--scenarios"_s))
        words += {u"--scenarios"_s, QStringLiteral(SCENARIOS)};
    const Run run = runStand(words);
    const QString text = run.output + run.errors;
    QTEST(run.exitCode, "exitCode");
    QVERIFY2(text.contains(said), qPrintable(text));
    // The requested output goes to standard output, an error to standard error.
    QVERIFY2((run.exitCode == 0 ? run.errors : run.output).isEmpty(), qPrintable(text));
}

void TestSampleStand::showsBodies()
{
    const QStringList arguments{
        u"--root"_s, root, u"--scenarios"_s, QStringLiteral(SCENARIOS), u"--type"_s, u"heineken"_s};
    QCOMPARE(runStand(arguments + QStringList{u"--write-settings"_s}).exitCode, 0);
    ServiceProcess service(QStringLiteral(QUEUE_PROGRAM), Till(root));
    service.start();
    const Run run = runStand(arguments + QStringList{u"--verbose"_s});
    service.terminate();
    QVERIFY(waitUntil([&] { return service.hasEnded(); }));
    QCOMPARE(run.exitCode, 0);
    const QString verb = u"  heineken  POST   http://127.0.0.1:"_s;
    QVERIFY2(run.output.contains(verb), qPrintable(run.output));
    QVERIFY2(run.output.contains(u"/promo/receipts  200\n"_s), qPrintable(run.output));
    QVERIFY2(run.output.contains(u"\n    > Authorization: Bearer 3f1c\n"_s),
             qPrintable(run.output));
    QVERIFY2(run.output.contains(u"\n    > {\"receipt\":\"0042\""_s), qPrintable(run.output));
    QVERIFY2(run.output.contains(u"\n    < 200\n"_s), qPrintable(run.output));
    QVERIFY2(run.output.endsWith(u"Message types delivered: 1 of 1\n"_s), qPrintable(run.output));
}

void TestSampleStand::settingsComeFirst()
{
    writeSample(u"heineken"_s);
    QVERIFY_THROWS_EXCEPTION(ScenarioError, SampleStand(root, scenarios).run());
}

void TestSampleStand::contradictingSettings()
{
    writeSample(u"heineken"_s, R"(, "settings": {"x": {"a": 1}})");
    writeSample(u"smartscales"_s, R"(, "settings": {"x": {"a": 2}})");
    QVERIFY_THROWS_EXCEPTION(ScenarioError, SampleStand(root, scenarios).writeSettings());
}

void TestSampleStand::nothingToShow()
{
    writeFile(scenarios + u"/a.json"_s, R"({"scenarios": [{"name": "n"}]})");
    QVERIFY_THROWS_EXCEPTION(ScenarioError, SampleStand(root, scenarios));
}

void TestSampleStand::findsItsScenarios()
{
    const Run list = runStand({u"--list"_s});
    QCOMPARE(list.errors, QString());
    QCOMPARE(list.exitCode, 0);
    QCOMPARE(list.output, SampleStand::list(QStringLiteral(SCENARIOS)).join(u'\n') + u'\n');

    // A copy elsewhere has none, and says what to do.
    const QTemporaryDir folder;
    const QString copy = folder.filePath(u"queue-stand"_s);
    QVERIFY(QFile::copy(QStringLiteral(STAND_PROGRAM), copy));
    const Run lost = runStand({u"--list"_s}, copy);
    QCOMPARE(lost.exitCode, 2);
    QVERIFY2(lost.errors.contains(u"name their folder with --scenarios"), qPrintable(lost.errors));
}

QTEST_GUILESS_MAIN(TestSampleStand)
#include "tst_samplestand.moc"
