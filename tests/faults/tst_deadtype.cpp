#include "app/queuehandler.h"
#include "engine/basichandler.h"
#include "handlers/common/delivery.h"
#include "handlers/handlertable.h"
#include "rig/fastpeer.h"
#include "tests/faults/form.h"
#include "tests/faults/memoryfolder.h"
#include "tests/faults/traffic.h"
#include "tests/support/queuedatabase.h"

#include <log4qt/level.h>
#include <log4qt/logger.h>
#include <log4qt/logmanager.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QThreadPool>
#include <QTimer>

#include <map>
#include <mutex>
#include <random>

using namespace Qt::StringLiterals;
using rig::FastPeer;
using Clock = FastPeer::Clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

namespace {

/// All 58 types send one prepared request with the service's own client here. Types differ in
/// judging the reply, not in the time of the request.
class PlainHandler : public BasicHandler
{
public:
    using BasicHandler::BasicHandler;

    bool sendMessage(const Message &message) override
    {
        logger()->info(u"Отправка сообщения %1"_s, message.id);
        return deliverRequest(*logger(), readRequest(message));
    }
};

std::vector<HandlerRow> plainHandlers()
{
    std::vector<HandlerRow> rows;
    for (const HandlerRow &handler : handlerTable())
        rows.push_back(typedRow<PlainHandler>(handler.type));
    return rows;
}

/// Accepts every message, refuses those under /refused at once, and does not answer those under
/// /dead.
class Peer
{
public:
    Peer()
        : receiver([this](const FastPeer::Request &request) { return answer(request); })
    {
    }

    QString body(const QString &target, int number, int timeoutSeconds) const
    {
        const QJsonObject object{
            {u"url"_s, u"http://127.0.0.1:%1%2"_s.arg(QString::number(receiver.port()), target)},
            {u"body"_s, u"#%1#"_s.arg(number)},
            {u"timeout"_s, timeoutSeconds}};
        return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
    }

    /// When the request of each number arrived.
    std::map<int, Clock::time_point> arrivals() const
    {
        const std::scoped_lock lock(mutex);
        return times;
    }
    int deadRequests() const
    {
        const std::scoped_lock lock(mutex);
        return dead;
    }

private:
    std::string answer(const FastPeer::Request &request)
    {
        const std::scoped_lock lock(mutex);
        if (request.target == "/dead") {
            ++dead;
            return {};
        }
        times.try_emplace(faults::Traffic::numberIn(request.body), request.time);
        return FastPeer::reply(request.target == "/refused" ? 503 : 200);
    }

    mutable std::mutex mutex;
    std::map<int, Clock::time_point> times;
    int dead = 0;
    FastPeer receiver;
};

/// Time from writing the row to its request, in milliseconds.
struct Latency
{
    double median = 0;
    double p99 = 0;
    double max = 0;
    int rows = 0;
};

Latency latencyOf(std::vector<double> values)
{
    std::ranges::sort(values);
    const auto at = [&values](double share) {
        return values.at(static_cast<size_t>(share * static_cast<double>(values.size() - 1)));
    };
    return {at(0.5), at(0.99), values.back(), static_cast<int>(values.size())};
}

} // namespace

/// What a failing type costs the others: the service's manager, workers, store and client, polled
/// as the service polls.
class TestDeadType : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void deadTypeBesideHealthyOnes();
    void newRowAfterFailingOnes_data();
    void newRowAfterFailingOnes();

private:
    /// Polls from now on, `period` from the end of one poll to the next one.
    void poll(std::chrono::milliseconds period);
    Latency measure(const QStringList &types, int rounds);

    const std::vector<HandlerRow> handlers = plainHandlers();
    std::unique_ptr<QueueDatabase> database;
    std::unique_ptr<Peer> peer;
    std::shared_ptr<SharedState> state;
    std::unique_ptr<QueueHandler> manager;
    std::unique_ptr<QTimer> timer;
    int polls = 0;
    int lastNumber = 0;
};

void TestDeadType::initTestCase()
{
    faults::useMemoryForTemporaryFolders();
    Log4Qt::LogManager::rootLogger()->setLevel(Log4Qt::Level(Log4Qt::Level::OFF_INT));
}

void TestDeadType::init()
{
    database = std::make_unique<QueueDatabase>();
    peer = std::make_unique<Peer>();
    state = std::make_shared<SharedState>();
    manager = std::make_unique<QueueHandler>(handlers, state);
    manager->init();
    timer = std::make_unique<QTimer>();
    timer->setSingleShot(true);
    polls = 0;
}

void TestDeadType::cleanup()
{
    timer.reset();
    state->stopFlag = 1;
    QThreadPool::globalInstance()->waitForDone();
    manager.reset();
    peer.reset();
    database.reset();
}

void TestDeadType::poll(std::chrono::milliseconds period)
{
    timer->setInterval(period);
    connect(timer.get(), &QTimer::timeout, this, [this] {
        ++polls;
        manager->startHandlers();
        timer->start();
    });
    timer->start();
}

/// In each round of a second every type gets a row at a moment of its own.
Latency TestDeadType::measure(const QStringList &types, int rounds)
{
    std::mt19937 random(1);
    std::multimap<int, QString> plan;
    for (int round = 0; round < rounds; ++round) {
        for (const QString &type : types)
            plan.emplace(round * 1000 + static_cast<int>(random() % 1000), type);
    }
    std::map<int, Clock::time_point> written;
    const auto begin = Clock::now();
    for (const auto &[moment, type] : plan) {
        const auto due = begin + std::chrono::milliseconds(moment);
        while (Clock::now() < due)
            QTest::qWait(1);
        const int number = ++lastNumber;
        database->query(u"INSERT INTO message (type, body) VALUES (?, ?)"_s,
                        {type, peer->body(u"/healthy"_s, number, 30)});
        written[number] = Clock::now();
    }
    std::vector<double> times;
    const bool areAll = QTest::qWaitFor(
        [&] { return peer->arrivals().size() >= static_cast<size_t>(lastNumber); }, 60'000);
    if (!areAll)
        qFatal("%zu of %d rows arrived", peer->arrivals().size(), lastNumber);
    const std::map<int, Clock::time_point> arrivals = peer->arrivals();
    for (const auto &[number, time] : written)
        times.push_back(Milliseconds(arrivals.at(number) - time).count());
    return latencyOf(times);
}

void TestDeadType::deadTypeBesideHealthyOnes()
{
    constexpr auto tick = std::chrono::milliseconds(1000);
    const QString deadType = u"heineken"_s;
    QStringList healthy;
    for (const HandlerRow &handler : handlers)
        healthy.append(QString::fromUtf16(handler.type));
    healthy.removeOne(deadType);
    QCOMPARE(healthy.size(), 57);
    lastNumber = 0;

    poll(tick);
    const int rounds = faults::count(5, 100);
    const Latency without = measure(healthy, rounds);
    for (int row = 0; row < 50 + rounds; ++row)
        database->query(u"INSERT INTO message (type, body) VALUES (?, ?)"_s,
                        {deadType, peer->body(u"/dead"_s, 0, 3)});
    QVERIFY(QTest::qWaitFor([this] { return peer->deadRequests() > 0; }, 30'000));
    const Latency with = measure(healthy, rounds);

    for (const auto &[name, latency] : {std::pair("without", without), std::pair("with", with)})
        qInfo("%s the dead type: %d rows of 57 types, median %.0f ms, 99th percentile %.0f ms, "
              "longest %.0f ms",
              name, latency.rows, latency.median, latency.p99, latency.max);
    qInfo(
        "%d requests of the dead type stalled; the 99th percentile moved by %.0f ms, a tick is %d ms",
        peer->deadRequests(), with.p99 - without.p99, static_cast<int>(tick.count()));
    // It was dead all the time; otherwise the figures would mean nothing.
    QVERIFY(peer->deadRequests() >= rounds / 5);
    QVERIFY(with.p99 - without.p99 <= static_cast<double>(tick.count()));
}

void TestDeadType::newRowAfterFailingOnes_data()
{
    QTest::addColumn<int>("failing");
    QTest::newRow("none") << 0;
    QTest::newRow("10") << 10;
    QTest::newRow("100") << 100;
}

/// Each pass of a type steps over one refused row.
void TestDeadType::newRowAfterFailingOnes()
{
    QFETCH(int, failing);
    const auto period = std::chrono::milliseconds(faults::count(50, 1000));
    const int fresh = 1'000'000;
    for (int row = 1; row <= failing; ++row)
        database->query(u"INSERT INTO message (type, body) VALUES ('cardlab', ?)"_s,
                        {peer->body(u"/refused"_s, row, 30)});
    database->query(u"INSERT INTO message (type, body) VALUES ('cardlab', ?)"_s,
                    {peer->body(u"/healthy"_s, fresh, 30)});
    const auto written = Clock::now();
    poll(period);
    QVERIFY(QTest::qWaitFor([&] { return peer->arrivals().contains(fresh); }, 600'000));
    const double waited = Milliseconds(peer->arrivals().at(fresh) - written).count();
    qInfo("%d failing rows before it: the fresh row went out at poll %d, after %.1f s with a poll "
          "every %.2f s",
          failing, polls, waited / 1000, static_cast<double>(period.count()) / 1000);
    // Each of them was tried before it, and none of them twice.
    QCOMPARE(peer->arrivals().size(), static_cast<size_t>(failing + 1));
}

QTEST_GUILESS_MAIN(TestDeadType)
#include "tst_deadtype.moc"
