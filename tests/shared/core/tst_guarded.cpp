#include "shared/core/guarded.h"

#include <QMap>
#include <QString>
#include <QTest>

#include <chrono>
#include <memory>
#include <optional>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Numbers = Guarded<QMap<QString, int>>;

// Access without the mutex does not compile.
template <typename T>
concept HasOpenMembers = requires(T &guarded)
{
    guarded.value;
}
|| requires(T &guarded)
{
    guarded.mutex;
};
template <typename T>
concept HasValueOfUnnamedHandle = requires(T &guarded)
{
    *guarded.lock();
};
template <typename T>
concept HasValueOfNamedHandle = requires(decltype(std::declval<T &>().lock()) &handle)
{
    *handle;
};
static_assert(!HasOpenMembers<Numbers>);
static_assert(!HasValueOfUnnamedHandle<Numbers> && HasValueOfNamedHandle<Numbers>);
static_assert(!std::is_copy_constructible_v<Numbers>);
static_assert(std::is_const_v<std::remove_reference_t<
                  decltype(*std::declval<decltype(std::declval<const Numbers &>().lock()) &>())>>);

class TestGuarded : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void handleIsTheValue();
    void beginsWithAValue();
    void handleHoldsTheMutex();
    void unnamedHandleHoldsItForItsExpression();
    void waitIsLimited();
    void copyIsAValueOfItsOwn();
    void holdsWhatCannotBeCopied();
    void threadsTakeTurns();
};

/// Whether another thread could lock the value now.
template <typename T>
static bool isFree(Guarded<T> &guarded)
{
    bool result = false;
    std::thread([&] { result = guarded.tryLock(0ms).has_value(); }).join();
    return result;
}

void TestGuarded::handleIsTheValue()
{
    Numbers numbers;
    const auto handle = numbers.lock();
    QVERIFY(handle->isEmpty());
    handle->insert(u"mindbox"_s, 7);
    (*handle)[u"spasibo"_s] = 3;
    QCOMPARE(*handle, (QMap<QString, int>{{u"mindbox"_s, 7}, {u"spasibo"_s, 3}}));
}

void TestGuarded::beginsWithAValue()
{
    QCOMPARE(Guarded<int>().copy(), 0);
    QCOMPARE(Guarded<int>(5).copy(), 5);
}

void TestGuarded::handleHoldsTheMutex()
{
    Numbers numbers;
    {
        const auto handle = numbers.lock();
        QVERIFY(!isFree(numbers));
    }
    {
        auto handle = numbers.tryLock(0ms);
        QVERIFY(handle);
        const auto moved = std::move(*handle);
        handle.reset();
        QVERIFY(!isFree(numbers));
    }
    QVERIFY(isFree(numbers));
}

void TestGuarded::unnamedHandleHoldsItForItsExpression()
{
    Numbers numbers;
    numbers.lock()->insert(u"free meanwhile"_s, isFree(numbers) ? 1 : 0);
    QCOMPARE(numbers.copy(), (QMap<QString, int>{{u"free meanwhile"_s, 0}}));
    QVERIFY(isFree(numbers));
}

void TestGuarded::waitIsLimited()
{
    Numbers numbers;
    const auto handle = numbers.lock();
    std::thread([&] { QVERIFY(!numbers.tryLock(20ms)); }).join();
}

void TestGuarded::copyIsAValueOfItsOwn()
{
    Numbers numbers;
    numbers.lock()->insert(u"mindbox"_s, 7);
    QMap<QString, int> copy = numbers.copy();
    QVERIFY(isFree(numbers));
    copy.clear();
    QCOMPARE(numbers.lock()->size(), 1);
}

void TestGuarded::holdsWhatCannotBeCopied()
{
    Guarded<std::vector<std::unique_ptr<int>>> numbers;
    numbers.lock()->push_back(std::make_unique<int>(5));
    QCOMPARE(*numbers.lock()->front(), 5);
}

void TestGuarded::threadsTakeTurns()
{
    constexpr int rounds = 2000;
    Guarded<int> number;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < rounds; ++round) {
                const auto handle = number.lock();
                ++*handle;
            }
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    QCOMPARE(number.copy(), 4 * rounds);
}

QTEST_GUILESS_MAIN(TestGuarded)
#include "tst_guarded.moc"
