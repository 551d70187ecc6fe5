#include "shared/core/singleton.h"

#include <QTest>

#include <barrier>
#include <thread>

class TestSingleton : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oneObjectForAll();
    void replacement();
    void threadsThatMeetAtTheFirstUse();
};

namespace {

template <int Kind>
struct Counted
{
    Counted() { ++alive; }
    ~Counted() { --alive; }
    static inline std::atomic<int> alive = 0;
};

} // namespace

void TestSingleton::oneObjectForAll()
{
    QCOMPARE(Counted<0>::alive, 0);
    Counted<0> *first = Singleton<Counted<0>>::instance();
    QCOMPARE(Singleton<Counted<0>>::instance(), first);
    QCOMPARE(Counted<0>::alive, 1);
    QVERIFY(static_cast<void *>(Singleton<Counted<1>>::instance()) != first);
}

void TestSingleton::replacement()
{
    Counted<2> mine;
    QVERIFY(Singleton<Counted<2>>::replace(&mine) == nullptr);
    QCOMPARE(Singleton<Counted<2>>::instance(), &mine);
    QCOMPARE(Singleton<Counted<2>>::replace(nullptr), &mine);
    QVERIFY(Singleton<Counted<2>>::instance() != &mine);
}

void TestSingleton::threadsThatMeetAtTheFirstUse()
{
    std::barrier start(4);
    std::array<Counted<3> *, 4> seen{};
    std::vector<std::thread> threads;
    for (Counted<3> *&mine : seen)
        threads.emplace_back([&start, &mine] {
            start.arrive_and_wait();
            mine = Singleton<Counted<3>>::instance();
        });
    for (std::thread &thread : threads)
        thread.join();
    for (const Counted<3> *object : seen)
        QCOMPARE(object, Singleton<Counted<3>>::instance());
    QCOMPARE(Counted<3>::alive, 1);
}

QTEST_GUILESS_MAIN(TestSingleton)
#include "tst_singleton.moc"
