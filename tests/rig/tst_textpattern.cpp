#include "rig/textpattern.h"

#include <QtTest>

using namespace Qt::StringLiterals;
using namespace rig;

class TestTextPattern : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void patterns_data();
    void patterns();
    void patternsOccurWithinTexts();
};

void TestTextPattern::patterns_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("matches");

    // clang-format off
    QTest::newRow("no pattern: equal")         << u"a.c"_s               << u"a.c"_s       << true;
    QTest::newRow("no pattern: a dot is one")  << u"a.c"_s               << u"abc"_s       << false;
    QTest::newRow("text around is exact")      << u"a.{{any}}"_s         << u"abc"_s       << false;
    QTest::newRow("any: empty text")              << u"a{{any}}b"_s         << u"ab"_s        << true;
    QTest::newRow("any: several lines")        << u"a{{any}}b"_s         << u"a\n1\nb"_s   << true;
    QTest::newRow("any: not beyond the end")   << u"a{{any}}b"_s         << u"a1bc"_s      << false;
    QTest::newRow("digits")                    << u"{{digits}}"_s        << u"042"_s       << true;
    QTest::newRow("digits: at least one")          << u"n{{digits}}"_s       << u"n"_s         << false;
    QTest::newRow("uuid")                      << u"{{uuid}}"_s          << u"01234567-89ab-cdef-0123-456789abcdef"_s << true;
    QTest::newRow("uuid: braces are not part")  << u"{{uuid}}"_s          << u"{01234567-89ab-cdef-0123-456789abcdef}"_s << false;
    QTest::newRow("datetime")                  << u"{{datetime}}"_s      << u"2026-01-31T12:00:00.123+03:00"_s << true;
    QTest::newRow("datetime: no date")         << u"{{datetime}}"_s      << u"12:00:00"_s  << false;
    QTest::newRow("match")                     << u"-{{match:[a-c]+}}-"_s << u"-abc-"_s    << true;
    QTest::newRow("match: other letters")      << u"-{{match:[a-c]+}}-"_s << u"-abd-"_s    << false;
    QTest::newRow("match: alternatives stay inside") << u"-{{match:a|b}}-"_s << u"-b-"_s   << true;
    // clang-format on
}

void TestTextPattern::patterns()
{
    QFETCH(QString, pattern);
    QFETCH(QString, text);
    QTEST(TextPattern(pattern).matches(text), "matches");
}

void TestTextPattern::patternsOccurWithinTexts()
{
    QVERIFY(TextPattern(u"key: {{digits}}"_s).occursIn(u"the key: 42, and more"_s));
    QVERIFY(!TextPattern(u"key: {{digits}}"_s).occursIn(u"the key: ***"_s));
    QVERIFY(TextPattern(u"key: k"_s).occursIn(u"the key: k."_s));
}

QTEST_GUILESS_MAIN(TestTextPattern)
#include "tst_textpattern.moc"
