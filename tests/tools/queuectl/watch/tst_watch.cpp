#include "tests/tools/queuectl/journalfixture.h"
#include "tests/tools/queuectl/till.h"
#include "tests/tools/queuectl/watch/terminalprogram.h"

#include "tools/queuectl/failure.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QtTest>

#include <csignal>

using namespace Qt::StringLiterals;
using queuectl::ExitCode;

namespace {

const QString body = u"{\"url\":\"http://127.0.0.1:8000/sales\"}"_s;
/// Far less than the rest of a look that waits, far more than a busy machine takes, in
/// milliseconds.
constexpr int promptly = 3000;

} // namespace

/// `queuectl watch` on a terminal.
class TestWatch : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void showsAndChanges();
    void writesWhatChangedAlone();
    void ends_data();
    void ends();
    void endsBySignal_data();
    void endsBySignal();
    void otherKeysDoNothing();
    void goesToTheBackground();
    void terminalGoesAway_data();
    void terminalGoesAway();
    void terminalThatIsStuck_data();
    void terminalThatIsStuck();
    void sizeChanges();
    void startsNarrow();
    void serviceThatHangs();
    void endsDuringALook();
    void databaseComesAndGoes();
    void lockedDatabase();
    void hostileRows();
    void typesWithoutNumber();
    void failureOfAFormerRow();
    void colours_data();
    void colours();
    void countedLooks();
    void noTerminal_data();
    void noTerminal();
    void speaksRussian();

private:
    int put(const QString &type = u"heineken"_s) { return till->database.put(type, body); }
    std::unique_ptr<TerminalProgram>
    watch(const QStringList &more = {}, const QMap<QString, QString> &environment = {},
          int columns = 80, int rows = 24,
          TerminalProgram::Hangup hangup = TerminalProgram::Hangup::Usual);

    std::unique_ptr<Till> till;
};

void TestWatch::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    till->database.ids();
}

std::unique_ptr<TerminalProgram> TestWatch::watch(const QStringList &more,
                                                  const QMap<QString, QString> &environment,
                                                  int columns, int rows,
                                                  TerminalProgram::Hangup hangup)
{
    return std::make_unique<TerminalProgram>(
        QStringLiteral(QUEUECTL_PROGRAM), QStringList{u"watch"_s, u"--interval"_s, u"1"_s} + more,
        Till::environment(environment), columns, rows, hangup);
}

void TestWatch::showsAndChanges()
{
    put();
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"!! Service: does not answer   Database: ok"_s));
    QVERIFY(program->shows(u"\n    heineken       2  "_s));
    QVERIFY(!program->text().contains(u'+'));
    QVERIFY(program->screen().isAlternate() && !program->screen().isCursorShown());
    put();
    QVERIFY(program->shows(u"\n    heineken       3 +1 "_s));
    till->database.query(u"DELETE FROM message"_s);
    QVERIFY(program->shows(u"Waiting: 0 -3"_s));
    QVERIFY(program->shows(u"\nNothing waits."_s));
    QCOMPARE(program->screen().unknown(), QStringList());
}

void TestWatch::writesWhatChangedAlone()
{
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"heineken"_s));
    const QString first = program->text().section(u'\n', 0, 0);
    program->forget();
    QVERIFY(program->waitFor([&] { return program->text().section(u'\n', 0, 0) != first; }));
    QVERIFY2(program->bytes().size() < 200, program->bytes().toHex(' ').constData());
    QVERIFY(!program->bytes().contains("\033[2J"));
}

void TestWatch::ends_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::newRow("q") << QByteArray("q");
    QTest::newRow("Q") << QByteArray("Q");
    QTest::newRow("the same key, Russian") << QByteArray("й");
    QTest::newRow("Ctrl+C") << QByteArray("\003");
}

void TestWatch::ends()
{
    QFETCH(const QByteArray, key);
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"heineken"_s));
    QVERIFY(!program->isRestored());
    program->type(key);
    QVERIFY(program->hasEnded());
    QCOMPARE(program->endSignal(), 0);
    QCOMPARE(program->exitCode(), ExitCode::Done);
    QVERIFY(program->isRestored());
    // What was typed is not shown on the screen that comes back.
    QCOMPARE(program->text().trimmed(), QString());
}

void TestWatch::endsBySignal_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGTERM") << SIGTERM;
    QTest::newRow("SIGHUP") << SIGHUP;
    QTest::newRow("SIGQUIT") << SIGQUIT;
}

void TestWatch::endsBySignal()
{
    QFETCH(const int, number);
    const auto program = watch();
    QVERIFY(program->shows(u"Nothing waits."_s));
    program->signal(number);
    QVERIFY(program->hasEnded());
    QCOMPARE(program->endSignal(), number);
    QVERIFY(program->isRestored());
}

void TestWatch::otherKeysDoNothing()
{
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"heineken"_s));
    // Letters, cursor keys, half a letter.
    program->type("abc \n\033[A\033OP\320");
    put();
    QVERIFY(program->shows(u"heineken       2 +1"_s));
    QCOMPARE(program->screen().unknown(), QStringList());
}

void TestWatch::goesToTheBackground()
{
    const auto state = [](qint64 id) {
        QFile file(u"/proc/%1/stat"_s.arg(id));
        const QByteArray line = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
        return line.mid(line.lastIndexOf(')') + 2, 1);
    };
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"heineken"_s));
    // Ctrl+Z
    program->type("\032");
    QVERIFY(program->waitFor([&] { return state(program->processId()) == "T"; }));
    QVERIFY(program->isRestored());
    program->signal(SIGCONT);
    QVERIFY(program->waitFor([&] { return program->text().contains(u"heineken       1"_s); }));
    QVERIFY(program->screen().isAlternate());
    program->type("q");
    QVERIFY(program->hasEnded());
    QVERIFY(program->isRestored());
}

void TestWatch::terminalGoesAway_data()
{
    QTest::addColumn<bool>("isIgnored");
    QTest::newRow("SIGHUP ends it") << false;
    QTest::newRow("SIGHUP is ignored") << true;
}

void TestWatch::terminalGoesAway()
{
    QFETCH(const bool, isIgnored);
    const auto program =
        watch({}, {}, 80, 24,
              isIgnored ? TerminalProgram::Hangup::Ignored : TerminalProgram::Hangup::Usual);
    QVERIFY(program->shows(u"Nothing waits."_s));
    program->hangUp();
    QVERIFY(program->hasEnded());
    // The end of the terminal is read, too, and may come first.
    if (isIgnored)
        QCOMPARE(program->endSignal(), 0);
    if (program->endSignal() != SIGHUP)
        QCOMPARE(program->exitCode(), ExitCode::Failed);
}

void TestWatch::terminalThatIsStuck_data()
{
    QTest::addColumn<bool>("isKey");
    QTest::newRow("q") << true;
    QTest::newRow("SIGTERM") << false;
}

void TestWatch::terminalThatIsStuck()
{
    QFETCH(const bool, isKey);
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"heineken"_s));
    program->stall();
    // Each size is drawn as a whole, which is more than a terminal keeps.
    for (int i = 0; i < 400; ++i) {
        program->resize(80 + i % 2, 24);
        QTest::qWait(2);
    }
    if (isKey)
        program->type("q");
    else
        program->signal(SIGTERM);
    QVERIFY(program->hasEnded());
    QCOMPARE(program->endSignal(), isKey ? 0 : SIGTERM);
}

void TestWatch::sizeChanges()
{
    for (const QString &type : {u"cardlab"_s, u"heineken"_s, u"loya"_s, u"nochange"_s, u"mfg"_s})
        put(type);
    // No look comes between.
    const auto program = watch({u"--interval"_s, u"600"_s});
    QVERIFY(program->shows(u"nochange"_s));
    program->resize(40, 12);
    QVERIFY(program->shows(u"    and 3 more, rows: 3"_s));
    QVERIFY(program->shows(u"cardlab"_s));
    program->resize(120, 30);
    QVERIFY(program->shows(u"nochange"_s));
    QVERIFY(!program->text().contains(u"more"_s));
}

void TestWatch::startsNarrow()
{
    put();
    const auto program = watch({}, {}, 40, 12);
    QVERIFY(program->shows(u"heineken       1"_s));
    QVERIFY(program->shows(u"!! Service: does not answer\nDatabase: ok\n"_s));
    QCOMPARE(program->screen().unknown(), QStringList());
}

void TestWatch::serviceThatHangs()
{
    // It accepts a connection and says nothing.
    QTcpServer service;
    QVERIFY(service.listen(QHostAddress::LocalHost));
    till->setSettings(u"port = %1\n"_s.arg(service.serverPort()));
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"reading for 3 s, q ends"_s));
    QVERIFY(program->shows(u"!! Service: another program has its port, or it hangs"_s));
    QVERIFY(program->shows(u"heineken       1"_s));
    // It is told in each look.
    QVERIFY(program->waitFor([&] { return !program->text().contains(u"reading for"_s); }));
    QVERIFY(program->waitFor([&] { return program->text().contains(u"reading for"_s); }));
}

void TestWatch::endsDuringALook()
{
    // Each of the two is waited for for five seconds.
    QTcpServer service;
    QVERIFY(service.listen(QHostAddress::LocalHost));
    till->setSettings(u"port = %1\n"_s.arg(service.serverPort()));
    till->database.query(u"PRAGMA queues.journal_mode = DELETE"_s);
    till->database.query(u"BEGIN EXCLUSIVE"_s);
    const auto program = watch();
    QVERIFY(program->shows(u"reading for 3 s, q ends"_s));
    QElapsedTimer time;
    time.start();
    program->type("q");
    QVERIFY(program->hasEnded());
    QVERIFY2(time.elapsed() < promptly, qPrintable(QString::number(time.elapsed())));
    QCOMPARE(program->endSignal(), 0);
    QCOMPARE(program->exitCode(), ExitCode::Done);
    QVERIFY(program->isRestored());
    till->database.query(u"COMMIT"_s);
}

void TestWatch::databaseComesAndGoes()
{
    const QString file = till->database.file();
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"heineken       1"_s));
    QVERIFY(QFile::rename(file, file + u".away"_s));
    QVERIFY(program->shows(u"!! Database: unreachable"_s));
    QVERIFY(program->shows(u"Below: as it was at "_s));
    QVERIFY(program->text().contains(u"heineken       1"_s));
    QVERIFY(QFile::rename(file + u".away"_s, file));
    QVERIFY(program->waitFor([&] { return !program->text().contains(u"unreachable"_s); }));
}

void TestWatch::lockedDatabase()
{
    put();
    till->database.query(u"PRAGMA queues.journal_mode = DELETE"_s);
    till->database.query(u"BEGIN EXCLUSIVE"_s);
    const auto program = watch();
    QVERIFY(program->shows(u"!! Database: unreachable"_s));
    QVERIFY(program->shows(u"locked"_s));
    till->database.query(u"COMMIT"_s);
    QVERIFY(program->shows(u"heineken       1"_s));
}

void TestWatch::hostileRows()
{
    put(u"evil\u001b[2J\u001b]0;title\u0007\u202e漢字"_s);
    put(u"heineken"_s);
    JournalFixture journal(till->database.root());
    journal.put({.verdict = u"kept"_s,
                 .kind = u"network"_s,
                 .status = 0,
                 .text = u"\u001b[31mred\u009b\r\n漢字"_s,
                 .secondsAgo = 0});
    const auto program = watch({}, {}, 120);
    QVERIFY(program->shows(uR"(!!  evil\x1b[2J\x1b]0;)"_s));
    QVERIFY(program->shows(uR"(\x1b[31mred\x9b)"_s));
    QCOMPARE(program->screen().unknown(), QStringList());
    QCOMPARE(program->bytes().count("\033[2J"), 1);
}

void TestWatch::typesWithoutNumber()
{
    till->database.query(
        u"WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 5000) "
        "INSERT INTO message (type, body, cardnumber, statuscode) "
        "SELECT 'strange' || i, '{}', '', '' FROM n"_s);
    put(u"zzz"_s);
    put();
    const auto program = watch();
    QVERIFY(program->shows(u"Waiting: 5002"_s));
    QVERIFY(program->shows(u"!!  strange"_s));
    QVERIFY(program->shows(u" more, rows: "_s));
    const QString more = program->text().section(u"    and "_s, 1).section(u' ', 0, 0);
    const qsizetype shown = program->text().count(u"!!  "_s);
    QCOMPARE(more.toInt() + shown, 5002);
}

void TestWatch::failureOfAFormerRow()
{
    const int id = put();
    JournalFixture journal(till->database.root());
    journal.put({.id = id,
                 .verdict = u"kept"_s,
                 .kind = u"network"_s,
                 .status = 0,
                 .text = u"former"_s,
                 .secondsAgo = 500});
    const auto program = watch();
    QVERIFY(program->shows(u"    heineken       1"_s));
    QVERIFY(!program->text().contains(u"former"_s));
    till->setAge(id, 550);
    QVERIFY(program->shows(u"cannot be reached: former"_s));
}

void TestWatch::colours_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("value");
    QTest::addColumn<bool>("hasColours");
    QTest::newRow("usual") << u"TERM"_s << u"xterm"_s << true;
    QTest::newRow("NO_COLOR") << u"NO_COLOR"_s << u"1"_s << false;
    QTest::newRow("terminal without") << u"TERM"_s << u"vt220"_s << false;
}

void TestWatch::colours()
{
    QFETCH(const QString, name);
    QFETCH(const QString, value);
    QFETCH(const bool, hasColours);
    put(u"nosuch"_s);
    const auto program = watch({}, {{name, value}});
    QVERIFY(program->shows(u"!!  nosuch"_s));
    QCOMPARE(program->bytes().contains("\033[31m"), hasColours);
    QCOMPARE(program->bytes().contains("\033[1m"), hasColours);
}

void TestWatch::countedLooks()
{
    const auto one = watch({u"--count"_s, u"1"_s});
    QVERIFY(one->hasEnded());
    QCOMPARE(one->exitCode(), ExitCode::NoService);
    QVERIFY(one->isRestored());
    // It stays, since nobody has sent it away.
    QVERIFY(one->shows(u"Nothing waits."_s));
    QVERIFY(QFile::remove(till->database.file()));
    const auto two = watch({u"--count"_s, u"2"_s});
    QVERIFY(two->hasEnded());
    QCOMPARE(two->exitCode(), ExitCode::NoDatabase);
}

void TestWatch::noTerminal_data()
{
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("words");
    QTest::newRow("English") << u"C.UTF-8"_s << u"Standard output is not a terminal"_s;
    QTest::newRow("Russian") << u"ru_RU.UTF-8"_s << u"Стандартный вывод — не терминал"_s;
}

void TestWatch::noTerminal()
{
    QFETCH(const QString, language);
    QFETCH(const QString, words);
    const CommandResult piped = till->run({u"watch"_s}, {}, {{u"LC_ALL"_s, language}});
    QCOMPARE(piped.exitCode, ExitCode::Usage);
    QCOMPARE(piped.out, QString());
    QVERIFY2(piped.err.startsWith(words), qPrintable(piped.err));
    QVERIFY(piped.err.contains(u"queuectl watch --json"_s));

    const CommandResult dumb =
        till->runOnTerminal({u"watch"_s}, {}, {{u"TERM"_s, u"dumb"_s}, {u"LC_ALL"_s, language}});
    QCOMPARE(dumb.exitCode, ExitCode::Usage);
    QVERIFY2(dumb.out.contains(u"TERM=dumb"_s), qPrintable(dumb.out));
}

void TestWatch::speaksRussian()
{
    put();
    const auto program = watch({}, {{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}});
    QVERIFY(program->shows(u"каждые 1 с, q — выход"_s));
    QVERIFY(program->shows(u"Ждут: 1"_s));
    QVERIFY(program->shows(u"\n    Тип "_s));
}

QTEST_GUILESS_MAIN(TestWatch)
#include "tst_watch.moc"
