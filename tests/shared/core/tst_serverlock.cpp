#include "shared/core/serverlock.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestServerLock : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void readableNames();
    void capitalsMatter();
    void longNamesDiffer();
    void nothingHasToBeEscaped();
};

void TestServerLock::readableNames()
{
    QCOMPARE(serverlock::serviceLock(u"queues"_s), u"queue/service/queues"_s);
    QCOMPARE(serverlock::typeLock(u"queues"_s, u"cardlab"_s), u"queue/type/queues/cardlab"_s);
}

/// To the server both are one name.
void TestServerLock::capitalsMatter()
{
    const QString batch = serverlock::typeLock(u"queues"_s, u"spasiboBatch"_s);
    QVERIFY(batch.toLower() != serverlock::typeLock(u"queues"_s, u"spasibobatch"_s));
    QCOMPARE(batch, serverlock::typeLock(u"queues"_s, u"spasiboBatch"_s));
    QVERIFY(serverlock::serviceLock(u"Queues"_s).toLower() != serverlock::serviceLock(u"queues"_s));
}

void TestServerLock::longNamesDiffer()
{
    const QString schema = QString(64, u's');
    const QString cardlab = serverlock::typeLock(schema, u"cardlab"_s);
    const QString heineken = serverlock::typeLock(schema, u"heineken"_s);
    QVERIFY(cardlab != heineken);
    for (const QString &name : {cardlab, heineken, serverlock::serviceLock(schema)})
        QVERIFY2(name.size() <= 64, qPrintable(name));
}

void TestServerLock::nothingHasToBeEscaped()
{
    for (const QString &name :
         {serverlock::serviceLock(u"o'brien"_s), serverlock::typeLock(u"касса"_s, u"a\\'b"_s)}) {
        for (const QChar symbol : name)
            QVERIFY2(symbol.unicode() < 128 && symbol != u'\'' && symbol != u'\\',
                     qPrintable(name));
    }
}

QTEST_GUILESS_MAIN(TestServerLock)
#include "tst_serverlock.moc"
