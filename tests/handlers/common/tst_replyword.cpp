#include "handlers/common/replyword.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestReplyWord : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shown_data();
    void shown();
    void meaning_data();
    void meaning();
};

void TestReplyWord::shown_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<QString>("expected");

    QTest::newRow("a state") << u"IN_PROGRESS"_s << u"IN_PROGRESS"_s;
    QTest::newRow("null") << QString() << u"не указано"_s;
    QTest::newRow("empty") << u""_s << u"не указано"_s;
    QTest::newRow("40 characters") << QString(40, u'ж') << QString(40, u'ж');
    QTest::newRow("41 characters") << QString(41, u'ж') << QString(40, u'ж') + u'…';
    QTest::newRow("a million") << QString(1'000'000, u'a') << QString(40, u'a') + u'…';
}

void TestReplyWord::shown()
{
    QFETCH(QString, word);
    QTEST(shownWord(word), "expected");
}

void TestReplyWord::meaning_data()
{
    QTest::addColumn<QString>("word");
    QTest::addColumn<int>("expected");

    QTest::newRow("first") << u"NEW"_s << 5;
    QTest::newRow("last") << u"PAID"_s << 6;
    QTest::newRow("another case") << u"Paid"_s << -1;
    QTest::newRow("longer") << u"PAIDOUT"_s << -1;
    QTest::newRow("shorter") << u"PAI"_s << -1;
    QTest::newRow("with a blank") << u"PAID "_s << -1;
    QTest::newRow("empty") << u""_s << -1;
    QTest::newRow("null") << QString() << -1;
}

void TestReplyWord::meaning()
{
    static constexpr KnownWord<int> table[] = {{u"NEW", 5}, {u"PAID", 6}};
    QFETCH(QString, word);
    QTEST(meaningOf(word, table, -1), "expected");
}

QTEST_GUILESS_MAIN(TestReplyWord)
#include "tst_replyword.moc"
