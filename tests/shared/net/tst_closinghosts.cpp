#include "shared/net/closinghosts.h"

#include <QTest>

using namespace std::chrono_literals;

class TestClosingHosts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void remembersForAnHour();
    void sightsCountFromTheLast();
    void oldestIsForgottenFirst();
};

void TestClosingHosts::remembersForAnHour()
{
    ClosingHosts hosts;
    const ClosingHosts::Time start{};
    QVERIFY(!hosts.contains("a", start));
    hosts.add("a", start);
    QVERIFY(hosts.contains("a", start));
    QVERIFY(!hosts.contains("b", start));
    QVERIFY(hosts.contains("a", start + 1h - 1ns));
    QVERIFY(!hosts.contains("a", start + 1h));
}

void TestClosingHosts::sightsCountFromTheLast()
{
    ClosingHosts hosts;
    const ClosingHosts::Time start{};
    hosts.add("a", start);
    hosts.add("a", start + 59min);
    QVERIFY(hosts.contains("a", start + 118min));
}

void TestClosingHosts::oldestIsForgottenFirst()
{
    ClosingHosts hosts;
    const ClosingHosts::Time start{};
    for (qsizetype i = 0; i < ClosingHosts::capacity; ++i)
        hosts.add(QByteArray::number(i), start);
    // It was the oldest.
    hosts.add("0", start);
    QVERIFY(hosts.contains("1", start));
    hosts.add("one more", start);
    QVERIFY(hosts.contains("0", start));
    QVERIFY(!hosts.contains("1", start));
    QVERIFY(hosts.contains("2", start));
    QVERIFY(hosts.contains("one more", start));
}

QTEST_GUILESS_MAIN(TestClosingHosts)
#include "tst_closinghosts.moc"
