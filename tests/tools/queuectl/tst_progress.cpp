#include "rig/loopbackserver.h"
#include "tests/tools/queuectl/till.h"
#include "tests/tools/queuectl/watch/terminalgrid.h"

#include "tools/queuectl/failure.h"
#include "tools/queuectl/progress.h"

#include <QElapsedTimer>
#include <QFile>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;
using rig::LoopbackServer;

namespace {

const QString body = u"{\"url\":\"http://127.0.0.1:8000/sales\"}"_s;
const QMap<QString, QString> russian{{u"LC_ALL"_s, u"ru_RU.UTF-8"_s}};

/// What is left on a terminal, line by line.
QString leftOn(const QString &output)
{
    TerminalGrid grid(80, 40);
    grid.write(QString(output).replace(u"\n"_s, u"\r\n"_s).toUtf8());
    return grid.text();
}

} // namespace

/// How far long commands say they are.
class TestProgress : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void lines_data();
    void lines();
    void onTerminalOnly_data();
    void onTerminalOnly();
    void erasedBeforeAFailure();
    void seldomDrawn();

private:
    std::unique_ptr<Till> till;
    QString file;
};

void TestProgress::init()
{
    // The former one puts the environment back.
    till.reset();
    till = std::make_unique<Till>();
    for (int i = 0; i < 3; ++i)
        till->database.put(u"heineken"_s, body);
    file = till->database.root() + u"/rows.jsonl"_s;
    QCOMPARE(till->run({u"export"_s, u"--output"_s, file}).exitCode, ExitCode::Done);
}

void TestProgress::lines_data()
{
    QTest::addColumn<qint64>("done");
    QTest::addColumn<QString>("what");
    QTest::addColumn<int>("columns");
    QTest::addColumn<QString>("line");
    const QString dots(40, u'.');
    const QString signs(40, u'#');
    const auto row = [](const char *name, qint64 done, const QString &what, int columns,
                        const QString &line) {
        QTest::newRow(name) << done << what << columns << line;
    };
    row("begins", 0, {}, 80, u'[' + dots + u"] 0%  0/200"_s);
    row("half", 100, {}, 80, u'[' + signs.first(20) + dots.first(20) + u"] 50%  100/200"_s);
    row("nearly done", 199, {}, 80, u'[' + signs.first(39) + u".] 99%  199/200"_s);
    row("done", 200, {}, 80, u'[' + signs + u"] 100%  200/200"_s);
    row("more than there was", 300, {}, 80, u'[' + signs + u"] 100%  300/200"_s);
    row("a part", 100, u"shape"_s, 80,
        u'[' + signs.first(20) + dots.first(20) + u"] 50%  100/200  shape"_s);
    row("room for the bar", 200, {}, 57, u'[' + signs + u"] 100%  200/200"_s);
    row("no room for the bar", 200, {}, 56, u"100%  200/200"_s);
    row("no room", 200, u"shape"_s, 12, u"100%  200/…"_s);
    row("hostile", 200, u"a\u001b[2J"_s, 56, u"100%  200/200  a\\x1b[2J"_s);
}

void TestProgress::lines()
{
    QFETCH(const qint64, done);
    QFETCH(const QString, what);
    QFETCH(const int, columns);
    QTEST(progressLine(done, 200, what, columns), "line");
}

void TestProgress::onTerminalOnly_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("english");
    QTest::addColumn<QString>("translated");
    QTest::newRow("export") << QStringList{u"export"_s, u"--output"_s, u"FILE"_s}
                            << u"] 100%  3/3"_s << u"] 100%  3/3"_s;
    QTest::newRow("import, checking") << QStringList{u"import"_s, u"FILE"_s}
                                      << u"] 0%  0/5  checking"_s << u"] 0%  0/5  проверка"_s;
    QTest::newRow("import, writing") << QStringList{u"import"_s, u"FILE"_s}
                                     << u"] 100%  3/3  writing"_s << u"] 100%  3/3  запись"_s;
    QTest::newRow("bundle") << QStringList{u"bundle"_s, u"--output"_s, u"FILE.tar.gz"_s}
                            << u"] 50%  4/8  log file"_s << u"] 50%  4/8  файл журнала"_s;
    QTest::newRow("settle") << QStringList{u"settle"_s, u"--wait"_s, u"1"_s}
                            << u"/1  seconds; rows that wait: 3"_s
                            << u"/1  секунд; ждут строк: 3"_s;
}

void TestProgress::onTerminalOnly()
{
    QFETCH(QStringList, arguments);
    QFETCH(const QString, english);
    QFETCH(const QString, translated);
    arguments.replaceInStrings(u"FILE"_s, file);
    LoopbackServer service;
    service.play(
        QList<LoopbackServer::Reply>(40, LoopbackServer::answer(200, "{\"errorsCount\":0}")));
    till->setSettings(u"port = %1\n"_s.arg(service.port()));

    const QString shown = till->runOnTerminal(arguments).out;
    QVERIFY2(shown.contains(english), qPrintable(shown));
    QVERIFY2(!leftOn(shown).contains(u'%'), qPrintable(leftOn(shown)));
    const QString inRussian = till->runOnTerminal(arguments, {}, russian).out;
    QVERIFY2(inRussian.contains(translated), qPrintable(inRussian));

    const QString dumb = till->runOnTerminal(arguments, {}, {{u"TERM"_s, u"dumb"_s}}).out;
    QVERIFY2(!dumb.contains(u'%') && !dumb.contains(u'\u001b'), qPrintable(dumb));
    const CommandResult piped = till->run(arguments);
    QCOMPARE(piped.err, QString());
    QVERIFY2(!piped.out.contains(u'%'), qPrintable(piped.out));
}

void TestProgress::erasedBeforeAFailure()
{
    till->database.query(u"BEGIN IMMEDIATE"_s);
    const CommandResult outcome = till->runOnTerminal({u"import"_s, file});
    till->database.query(u"ROLLBACK"_s);
    QCOMPARE(outcome.exitCode, ExitCode::Failed);
    QVERIFY2(leftOn(outcome.out).startsWith(u"The database refuses a statement"_s),
             qPrintable(leftOn(outcome.out)));
}

void TestProgress::seldomDrawn()
{
    constexpr int rows = 3000;
    QFile many(file);
    QVERIFY(many.open(QIODevice::WriteOnly));
    for (int i = 0; i < rows; ++i)
        many.write(R"({"type":"heineken","body":{"url":"http://127.0.0.1:8000/sales"}})"
                   "\n");
    many.write("{\"exported\":3000}\n");
    many.close();
    QElapsedTimer time;
    time.start();
    const QString shown = till->runOnTerminal({u"import"_s, file}).out;
    // Five times a second, and the beginning and the end of both parts.
    const qint64 most = time.elapsed() / 200 + 6;
    QVERIFY2(shown.count(u'%') <= most, qPrintable(shown));
    QVERIFY2(shown.contains(u"100%  3000/3000  writing"_s), qPrintable(shown));
}

QTEST_GUILESS_MAIN(TestProgress)
#include "tst_progress.moc"
