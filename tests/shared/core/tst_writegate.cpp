#include "shared/core/writegate.h"

#include <QTest>

#include <atomic>
#include <random>
#include <set>
#include <stdexcept>
#include <thread>

using namespace std::chrono_literals;
using Clock = WriteGate::Clock;

namespace {

using Ids = std::vector<int>;

void waitFor(const std::function<bool()> &condition)
{
    while (!condition())
        std::this_thread::yield();
}

/// Spends `duration` in a turn.
void work(Clock::duration duration)
{
    const auto end = Clock::now() + duration;
    waitFor([end] { return Clock::now() >= end; });
}

/// A file without its own lock: simultaneous writers are detected here and by ThreadSanitizer, from
/// which the counters must not hide them.
class File
{
public:
    /// Carries out `change` on the rows.
    template <typename Change>
    void write(Change change)
    {
        if (writers.fetch_add(1, std::memory_order_relaxed) > 0)
            meetings.fetch_add(1, std::memory_order_relaxed);
        change(rows);
        // A disk needs time, and other writers arrive meanwhile.
        work(20us);
        writers.fetch_sub(1, std::memory_order_relaxed);
    }

    std::set<int> rows;
    std::atomic<int> meetings = 0;

private:
    std::atomic<int> writers = 0;
};

/// One writer in a thread of its own, joined at the end.
class Writer
{
public:
    template <typename Act>
    explicit Writer(Act act)
        : thread(std::move(act))
    {
    }
    ~Writer() { thread.join(); }

private:
    std::thread thread;
};

} // namespace

class TestWriteGate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void oneForEachFile();
    void withoutAGate();
    void singleRemovalUsesItsOwnStatement();
    void waitingRemovalsGoTogether();
    void otherWritesHaveATurnEach();
    void failedTransaction();
    void thrownFromTheTransaction();
    void laterGroupAfterAFailedOne();
    void openings_data();
    void openings();
    void openForTheTillWhileOthersWait();
    void noOpeningWithoutOthers();
    void openForTheTillAfterAGroup();
    void removalsWaitForTheLastGroup();
    void impatientWriter();
    void ledWriterIsPatient();
    void randomWriters_data();
    void randomWriters();
};

void TestWriteGate::oneForEachFile()
{
    QCOMPARE(&WriteGate::of(1, 2), &WriteGate::of(1, 2));
    QVERIFY(&WriteGate::of(1, 2) != &WriteGate::of(1, 3));
    QVERIFY(&WriteGate::of(1, 2) != &WriteGate::of(2, 2));
}

void TestWriteGate::withoutAGate()
{
    QVERIFY(!WriteGate::enter(nullptr));
}

void TestWriteGate::singleRemovalUsesItsOwnStatement()
{
    WriteGate gate;
    bool isCalled = false;
    for (int id = 1; id <= 3; ++id) {
        const auto turn = gate.remove(id, [&](const Ids &) { return isCalled = true; });
        QVERIFY(turn && *turn);
    }
    QVERIFY(!isCalled);
}

void TestWriteGate::waitingRemovalsGoTogether()
{
    WriteGate gate;
    std::atomic<int> calls = 0;
    std::atomic<int> ownStatements = 0;
    Ids removed;
    std::list<Writer> writers;
    {
        const WriteGate::Turn held = WriteGate::enter(&gate);
        QVERIFY(held);
        for (int id = 1; id <= 8; ++id) {
            writers.emplace_back([&, id] {
                const auto turn = gate.remove(id, [&](const Ids &ids) {
                    ++calls;
                    removed = ids;
                    return true;
                });
                ownStatements += turn ? 1 : 0;
            });
            waitFor([&] { return gate.waiting() == id; });
        }
    }
    writers.clear();
    QCOMPARE(calls.load(), 1);
    QCOMPARE(ownStatements.load(), 0);
    // In the order of their arrival.
    QCOMPARE(removed, (Ids{1, 2, 3, 4, 5, 6, 7, 8}));
    QCOMPARE(gate.waiting(), 0);
}

void TestWriteGate::otherWritesHaveATurnEach()
{
    WriteGate gate;
    File file;
    std::vector<Ids> groups;
    Ids others;
    std::list<Writer> writers;
    {
        const WriteGate::Turn held = WriteGate::enter(&gate);
        // 1 and 3 remove a row, 2 and 4 write something else.
        for (int number = 1; number <= 4; ++number) {
            writers.emplace_back([&, number] {
                if (number % 2 == 0) {
                    const WriteGate::Turn turn = WriteGate::enter(&gate);
                    file.write([&](auto &) { others.push_back(number); });
                    return;
                }
                gate.remove(number, [&](const Ids &ids) {
                    file.write([&](auto &) { groups.push_back(ids); });
                    return true;
                });
            });
            waitFor([&] { return gate.waiting() == number; });
        }
    }
    writers.clear();
    QCOMPARE(groups, (std::vector<Ids>{{1, 3}}));
    QCOMPARE(others, (Ids{2, 4}));
    QCOMPARE(file.meetings.load(), 0);
}

void TestWriteGate::failedTransaction()
{
    WriteGate gate;
    File file;
    std::atomic<int> calls = 0;
    Ids removed;
    std::list<Writer> writers;
    {
        const WriteGate::Turn held = WriteGate::enter(&gate);
        for (int id = 1; id <= 4; ++id) {
            writers.emplace_back([&, id] {
                const auto turn = gate.remove(id, [&](const Ids &) {
                    ++calls;
                    return false;
                });
                if (turn && *turn)
                    file.write([&](auto &) { removed.push_back(id); });
            });
            waitFor([&] { return gate.waiting() == id; });
        }
    }
    writers.clear();
    // Once together, and then each alone: no further transaction is tried with the same rows.
    QCOMPARE(calls.load(), 1);
    QCOMPARE(removed, (Ids{1, 2, 3, 4}));
    QCOMPARE(file.meetings.load(), 0);
}

void TestWriteGate::thrownFromTheTransaction()
{
    WriteGate gate;
    std::atomic<int> thrown = 0;
    std::atomic<int> ownStatements = 0;
    std::list<Writer> writers;
    {
        const WriteGate::Turn held = WriteGate::enter(&gate);
        for (int id = 1; id <= 3; ++id) {
            writers.emplace_back([&, id] {
                try {
                    const auto turn = gate.remove(
                        id, [](const Ids &) -> bool { throw std::runtime_error("gone"); });
                    ownStatements += turn && *turn ? 1 : 0;
                } catch (const std::runtime_error &) {
                    ++thrown;
                }
            });
            waitFor([&] { return gate.waiting() == id; });
        }
    }
    writers.clear();
    QCOMPARE(thrown.load(), 1);
    QCOMPARE(ownStatements.load(), 2);
    QVERIFY(WriteGate::enter(&gate));
}

/// Rows whose transaction has failed do not affect others.
void TestWriteGate::laterGroupAfterAFailedOne()
{
    WriteGate gate;
    std::vector<Ids> groups;
    std::atomic<int> ownStatements = 0;
    std::list<Writer> writers;
    const auto remove = [&](int id) {
        const auto turn = gate.remove(id, [&](const Ids &ids) {
            groups.push_back(ids);
            if (groups.size() > 1)
                return true;
            // These arrive during the transaction.
            for (int later = 3; later <= 4; ++later) {
                writers.emplace_back([&, later] {
                    gate.remove(later, [&](const Ids &rest) {
                        groups.push_back(rest);
                        return true;
                    });
                });
                waitFor([&] { return gate.waiting() == later - 2; });
            }
            return false;
        });
        ownStatements += turn ? 1 : 0;
    };
    {
        std::list<Writer> first;
        const WriteGate::Turn held = WriteGate::enter(&gate);
        for (int id = 1; id <= 2; ++id) {
            first.emplace_back([&, id] { remove(id); });
            waitFor([&] { return gate.waiting() == id; });
        }
    }
    writers.clear();
    QCOMPARE(groups, (std::vector<Ids>{{1, 2}, {3, 4}}));
    QCOMPARE(ownStatements.load(), 2);
}

void TestWriteGate::openings_data()
{
    QTest::addColumn<int>("turnMs");
    QTest::addColumn<int>("openMs");
    QTest::newRow("fast disk") << 0 << 0;
    QTest::newRow("as long as the turn") << 20 << 20;
    QTest::newRow("the most") << 100 << 100;
    QTest::newRow("no more for a writer that was held up") << 5000 << 100;
}

void TestWriteGate::openings()
{
    QFETCH(int, turnMs);
    QFETCH(int, openMs);
    QCOMPARE(WriteGate::opening(std::chrono::milliseconds(turnMs)).count(),
             Clock::duration(std::chrono::milliseconds(openMs)).count());
}

void TestWriteGate::openForTheTillWhileOthersWait()
{
    WriteGate gate;
    Clock::duration turnTime{};
    Clock::time_point left;
    Clock::time_point next;
    {
        std::list<Writer> writers;
        const WriteGate::Turn held = WriteGate::enter(&gate);
        const auto begin = Clock::now();
        writers.emplace_back([&] {
            const WriteGate::Turn turn = WriteGate::enter(&gate);
            next = Clock::now();
        });
        waitFor([&] { return gate.waiting() == 1; });
        work(20ms);
        left = Clock::now();
        turnTime = left - begin;
    }
    QVERIFY(next - left >= WriteGate::opening(turnTime));
}

void TestWriteGate::noOpeningWithoutOthers()
{
    WriteGate gate;
    Clock::duration shortest = 1h;
    // At least one of them is not delayed by the machine.
    for (int round = 0; round < 20; ++round) {
        {
            const auto turn = gate.remove(round, [](const Ids &) { return true; });
            work(20ms);
        }
        const auto left = Clock::now();
        const WriteGate::Turn turn = WriteGate::enter(&gate);
        shortest = std::min(shortest, Clock::now() - left);
    }
    QVERIFY(shortest < WriteGate::opening(20ms));
}

namespace {

/// Two removals in one transaction, which takes `duration`.
void removeTwo(WriteGate &gate, Clock::duration duration)
{
    std::list<Writer> writers;
    const WriteGate::Turn held = WriteGate::enter(&gate);
    for (int id = 1; id <= 2; ++id) {
        writers.emplace_back([&gate, id, duration] {
            const auto turn = gate.remove(id, [duration](const Ids &) {
                work(duration);
                return true;
            });
        });
        waitFor([&] { return gate.waiting() == id; });
    }
}

} // namespace

void TestWriteGate::openForTheTillAfterAGroup()
{
    WriteGate gate;
    removeTwo(gate, 20ms);
    // The group ends with its writers, so a small part of the open time has passed.
    const auto left = Clock::now();
    const WriteGate::Turn turn = WriteGate::enter(&gate);
    QVERIFY(Clock::now() - left > 10ms);
}

void TestWriteGate::removalsWaitForTheLastGroup()
{
    bool wentTogether = false;
    // The second one of a round may be delayed by the machine.
    for (int round = 0; round < 20 && !wentTogether; ++round) {
        WriteGate gate;
        removeTwo(gate, 40ms);
        const auto left = Clock::now();
        Ids removed;
        std::list<Writer> writers;
        writers.emplace_back([&] {
            const auto turn = gate.remove(3, [&](const Ids &ids) {
                removed = ids;
                return true;
            });
        });
        // The open time is over, and the other writer of the last group has not returned.
        while (Clock::now() < left + 50ms)
            work(1ms);
        const auto turn = gate.remove(4, [](const Ids &) { return false; });
        writers.clear();
        wentTogether = removed == Ids{3, 4};
    }
    QVERIFY(wentTogether);
}

/// A writer that cannot be notified of its turn waits for SQLite's lock instead.
void TestWriteGate::impatientWriter()
{
    WriteGate gate(20ms);
    std::atomic<int> impatient = 0;
    {
        const WriteGate::Turn held = WriteGate::enter(&gate);
        std::list<Writer> writers;
        for (int id = 1; id <= 3; ++id) {
            writers.emplace_back([&, id] {
                const auto turn = gate.remove(id, [](const Ids &) { return true; });
                impatient += turn && !*turn ? 1 : 0;
            });
        }
        writers.emplace_back([&] { impatient += WriteGate::enter(&gate) ? 0 : 1; });
    }
    QCOMPARE(impatient.load(), 4);
    QCOMPARE(gate.waiting(), 0);
    QVERIFY(WriteGate::enter(&gate));
}

/// Its row is being removed, so it must not remove it a second time.
void TestWriteGate::ledWriterIsPatient()
{
    constexpr auto patience = 50ms;
    WriteGate gate(patience);
    std::atomic<int> groups = 0;
    std::atomic<int> removed = 0;
    // Repeated until both arrive in time, which depends on the machine.
    while (groups == 0) {
        std::atomic<int> ended = 0;
        removed = 0;
        std::list<Writer> writers;
        const WriteGate::Turn held = WriteGate::enter(&gate);
        for (int id = 1; id <= 2; ++id) {
            writers.emplace_back([&, id] {
                const auto turn = gate.remove(id, [&](const Ids &) {
                    ++groups;
                    work(2 * patience);
                    return true;
                });
                removed += turn ? 0 : 1;
                ++ended;
            });
        }
        waitFor([&] { return gate.waiting() == 2 || ended > 0; });
    }
    QCOMPARE(removed.load(), 2);
}

void TestWriteGate::randomWriters_data()
{
    QTest::addColumn<int>("threads");
    QTest::newRow("3") << 3;
    QTest::newRow("8") << 8;
    QTest::newRow("57") << 57;
}

/// Random writers against a model of the file: rows reported as removed are gone, all others are
/// there, no two writers write at once, and all of them end.
void TestWriteGate::randomWriters()
{
    QFETCH(int, threads);
    const int rowsOfAThread = 4000 / threads;
    const uint seed = qEnvironmentVariableIsSet("QUEUE_FAULTS_SEED")
                          ? qEnvironmentVariable("QUEUE_FAULTS_SEED").toUInt()
                          : std::random_device()();
    qInfo("QUEUE_FAULTS_SEED=%u", seed);

    WriteGate gate(1h);
    File file;
    for (int id = 0; id < threads * rowsOfAThread; ++id)
        file.rows.insert(id);
    std::vector<char> isReported(file.rows.size(), 0);
    std::atomic<int> groups = 0;
    std::atomic<int> failedGroups = 0;
    std::atomic<int> thrown = 0;
    std::atomic<int> others = 0;

    const auto writer = [&](int number) {
        std::mt19937 random(seed + static_cast<uint>(number));
        // A transaction whose statement `failing` fails, or throws: the first is the begin, the
        // last the commit.
        const auto removeAll = [&](const Ids &ids) {
            const bool isFailing = random() % 4 == 0;
            const bool isThrowing = isFailing && random() % 4 == 0;
            const size_t failing = random() % (ids.size() + 2);
            ++groups;
            bool isDone = false;
            file.write([&](std::set<int> &rows) {
                const std::set<int> before = rows;
                for (size_t statement = 0; statement < ids.size() + 2; ++statement) {
                    if (isFailing && statement == failing) {
                        rows = before;
                        return;
                    }
                    if (statement >= 1 && statement <= ids.size())
                        rows.erase(ids[statement - 1]);
                }
                isDone = true;
            });
            failedGroups += isFailing ? 1 : 0;
            if (isThrowing)
                throw std::runtime_error("on the way");
            return isDone;
        };
        for (int i = 0; i < rowsOfAThread; ++i) {
            const int id = number * rowsOfAThread + i;
            // A delivery, sometimes.
            if (random() % 3 == 0)
                work(std::chrono::microseconds(random() % 200));
            if (random() % 8 == 0) {
                const WriteGate::Turn turn = WriteGate::enter(&gate);
                file.write([&](auto &) { ++others; });
            }
            try {
                const auto turn = gate.remove(id, removeAll);
                if (turn) {
                    // The own statement may fail as well.
                    if (random() % 8 == 0)
                        continue;
                    file.write([&](std::set<int> &rows) { rows.erase(id); });
                }
                isReported[static_cast<size_t>(id)] = 1;
            } catch (const std::runtime_error &) {
                ++thrown;
            }
        }
    };
    {
        // Each ends after trying its rows, and the others continue without it.
        std::list<Writer> writers;
        for (int number = 0; number < threads; ++number)
            writers.emplace_back([&, number] { writer(number); });
    }
    QCOMPARE(gate.waiting(), 0);
    QCOMPARE(file.meetings.load(), 0);
    int removed = 0;
    for (int id = 0; id < threads * rowsOfAThread; ++id) {
        const bool isGone = !file.rows.contains(id);
        QCOMPARE(isGone, isReported[static_cast<size_t>(id)] == 1);
        removed += isGone ? 1 : 0;
    }
    qInfo("%d rows removed, %d left; %d groups, %d of them failed, %d by throwing; %d other writes",
          removed, static_cast<int>(file.rows.size()), groups.load(), failedGroups.load(),
          thrown.load(), others.load());
    QVERIFY(groups > 0);
    QVERIFY(failedGroups > 0);
    QVERIFY(others > 0);
}

QTEST_GUILESS_MAIN(TestWriteGate)
#include "tst_writegate.moc"
