#include "shared/core/inflight.h"

#include <QTest>

#include <thread>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using inflight::Clock;

namespace {

/// The remaining time of the only delivery.
std::chrono::milliseconds timeLeft()
{
    const QList<inflight::Delivery> deliveries = inflight::deliveries();
    if (deliveries.size() != 1)
        qFatal("%d deliveries", static_cast<int>(deliveries.size()));
    return std::chrono::duration_cast<std::chrono::milliseconds>(deliveries.first().deadline
                                                                 - Clock::now());
}

bool isNear(std::chrono::milliseconds value, std::chrono::milliseconds wanted)
{
    // A busy machine loses some time between two lines.
    return value <= wanted && value > wanted - 3s;
}

} // namespace

class TestInflight : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void noDelivery();
    void oneDelivery();
    void callHasItsOwnLimit();
    void callInsideAnother();
    void hungDeliveryIsOutOfTime();
    void endlessLimit();
    void eachThreadHasItsOwn();
};

void TestInflight::noDelivery()
{
    const inflight::CallGuard call(180s);
    QVERIFY(inflight::deliveries().isEmpty());
}

void TestInflight::oneDelivery()
{
    {
        const inflight::DeliveryGuard delivery(u"tallobonus"_s, 17);
        const QList<inflight::Delivery> deliveries = inflight::deliveries();
        QCOMPARE(deliveries.size(), 1);
        QCOMPARE(deliveries.first().type, u"tallobonus"_s);
        QCOMPARE(deliveries.first().messageId, 17);
        QVERIFY(isNear(timeLeft(), 5s));
    }
    QVERIFY(inflight::deliveries().isEmpty());
}

/// As with three silent hosts: each has its whole timeout.
void TestInflight::callHasItsOwnLimit()
{
    const inflight::DeliveryGuard delivery(u"tallobonus"_s, 17);
    for (int host = 0; host < 3; ++host) {
        {
            const inflight::CallGuard call(180s);
            QVERIFY(isNear(timeLeft(), 185s));
        }
        QVERIFY(isNear(timeLeft(), 5s));
    }
}

void TestInflight::callInsideAnother()
{
    const inflight::DeliveryGuard delivery(u"dssl"_s, 1);
    const inflight::CallGuard outer(60s);
    {
        const inflight::CallGuard inner(10s);
        QVERIFY(isNear(timeLeft(), 65s));
    }
    QVERIFY(isNear(timeLeft(), 65s));
    const inflight::CallGuard longer(90s);
    QVERIFY(isNear(timeLeft(), 95s));
}

void TestInflight::hungDeliveryIsOutOfTime()
{
    const inflight::DeliveryGuard delivery(u"cardlab"_s, 1);
    const inflight::CallGuard call(30s);
    const Clock::time_point now = Clock::now();
    QCOMPARE(inflight::deliveriesInTime(now + 34s).size(), 1);
    QCOMPARE(inflight::deliveriesInTime(now + 36s).size(), 0);
    // Its name is still available.
    QCOMPARE(inflight::deliveries().size(), 1);
}

void TestInflight::endlessLimit()
{
    const inflight::DeliveryGuard delivery(u"rsbsbp"_s, 1);
    const inflight::CallGuard call(std::chrono::milliseconds::max());
    QVERIFY(timeLeft() > 24h);
}

void TestInflight::eachThreadHasItsOwn()
{
    const inflight::DeliveryGuard delivery(u"cardlab"_s, 1);
    std::thread([] {
        const inflight::DeliveryGuard other(u"heineken"_s, 2);
        const inflight::CallGuard call(100s);
        QCOMPARE(inflight::deliveries().size(), 2);
        QCOMPARE(inflight::deliveriesInTime(Clock::now() + 50s).size(), 1);
        QCOMPARE(inflight::deliveriesInTime(Clock::now() + 50s).first().type, u"heineken"_s);
    }).join();
    QCOMPARE(inflight::deliveries().size(), 1);
    QVERIFY(isNear(timeLeft(), 5s));
}

QTEST_GUILESS_MAIN(TestInflight)
#include "tst_inflight.moc"
