#include "engine/cardmask.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestCardMask : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void card_data();
    void card();
    void cardNumbers_data();
    void cardNumbers();
};

void TestCardMask::card_data()
{
    QTest::addColumn<QString>("number");
    QTest::addColumn<QString>("masked");
    QTest::newRow("no card") << u""_s << u""_s;
    QTest::newRow("a card") << u"7701234560017"_s << u"****0017"_s;
    QTest::newRow("a short one") << u"17"_s << u"****17"_s;
    QTest::newRow("with letters") << u"TEST-A1B2"_s << u"****A1B2"_s;
}

void TestCardMask::card()
{
    QFETCH(QString, number);
    QTEST(maskedCard(number), "masked");
}

void TestCardMask::cardNumbers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("masked");
    QTest::newRow("nothing") << u""_s << u""_s;
    QTest::newRow("no digits") << u"чек"_s << u"чек"_s;
    QTest::newRow("a receipt") << u"4711"_s << u"4711"_s;
    QTest::newRow("16 digits") << u"4111111111111111"_s << u"****1111"_s;
    QTest::newRow("13 digits") << u"4222222222222"_s << u"****2222"_s;
    QTest::newRow("19 digits") << u"6304000000000000000"_s << u"****0000"_s;
    QTest::newRow("a wrong check digit") << u"4111111111111112"_s << u"4111111111111112"_s;
    QTest::newRow("12 digits that fit") << u"411111111111"_s << u"411111111111"_s;
    QTest::newRow("20 digits that fit") << u"00004111111111111111"_s << u"00004111111111111111"_s;
    QTest::newRow("within a text")
        << u"заказ 4711/4111111111111111."_s << u"заказ 4711/****1111."_s;
    QTest::newRow("between letters") << u"A4111111111111111B"_s << u"A****1111B"_s;
    QTest::newRow("two") << u"4111111111111111 4222222222222"_s << u"****1111 ****2222"_s;
    QTest::newRow("in fours, blanks") << u"4111 1111 1111 1111"_s << u"****1111"_s;
    QTest::newRow("in fours, hyphens") << u"4111-1111-1111-1111"_s << u"****1111"_s;
    QTest::newRow("in fours, mixed") << u"4111-1111 1111-1111"_s << u"4111-1111 1111-1111"_s;
    QTest::newRow("four, six, five") << u"3782 822463 10005"_s << u"****0005"_s;
    QTest::newRow("in fours, a wrong check digit")
        << u"4111 1111 1111 1112"_s << u"4111 1111 1111 1112"_s;
    QTest::newRow("in fours, nothing after the last blank")
        << u"4111 1111 1111 , 17"_s << u"4111 1111 1111 , 17"_s;
    QTest::newRow("in fours, a last group of seven")
        << u"6304 0000 0000 0000000"_s << u"****0000"_s;
    QTest::newRow("in fours, a last group of eight")
        << u"6304 0000 0000 00000000"_s << u"6304 0000 0000 00000000"_s;
    QTest::newRow("a receipt before a card") << u"4711 4111111111111111"_s << u"4711 ****1111"_s;
    QTest::newRow("other digits") << u"٤١١١١١١١١١١١١١١١"_s << u"٤١١١١١١١١١١١١١١١"_s;
}

void TestCardMask::cardNumbers()
{
    QFETCH(QString, text);
    QTEST(maskCardNumbers(text), "masked");
}

QTEST_GUILESS_MAIN(TestCardMask)
#include "tst_cardmask.moc"
