#include "shared/core/connectionfactory.h"
#include "shared/core/currenttime.h"
#include "shared/core/mockfactory.h"
#include "tests/support/vtable.h"

#include <QTest>

class TestCurrentTime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void isNow();
    void operationsKeepTheirPlaces();
};

void TestCurrentTime::isNow()
{
    const QDateTime before = QDateTime::currentDateTime();
    const QDateTime now = MockFactory<CurrentTime>::create()->currentDateTime();
    QVERIFY(before <= now && now <= QDateTime::currentDateTime());
    QCOMPARE(now.timeSpec(), Qt::LocalTime);
}

void TestCurrentTime::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&CurrentTime::currentDateTime), 2);
    QCOMPARE(slotOf(&ConnectionFactory::removeConnection), 0);
    QCOMPARE(slotOf(&ConnectionFactory::getConnection), 3);
}

QTEST_GUILESS_MAIN(TestCurrentTime)
#include "tst_currenttime.moc"
