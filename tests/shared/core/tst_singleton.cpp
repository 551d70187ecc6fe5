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
    void objectOfTheFasterThreadIsKept();
};

namespace {

template <int Kind>
struct Counted
{
    Counted() { ++alive; }
    ~Counted() { --alive; }
    static inline std::atomic<int> alive = 0;
};

/// While the first one is constructed, another thread is faster.
struct Overtaken : Counted<4>
{
    Overtaken()
    {
        if (!std::exchange(isFirst, false))
            return;
        std::thread([] { faster = Singleton<Overtaken>::instance(); }).join();
    }
    static inline bool isFirst = true;
    static inline Overtaken *faster = nullptr;
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

void TestSingleton::objectOfTheFasterThreadIsKept()
{
    Overtaken *const object = Singleton<Overtaken>::instance();
    QVERIFY(object);
    QCOMPARE(object, Overtaken::faster);
    QCOMPARE(Singleton<Overtaken>::instance(), object);
    QCOMPARE(Overtaken::alive, 1);
}

QTEST_GUILESS_MAIN(TestSingleton)
#include "tst_singleton.moc"
