#include "tools/queuectl/watch/watchlines.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

namespace {

const QDateTime noon(QDate(2026, 11, 22), QTime(12, 0));

/// Nothing wrong, and nothing there.
WatchValues calm()
{
    WatchValues values;
    values.time = noon;
    values.rowsTime = noon;
    values.service = PortState::Service;
    values.role = u"active"_s;
    return values;
}

WatchedType waiting(const QString &type, int count, int ageSeconds)
{
    return {.type = type,
            .waiting = count,
            .oldest = noon.addSecs(-ageSeconds),
            .lastDelivered = noon.addSecs(-60)};
}

WatchedType failing(const QString &type, int count, int failingSeconds)
{
    WatchedType result = waiting(type, count, failingSeconds);
    result.failingSince = noon.addSecs(-failingSeconds);
    result.cause = Cause::Network;
    result.answer = u"refused by 127.0.0.1:8000"_s;
    return result;
}

WatchedType delivered(const QString &type, int count)
{
    return {.type = type, .delivered = count, .lastDelivered = noon.addSecs(-60)};
}

WatchValues with(const QList<WatchedType> &types)
{
    WatchValues values = calm();
    values.types = types;
    return values;
}

QString textOf(const ScreenLine &line)
{
    QString text;
    for (const Span &span : line)
        text += span.text;
    while (text.endsWith(u' '))
        text.chop(1);
    return text;
}

QStringList textOf(const Screen &screen)
{
    QStringList lines;
    for (const ScreenLine &line : screen.lines)
        lines.append(textOf(line));
    return lines;
}

QStringList lines(const WatchValues &now, const WatchValues &before = {}, int columns = 80,
                  int rows = 24, int readingSeconds = 0)
{
    return textOf(watchScreen(now, before,
                              {.host = u"till-17"_s,
                               .intervalSeconds = 2,
                               .readingSeconds = readingSeconds,
                               .columns = columns,
                               .rows = rows}));
}

} // namespace

/// The screen of `queuectl watch`, as text.
class TestWatchLines : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void wholeScreen();
    void urgency_data();
    void urgency();
    void exitCode_data();
    void exitCode();
    void order();
    void orderStaysWithDeliveries();
    void moreTypesThanLines_data();
    void moreTypesThanLines();
    void droppedBeforeIdle();
    void typesBeyondCounting();
    void changes();
    void changeIsNotToldByToneAlone();
    void changeOfTheFailure();
    void largeChanges_data();
    void largeChanges();
    void midnight();
    void states_data();
    void states();
    void databaseGoesAway();
    void withoutJournal();
    void longFaults();
    void beforeTheFirstLook();
    void longLook();
    void narrow();
    void everySizeFits_data();
    void everySizeFits();
    void hostileTexts();
};

void TestWatchLines::initTestCase()
{
    // The texts below are the English ones.
    qputenv("LC_ALL", "C.UTF-8");
}

void TestWatchLines::wholeScreen()
{
    WatchedType dropping = delivered(u"spasibo"_s, 84);
    dropping.dropped = 3;
    WatchedType heineken = failing(u"heineken"_s, 31, 7860);
    heineken.delivered = 120;
    const WatchValues before = with({heineken, dropping, waiting(u"cardlab"_s, 6, 3)});
    WatchValues now = before;
    now.types[0].waiting = 33;
    now.types[1].delivered = 86;
    now.types[2].waiting = 5;
    now.databaseErrors = 2;
    // clang-format off
    QCOMPARE(lines(now, before), (QStringList{
        u"12:00:00   every 2 s, q ends   till-17"_s,
        u"Service: ok   Database: ok   Database errors: 2 +2"_s,
        u"Waiting: 38 +1      Delivered today: 206 +2      Dropped: 3"_s,
        u""_s,
        u"    Type     Waiting        Oldest Today        Last failure"_s,
        u"!!  heineken      33 +2     2h 11m   120        09:49 cannot be reached: refuse…"_s,
        u"    cardlab        5 -1         3s     0"_s,
        u"    spasibo        0             -    86 +2     dropped today: 3"_s,
    }));
    // clang-format on
}

void TestWatchLines::urgency_data()
{
    QTest::addColumn<QString>("marks");
    QTest::addColumn<int>("age");
    QTest::addColumn<int>("failing");
    QTest::addColumn<bool>("hasHandler");
    QTest::addColumn<bool>("wasDelivered");
    const auto row = [](const char *name, const QString &marks, int age, int failing,
                        bool hasHandler = true, bool wasDelivered = true) {
        QTest::newRow(name) << marks << age << failing << hasHandler << wasDelivered;
    };
    row("young", u"  "_s, 600, -1);
    row("over ten minutes", u"! "_s, 601, -1);
    row("an hour", u"! "_s, 3600, -1);
    row("over an hour", u"!!"_s, 3601, -1);
    row("fails", u"! "_s, 5, 3);
    row("fails for nearly a quarter of an hour", u"! "_s, 5, 899);
    row("fails for a quarter of an hour", u"!!"_s, 5, 900);
    row("was never delivered and only refused", u"!!"_s, 5, 3, true, false);
    row("was never delivered, not tried yet", u"  "_s, 5, -1, true, false);
    row("nobody delivers it", u"!!"_s, 5, -1, false);
    row("from the future", u"  "_s, -500, -1);
}

void TestWatchLines::urgency()
{
    QFETCH(const QString, marks);
    QFETCH(const int, age);
    QFETCH(const int, failing);
    QFETCH(const bool, hasHandler);
    QFETCH(const bool, wasDelivered);
    WatchedType type = waiting(u"heineken"_s, 1, age);
    type.hasHandler = hasHandler;
    if (!wasDelivered)
        type.lastDelivered = {};
    if (failing >= 0)
        type.failingSince = noon.addSecs(-failing);
    QCOMPARE(lines(with({type})).last().first(2), marks);
    // What does not wait needs nobody.
    type.waiting = 0;
    QCOMPARE(lines(with({type})).last().first(2), u"  "_s);
}

void TestWatchLines::exitCode_data()
{
    QTest::addColumn<WatchValues>("values");
    QTest::addColumn<int>("code");
    QTest::newRow("well") << with({waiting(u"a"_s, 3, 5)}) << int(Done);
    QTest::newRow("fails, was delivered before") << with({failing(u"a"_s, 3, 950)}) << int(Done);
    QTest::newRow("old") << with({waiting(u"a"_s, 3, 5), waiting(u"b"_s, 3, 4000)}) << int(Found);
    WatchValues values = calm();
    values.service = PortState::Other;
    QTest::newRow("no service") << values << int(NoService);
    values.databaseFault = u"away"_s;
    QTest::newRow("no database") << values << int(NoDatabase);
}

void TestWatchLines::exitCode()
{
    QFETCH(const WatchValues, values);
    QFETCH(const int, code);
    QCOMPARE(int(values.exitCode()), code);
}

void TestWatchLines::order()
{
    const QStringList shown = lines(with({
        delivered(u"a"_s, 7),
        waiting(u"b"_s, 1, 5),
        waiting(u"c"_s, 1, 4000),
        waiting(u"d"_s, 1, 700),
        failing(u"e"_s, 1, 5000),
        failing(u"f"_s, 1, 20),
        waiting(u"g"_s, 9, 5),
    }));
    QStringList types;
    for (const QString &line : shown.mid(5))
        types.append(line.mid(4, 1));
    // Bad ones and those to be careful of by their oldest row, the others by name.
    QCOMPARE(types.join(QString()), u"ecdfabg"_s);
}

void TestWatchLines::orderStaysWithDeliveries()
{
    const QStringList first = lines(with({delivered(u"a"_s, 7), waiting(u"b"_s, 1, 5)}));
    const QStringList second = lines(with({waiting(u"a"_s, 1, 5), delivered(u"b"_s, 1)}));
    QVERIFY(first[5].startsWith(u"    a"_s) && first[6].startsWith(u"    b"_s));
    QVERIFY(second[5].startsWith(u"    a"_s) && second[6].startsWith(u"    b"_s));
}

void TestWatchLines::moreTypesThanLines_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<int>("types");
    QTest::addColumn<int>("shown");
    QTest::addColumn<QString>("last");
    QTest::newRow("fit exactly") << 24 << 19 << 19 << u"    t18"_s;
    QTest::newRow("one too many") << 24 << 20 << 18 << u"    and 2 more, rows: 4"_s;
    QTest::newRow("many") << 24 << 58 << 18 << u"    and 40 more, rows: 80"_s;
    // Without the empty line.
    QTest::newRow("few lines") << 8 << 58 << 3 << u"    and 55 more, rows: 110"_s;
    QTest::newRow("one line for all") << 5 << 58 << 0 << u"    and 58 more, rows: 116"_s;
}

void TestWatchLines::moreTypesThanLines()
{
    QFETCH(const int, rows);
    QFETCH(const int, types);
    QFETCH(const int, shown);
    QFETCH(const QString, last);
    QList<WatchedType> all;
    for (int i = 0; i < types; ++i)
        all.append(waiting(u"t%1"_s.arg(i, 2, 10, QChar(u'0')), 2, 5));
    const QStringList found = lines(with(all), {}, 80, rows);
    QCOMPARE(found.size(), rows);
    QVERIFY2(found.last().startsWith(last), qPrintable(found.last()));
    QCOMPARE(found.filter(QRegularExpression(u"^    t\\d"_s)).size(), shown);

    // The most urgent one is there, wherever its name has it.
    all.append(waiting(u"zz"_s, 2, 4000));
    all.append(delivered(u"aa"_s, 1));
    const QString urgent = lines(with(all), {}, 80, std::max(rows, 6)).join(u'\n');
    QVERIFY2(urgent.contains(u"\n!!  zz"_s), qPrintable(urgent));
    if (types > 19)
        QVERIFY2(!urgent.contains(u"\n    aa"_s), qPrintable(urgent));
}

void TestWatchLines::droppedBeforeIdle()
{
    WatchedType dropping = delivered(u"zz"_s, 1);
    dropping.dropped = 1;
    const QStringList shown =
        lines(with({delivered(u"a"_s, 1), delivered(u"b"_s, 9), dropping}), {}, 80, 6);
    QCOMPARE(shown.size(), 6);
    QVERIFY2(shown[4].startsWith(u"    zz "_s), qPrintable(shown[4]));
    QCOMPARE(shown[5], u"    and 2 more, rows: 0"_s);
}

void TestWatchLines::typesBeyondCounting()
{
    WatchValues values = with({waiting(u"a"_s, 1, 5)});
    values.unlistedTypes = 900;
    values.unlistedRows = 1800;
    const QStringList shown = lines(values);
    QCOMPARE(shown.last(), u"    and 900 more, rows: 1800"_s);
    QVERIFY2(shown[2].startsWith(u"Waiting: 1801"_s), qPrintable(shown[2]));
}

void TestWatchLines::changes()
{
    const WatchValues before = with({waiting(u"a"_s, 4, 5), waiting(u"gone"_s, 1, 5)});
    const QStringList shown = lines(with({waiting(u"a"_s, 4, 7), waiting(u"new"_s, 3, 1)}), before);
    QVERIFY2(shown[2].startsWith(u"Waiting: 7 +2 "_s), qPrintable(shown[2]));
    QVERIFY2(shown[5].startsWith(u"    a          4            7s     0"_s), qPrintable(shown[5]));
    QVERIFY2(shown[6].startsWith(u"    new        3 +3         1s     0"_s), qPrintable(shown[6]));
    // The first look has nothing to compare with.
    QVERIFY(!lines(before).join(u'\n').contains(u'+'));
}

void TestWatchLines::changeIsNotToldByToneAlone()
{
    const WatchValues before = with({waiting(u"a"_s, 4, 5)});
    const WatchValues now = with({waiting(u"a"_s, 5, 5)});
    const Screen changed = watchScreen(now, before, {});
    const Screen same = watchScreen(now, now, {});
    const auto strong = [](const ScreenLine &line) {
        return std::any_of(line.cbegin(), line.cend(),
                           [](const Span &span) { return span.tone == Tone::Strong; });
    };
    QVERIFY(strong(changed.lines.last()) && !strong(same.lines.last()));
    QVERIFY(textOf(changed.lines.last()) != textOf(same.lines.last()));
}

void TestWatchLines::changeOfTheFailure()
{
    const WatchedType well = waiting(u"a"_s, 4, 5);
    const WatchedType fails = failing(u"a"_s, 4, 5);
    WatchedType other = fails;
    other.answer = u"another answer"_s;
    const auto marks = [](const WatchedType &now, const WatchedType &before) {
        return lines(with({now}), with({before})).last().first(4);
    };
    QCOMPARE(marks(well, well), u"    "_s);
    QCOMPARE(marks(fails, well), u"! * "_s);
    QCOMPARE(marks(fails, fails), u"!   "_s);
    QCOMPARE(marks(other, fails), u"! * "_s);
    QCOMPARE(marks(well, fails), u"  * "_s);
    WatchedType drops = well;
    drops.dropped = 1;
    QCOMPARE(marks(drops, well), u"  * "_s);
    QCOMPARE(marks(well, drops), u"    "_s);
}

void TestWatchLines::largeChanges_data()
{
    QTest::addColumn<int>("more");
    QTest::addColumn<QString>("change");
    QTest::newRow("999") << 999 << u" +999 "_s;
    QTest::newRow("a thousand") << 1000 << u" +1k "_s;
    QTest::newRow("nearly a million") << 999'999 << u" +999k "_s;
    QTest::newRow("a million") << 1'000'000 << u" +1M "_s;
    QTest::newRow("fewer") << -1500 << u" -1k "_s;
}

void TestWatchLines::largeChanges()
{
    QFETCH(const int, more);
    QFETCH(const QString, change);
    const QStringList shown =
        lines(with({waiting(u"a"_s, 2'000'000 + more, 5)}), with({waiting(u"a"_s, 2'000'000, 5)}));
    QVERIFY2(shown.last().contains(change), qPrintable(shown.last()));
    QVERIFY2(shown.last().contains(u"5s     0"_s), qPrintable(shown.last()));
}

void TestWatchLines::midnight()
{
    const QStringList shown = lines(with({delivered(u"a"_s, 2)}), with({delivered(u"a"_s, 900)}));
    QVERIFY2(!shown.join(u'\n').contains(u'-' + QString::number(898)), qPrintable(shown.last()));
    QCOMPARE(shown.last().simplified(), u"a 0 - 2"_s);
}

void TestWatchLines::states_data()
{
    QTest::addColumn<PortState>("port");
    QTest::addColumn<QString>("role");
    QTest::addColumn<QString>("line");
    const QString database = u"   Database: ok"_s;
    QTest::newRow("answers") << PortState::Service << u"active"_s << u"Service: ok"_s + database;
    QTest::newRow("answers, its role is not known")
        << PortState::Service << QString() << u"Service: ok"_s + database;
    QTest::newRow("stand-by") << PortState::Service << u"standby"_s
                              << u"! Service: stand-by, another service delivers"_s + database;
    QTest::newRow("silent") << PortState::Nobody << QString()
                            << u"!! Service: does not answer"_s + database;
    QTest::newRow("hangs") << PortState::Other << u"active"_s
                           << u"!! Service: another program has its port, or it hangs"_s + database;
}

void TestWatchLines::states()
{
    QFETCH(const PortState, port);
    QFETCH(const QString, role);
    WatchValues values = calm();
    values.service = port;
    values.role = role;
    QTEST(lines(values)[1], "line");
    QCOMPARE(lines(values).last(), u"Nothing waits."_s);
}

void TestWatchLines::databaseGoesAway()
{
    const WatchValues before = with({waiting(u"a"_s, 4, 5)});
    WatchValues now = before;
    now.time = noon.addSecs(30);
    now.databaseFault = u"The database refuses a statement: database is locked"_s;
    const QStringList shown = lines(now, before);
    QCOMPARE(shown[1], u"Service: ok   !! Database: unreachable"_s);
    QCOMPARE(shown[2], now.databaseFault);
    QVERIFY2(shown[3].startsWith(u"Below: as it was at "_s), qPrintable(shown[3]));
    QVERIFY2(shown.last().startsWith(u"    a "_s), qPrintable(shown.last()));
    QVERIFY(!shown.join(u'\n').contains(u'+'));

    // It was never there: nothing is claimed of its rows.
    now.types.clear();
    now.rowsTime = {};
    QCOMPARE(lines(now).size(), 3);
}

void TestWatchLines::withoutJournal()
{
    WatchValues values = with({waiting(u"heineken"_s, 4, 5)});
    values.journalFault = u"There is no delivery journal yet."_s;
    const QString shown = lines(values).join(u'\n');
    QVERIFY2(shown.contains(u"\nThere is no delivery journal yet.\n"_s), qPrintable(shown));
    QVERIFY2(!shown.contains(u"elivered"_s) && !shown.contains(u"Today"_s), qPrintable(shown));
}

void TestWatchLines::longFaults()
{
    WatchValues values = calm();
    values.rowsTime = {};
    values.databaseFault = u"The database cannot be reached: no file"_s;
    QCOMPARE(lines(values, {}, 24, 24).mid(3),
             (QStringList{u"The database cannot be"_s, u"reached: no file"_s}));
    values.databaseFault = u"one two three four five six"_s;
    QCOMPARE(lines(values, {}, 8, 24).mid(3),
             (QStringList{u"one two"_s, u"three"_s, u"four fi…"_s}));
    values.databaseFault = u"/a/path/without/a/blank"_s;
    QCOMPARE(lines(values, {}, 8, 24).mid(3), QStringList{u"/a/path…"_s});
}

void TestWatchLines::beforeTheFirstLook()
{
    QCOMPARE(lines({}), QStringList{u"every 2 s, q ends   till-17"_s});
    QCOMPARE(lines({}, {}, 80, 24, 5), QStringList{u"reading for 5 s, q ends   till-17"_s});
}

void TestWatchLines::longLook()
{
    QCOMPARE(lines(calm(), {}, 40, 24, 7).first(), u"12:00:00   reading for 7 s, q ends"_s);
}

void TestWatchLines::narrow()
{
    WatchValues now = with({failing(u"greenwichparkingticket"_s, 12, 7860),
                            waiting(u"loya"_s, 6, 3), delivered(u"spasibo"_s, 84)});
    // clang-format off
    QCOMPARE(lines(now, {}, 40, 12), (QStringList{
        u"12:00:00   every 2 s, q ends   till-17"_s,
        u"Service: ok   Database: ok"_s,
        u"Waiting: 18"_s,
        u"Delivered today: 84"_s,
        u"Dropped: 0"_s,
        u""_s,
        u"    Type           Waiting        Oldest"_s,
        u"!!  greenwichpark…      12        2h 11m"_s,
        u"    loya                 6            3s"_s,
        u"    spasibo              0             -"_s,
    }));
    // clang-format on
}

void TestWatchLines::everySizeFits_data()
{
    QTest::addColumn<int>("columns");
    for (const int columns : {1, 2, 5, 10, 20, 39, 40, 41, 59, 60, 61, 79, 80, 120, 300})
        QTest::addRow("%d", columns) << columns;
}

void TestWatchLines::everySizeFits()
{
    QFETCH(const int, columns);
    WatchValues now = with({failing(u"greenwichparkingticket"_s, 1'234'567, 8'000'000),
                            waiting(u"a"_s, 6, 3), delivered(u"spasibo"_s, 84)});
    now.databaseErrors = 17;
    const bool isTable = columns >= 40;
    for (int rows = 1; rows < 30; ++rows) {
        const Screen screen = watchScreen(now, with({}), {u"till-17"_s, 2, 0, columns, rows});
        if (rows > 12)
            QVERIFY(screen.lines.size() <= rows);
        for (const ScreenLine &line : screen.lines)
            QVERIFY2(!isTable || displayWidth(textOf(line)) <= columns, qPrintable(textOf(line)));
    }
}

void TestWatchLines::hostileTexts()
{
    WatchedType type = failing(u"evil\u001b[2J\r\n\u202e漢字"_s, 1, 20);
    type.answer = u"\u001b]0;title\u0007 answer\u009b"_s;
    WatchValues values = with({type, waiting(QString(), 1, 5)});
    values.databaseFault = u"no\u001b[2Jway"_s;
    values.journalFault = u"no\u001bjournal"_s;
    const Screen screen = watchScreen(values, {}, {.host = u"till\u001b"_s, .columns = 200});
    for (const ScreenLine &line : screen.lines) {
        const QString text = textOf(line);
        for (const QChar letter : text)
            QVERIFY2(letter.category() != QChar::Other_Control
                         && letter.category() != QChar::Other_Format,
                     qPrintable(text));
    }
    const QString all = textOf(screen).join(u'\n');
    QVERIFY2(all.contains(uR"(evil\x1b[2J\x0d\x0a\u…)"_s), qPrintable(all));
    QVERIFY2(all.contains(uR"(\x1b]0;title\x07 answer\x9b)"_s), qPrintable(all));
}

QTEST_GUILESS_MAIN(TestWatchLines)
#include "tst_watchlines.moc"
