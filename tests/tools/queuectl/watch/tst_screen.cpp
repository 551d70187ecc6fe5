#include "tests/tools/queuectl/watch/terminalgrid.h"

#include "tools/queuectl/terminal.h"
#include "tools/queuectl/watch/screen.h"

#include <QRandomGenerator>
#include <QtTest>

using namespace Qt::StringLiterals;
using namespace queuectl;

namespace {

Screen screen(const QStringList &lines, int columns = 20, int rows = 5)
{
    Screen result{columns, rows, {}};
    for (const QString &line : lines)
        result.lines.append(ScreenLine{{line}});
    return result;
}

} // namespace

/// Lines on a terminal, and the bytes from one screen to the next.
class TestScreen : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void widths_data();
    void widths();
    void fittedTexts_data();
    void fittedTexts();
    void updates_data();
    void updates();
    void tones();
    void toneAlone();
    void anyChange_data();
    void anyChange();
    void hostileTexts();
    void terminalTypes_data();
    void terminalTypes();
};

void TestScreen::widths_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");
    QTest::newRow("nothing") << QString() << 0;
    QTest::newRow("ASCII") << u"queue"_s << 5;
    QTest::newRow("Russian") << u"Ждут"_s << 4;
    QTest::newRow("a letter and its breve, two characters") << u"\u0438\u0306"_s << 1;
    QTest::newRow("an accent without such a letter") << u"q\u0301"_s << 1;
    QTest::newRow("many accents") << u"q"_s + QString(500, u'\u0301') << 1;
    QTest::newRow("Chinese") << u"漢字"_s << 4;
    QTest::newRow("beyond the first plane") << u"\U00020000"_s << 2;
    QTest::newRow("escape") << u"a\u001b[2J"_s << 5;
    QTest::newRow("half a pair") << QString(QChar(0xd800)) << 1;
}

void TestScreen::widths()
{
    QFETCH(const QString, text);
    QTEST(displayWidth(text), "width");
}

void TestScreen::fittedTexts_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("width");
    QTest::addColumn<bool>("isRight");
    QTest::addColumn<QString>("shown");
    QTest::newRow("filled") << u"ab"_s << 4 << false << u"ab  "_s;
    QTest::newRow("to the right") << u"ab"_s << 4 << true << u"  ab"_s;
    QTest::newRow("as wide") << u"abcd"_s << 4 << false << u"abcd"_s;
    QTest::newRow("cut") << u"abcde"_s << 4 << false << u"abc…"_s;
    QTest::newRow("wide letters, cut in front of one") << u"漢字漢"_s << 5 << false << u"漢字…"_s;
    QTest::newRow("wide letters, a column is left") << u"漢字漢"_s << 4 << false << u"漢… "_s;
    QTest::newRow("a control character") << u"a\nb"_s << 6 << false << u"a\\x0ab"_s;
    QTest::newRow("one column") << u"ab"_s << 1 << false << u"…"_s;
    QTest::newRow("none") << u"ab"_s << 0 << false << QString();
    QTest::newRow("less than none") << u"ab"_s << -3 << false << QString();
}

void TestScreen::fittedTexts()
{
    QFETCH(const QString, text);
    QFETCH(const int, width);
    QFETCH(const bool, isRight);
    QTEST(fitted(text, width, isRight), "shown");
}

void TestScreen::updates_data()
{
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("now");
    QTest::addColumn<QByteArray>("bytes");
    const auto row = [](const char *name, const QStringList &before, const QStringList &now,
                        const QByteArray &bytes) {
        QTest::newRow(name) << before << now << bytes;
    };
    row("nothing", {u"abc"_s}, {u"abc"_s}, "");
    row("blanks at the end", {u"abc"_s}, {u"abc   "_s}, "");
    row("one letter", {u"abc"_s}, {u"abd"_s}, "\033[1;3Hd");
    row("the second line", {u"a"_s, u"12"_s}, {u"a"_s, u"13"_s}, "\033[2;2H3");
    row("close together", {u"a1bcd2"_s}, {u"a3bcd4"_s}, "\033[1;2H3bcd4");
    row("far apart", {u"a1bcdefgh2"_s}, {u"a3bcdefgh4"_s}, "\033[1;2H3\033[1;10H4");
    row("longer", {u"ab"_s}, {u"abcd"_s}, "\033[1;3Hcd");
    row("shorter", {u"abcd"_s}, {u"ab"_s}, "\033[1;3H\033[K");
    row("shorter and other", {u"abcd"_s}, {u"xb"_s}, "\033[1;1Hx\033[1;3H\033[K");
    row("a new line", {}, {u"a"_s}, "\033[1;1Ha");
    row("a line less", {u"a"_s, u"b"_s}, {u"a"_s}, "\033[2;1H\033[K");
    // A terminal may draw these as one column or two.
    row("wide letters", {u"漢字1"_s}, {u"漢字2"_s}, "\033[1;1H漢字2\033[K");
    row("no wide letter any more", {u"漢字1"_s}, {u"abc"_s}, "\033[1;1Habc\033[K");
}

void TestScreen::updates()
{
    QFETCH(const QStringList, before);
    QFETCH(const QStringList, now);
    QTEST(screenUpdate(screen(before), screen(now), false), "bytes");
}

void TestScreen::tones()
{
    const Screen now{10, 2, {{{u"a"_s, Tone::Bad}, {u"b"_s, Tone::Strong}, {u"c"_s}}}};
    QCOMPARE(screenUpdate({10, 2, {}}, now, true), "\033[1;1H\033[31ma\033[0m\033[1mb\033[0mc");
    QCOMPARE(screenUpdate({10, 2, {}}, now, false), "\033[1;1Habc");
    // Everything, since the size is another one.
    QCOMPARE(screenUpdate({11, 2, {}}, now, false), "\033[0m\033[H\033[2J\033[1;1Habc");
    QCOMPARE(screenUpdate({10, 3, now.lines}, now, false), "\033[0m\033[H\033[2J\033[1;1Habc");
}

void TestScreen::toneAlone()
{
    const Screen before{10, 1, {{{u"abc"_s}}}};
    const Screen now{10, 1, {{{u"a"_s}, {u"b"_s, Tone::Faint}, {u"c"_s}}}};
    QCOMPARE(screenUpdate(before, now, true), "\033[1;2H\033[2mb\033[0m");
}

void TestScreen::anyChange_data()
{
    QTest::addColumn<quint32>("seed");
    for (quint32 seed = 1; seed <= 50; ++seed)
        QTest::addRow("%u", seed) << seed;
}

void TestScreen::anyChange()
{
    // A terminal that shows one screen and takes the bytes to another one looks as one that was
    // shown the other one alone.
    QFETCH(const quint32, seed);
    QRandomGenerator random(seed);
    constexpr int columns = 12;
    constexpr int rows = 4;
    const auto line = [&random] {
        ScreenLine spans;
        for (int i = random.bounded(4); i > 0; --i)
            spans.append({QString(random.bounded(6), u"ab ц"_s[random.bounded(4)]),
                          random.bounded(2) == 0 ? Tone::Plain : Tone::Bad});
        return spans;
    };
    const auto anyScreen = [&] {
        Screen result{columns, rows, {}};
        for (int i = random.bounded(rows + 2); i > 0; --i)
            result.lines.append(line());
        return result;
    };
    TerminalGrid grid(columns, rows);
    Screen shown;
    for (int step = 0; step < 20; ++step) {
        const Screen next = anyScreen();
        grid.write(screenUpdate(shown, next, true));
        TerminalGrid fresh(columns, rows);
        fresh.write(screenUpdate({}, next, true));
        QCOMPARE(grid.text(), fresh.text());
        for (int row = 0; row < rows; ++row) {
            const qsizetype width = fresh.lines()[row].size();
            for (int column = 0; column < width; ++column)
                QCOMPARE(grid.toneAt(row, column), fresh.toneAt(row, column));
        }
        shown = next;
    }
    QCOMPARE(grid.unknown(), QStringList());
}

void TestScreen::hostileTexts()
{
    QString everything;
    for (char32_t letter = 0; letter <= 0xffff; ++letter)
        everything += QString::fromUcs4(&letter, 1);
    for (qsizetype at = 0; at < everything.size(); at += 1000) {
        QByteArray bytes = screenUpdate({}, screen({everything.mid(at, 1000)}, 3000, 1), false);
        if (bytes.endsWith("\033[K"))
            bytes.chop(3);
        const QString text = QString::fromUtf8(bytes.mid(qstrlen("\033[0m\033[H\033[2J\033[1;1H")));
        for (const QChar letter : text)
            QVERIFY2(letter.category() != QChar::Other_Control
                         && letter.category() != QChar::Other_Format
                         && letter.category() != QChar::Separator_Line,
                     qPrintable(QString::number(letter.unicode(), 16)));
    }
}

void TestScreen::terminalTypes_data()
{
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<bool>("placesIt");
    QTest::addColumn<bool>("hasColours");
    const auto row = [](const char *type, bool placesIt, bool hasColours) {
        QTest::addRow("'%s'", type) << QByteArray(type) << placesIt << hasColours;
    };
    row("", false, false);
    row("dumb", false, false);
    row("unknown", false, false);
    row("vt100", true, false);
    row("vt220", true, false);
    row("xterm-mono", true, false);
    row("linux-m", true, false);
    row("linux", true, true);
    row("xterm", true, true);
    row("xterm-256color", true, true);
    row("screen", true, true);
    row("tmux-256color", true, true);
    row("putty", true, true);
}

void TestScreen::terminalTypes()
{
    QFETCH(const QByteArray, type);
    QTEST(placesCursor(type), "placesIt");
    QTEST(knowsColours(type), "hasColours");
}

QTEST_GUILESS_MAIN(TestScreen)
#include "tst_screen.moc"
