#include "handlers/payment/steadytime.h"

#include <QTest>

#include <csignal>
#include <future>
#include <pthread.h>

namespace {

std::atomic<int> signalCount{0};

extern "C" void countSignal(int)
{
    ++signalCount;
}

} // namespace

class TestSteadyTime : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void pastMomentReturnsAtOnce();
    void signalsDoNotShortenTheSleep();
};

void TestSteadyTime::pastMomentReturnsAtOnce()
{
    const SteadyTime time;
    const SteadyTime::Moment before = time.now();
    time.sleepUntil(before);
    time.sleepUntil(before - std::chrono::hours(1));
    QVERIFY(time.now() >= before);
    QVERIFY(time.now() - before < std::chrono::minutes(1));
}

void TestSteadyTime::signalsDoNotShortenTheSleep()
{
    struct sigaction action = {};
    struct sigaction former = {};
    action.sa_handler = countSignal; // without SA_RESTART: a plain sleep would end
    sigaction(SIGUSR1, &action, &former);
    signalCount = 0;

    std::atomic<bool> isOver{false};
    const SteadyTime time;
    const SteadyTime::Moment moment = time.now() + std::chrono::milliseconds(100);
    const auto disturb = [&isOver, sleeper = pthread_self()] {
        for (int i = 0; i < 1000 && !isOver; ++i) {
            const int seen = signalCount;
            pthread_kill(sleeper, SIGUSR1);
            while (!isOver && signalCount == seen)
                std::this_thread::yield();
        }
    };
    std::future<void> disturber = std::async(std::launch::async, disturb);
    int signalsInSleep = -signalCount;
    time.sleepUntil(moment);
    const SteadyTime::Moment end = time.now();
    signalsInSleep += signalCount;
    isOver = true;
    disturber.get();
    sigaction(SIGUSR1, &former, nullptr);

    QVERIFY(end >= moment);
    QVERIFY(signalsInSleep > 0);
}

QTEST_GUILESS_MAIN(TestSteadyTime)
#include "tst_steadytime.moc"
