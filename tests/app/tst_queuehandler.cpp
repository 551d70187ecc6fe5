#include "app/queuehandler.h"
#include "engine/basichandler.h"
#include "shared/core/basicexception.h"
#include "shared/core/fileutils.h"
#include "shared/core/paths.h"
#include "tests/support/fixedtime.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QFile>
#include <QSemaphore>
#include <QTest>
#include <QThreadPool>

#include <thread>

using namespace Qt::StringLiterals;

namespace {

std::atomic<int> built{0};
std::atomic<int> delivered{0};
QSemaphore held;
QSemaphore reached;

/// Delivers at once; keeps a message whose body asks for it.
class QuickHandler : public BasicHandler
{
public:
    explicit QuickHandler(const QString &type)
        : BasicHandler(type)
    {
        ++built;
    }
    bool sendMessage(const Message &message) override
    {
        ++delivered;
        return !message.body.contains(u"keep"_s);
    }
};

/// Delivers when the test says so.
class HeldHandler : public QuickHandler
{
public:
    using QuickHandler::QuickHandler;
    bool sendMessage(const Message &message) override
    {
        reached.release();
        held.acquire();
        return QuickHandler::sendMessage(message);
    }
};

qsizetype countSaves(const LogCapture &log)
{
    return log.lines().count(u"TRACE Запись стартовых идентификаторов в файл"_s);
}

/// Cannot be built while the test says so.
class BrokenHandler : public QuickHandler
{
public:
    explicit BrokenHandler(const QString &type)
        : QuickHandler(type)
    {
        if (isBroken)
            throw std::runtime_error("cannot be built");
    }
    static inline bool isBroken = false;
};

constexpr HandlerRow rows[] = {
    typedRow<QuickHandler>(u"spasibo"),
    typedRow<QuickHandler>(u"mindbox"),
    typedRow<HeldHandler>(u"slow"),
    typedRow<BrokenHandler>(u"broken"),
};

} // namespace

class TestQueueHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void limitOfThreads();
    void absentDatabaseStopsTheStart();
    void startsAWorker();
    void unknownType();
    void runningTypeIsNotStartedTwice();
    void startOfAWorkerThatHasNotRunYet();
    void typeWithoutAWorkerIsNotEntered();
    void fullPoolStartsNoWorker();
    void pollStartsEveryType();
    void status();
    void emptyStatus();
    void savesEvery120Seconds();
    void clockSetBack();
    void savesTheFailIds();
    void savesAnEmptyMap();
    void heldFailIdsAreSavedLater();
    void unwritableFileIsSilent();
    void loads_data();
    void loads();
    void logsWhatItLoads();
    void resumesAfterTheStoredId();
    void forwardsToTheStore();
    void deliveryOutlivesTheManager();
    void operationsKeepTheirPlaces();

private:
    void pollAndWait();
    QByteArray savedFile() const;

    std::unique_ptr<QueueDatabase> database;
    std::shared_ptr<SharedState> state;
    std::unique_ptr<QueueHandler> manager;
};

void TestQueueHandler::init()
{
    built = 0;
    delivered = 0;
    database = std::make_unique<QueueDatabase>();
    state = std::make_shared<SharedState>();
    manager = std::make_unique<QueueHandler>(rows, state);
}

void TestQueueHandler::cleanup()
{
    // A test that has failed may have left deliveries behind.
    held.release(1000);
    QThreadPool::globalInstance()->waitForDone();
    held.acquire(held.available());
    reached.acquire(reached.available());
    manager.reset();
    database.reset();
}

void TestQueueHandler::pollAndWait()
{
    manager->startHandlers();
    QThreadPool::globalInstance()->waitForDone();
}

QByteArray TestQueueHandler::savedFile() const
{
    return fileutils::readFromFile(rootedPath(u"/tallocash/cash/queue/ids.json"_s),
                                   QIODevice::ReadOnly);
}

void TestQueueHandler::limitOfThreads()
{
    QThreadPool::globalInstance()->setMaxThreadCount(3);
    manager->init();
    QCOMPARE(QThreadPool::globalInstance()->maxThreadCount(), 100);
}

void TestQueueHandler::absentDatabaseStopsTheStart()
{
    database->setSettings(u"[database]\nname = /nowhere/queues.db\n"_s);
    QVERIFY_EXCEPTION_THROWN(manager->init(), BasicException);
}

void TestQueueHandler::startsAWorker()
{
    manager->init();
    database->put(u"spasibo"_s, u"{}"_s);
    const LogCapture log(u"queue"_s);
    QCOMPARE(manager->startHandler(u"spasibo"_s, u"123"_s), 1);
    QThreadPool::globalInstance()->waitForDone();
    QCOMPARE(log.lines(), QStringList{u"INFO Запуск обработчика типа 'spasibo'"_s});
    QCOMPARE(database->ids(), QList<int>());
    QVERIFY(state->runningTypes.lock()->isEmpty());
}

void TestQueueHandler::unknownType()
{
    manager->init();
    const LogCapture log(u"handlerfactory"_s);
    QCOMPARE(manager->startHandler(u"nosuch"_s, QString()), 0);
    QCOMPARE(log.lines(), QStringList{u"WARN Не найден обработчик для сообщений типа 'nosuch'"_s});
}

void TestQueueHandler::runningTypeIsNotStartedTwice()
{
    manager->init();
    database->put(u"slow"_s, u"{}"_s);
    QCOMPARE(manager->startHandler(u"slow"_s, QString()), 1);
    reached.acquire();
    QCOMPARE(manager->startHandler(u"slow"_s, QString()), 2);
    QCOMPARE(built.load(), 1);
    held.release();
    QThreadPool::globalInstance()->waitForDone();
    QCOMPARE(manager->startHandler(u"slow"_s, QString()), 1);
}

void TestQueueHandler::startOfAWorkerThatHasNotRunYet()
{
    manager->init();
    const int row = database->put(u"slow"_s, u"{}"_s);
    // In some of these rounds the worker's thread starts after the second start request.
    for (int round = 0; round < 200; ++round) {
        QCOMPARE(manager->startHandler(u"slow"_s, QString()), 1);
        QCOMPARE(manager->startHandler(u"slow"_s, QString()), 2);
        QCOMPARE(built.load(), round + 1);
        held.release();
        QThreadPool::globalInstance()->waitForDone();
        database->query(u"DELETE FROM message"_s);
        database->query(u"INSERT INTO message (messageid, type, body) VALUES (?, 'slow', '{}')"_s,
                        {row});
    }
}

void TestQueueHandler::typeWithoutAWorkerIsNotEntered()
{
    manager->init();
    database->put(u"nosuch"_s, u"{}"_s);
    database->put(u"broken"_s, u"{}"_s);
    QCOMPARE(manager->startHandler(u"nosuch"_s, QString()), 0);
    BrokenHandler::isBroken = true;
    QVERIFY_EXCEPTION_THROWN(manager->startHandler(u"broken"_s, QString()), std::runtime_error);
    BrokenHandler::isBroken = false;
    QVERIFY(state->runningTypes.lock()->isEmpty());

    const LogCapture log(u"queue"_s);
    manager->getStatus();
    QVERIFY(log.lines().contains(u"INFO   nosuch: 1 сообщ. (обработчик не активен)"_s));
    QCOMPARE(manager->startHandler(u"broken"_s, QString()), 1);
}

void TestQueueHandler::fullPoolStartsNoWorker()
{
    manager->init();
    QThreadPool::globalInstance()->setMaxThreadCount(1);
    database->put(u"slow"_s, u"{}"_s);
    database->put(u"spasibo"_s, u"{}"_s);
    QCOMPARE(manager->startHandler(u"slow"_s, QString()), 1);
    reached.acquire();

    const LogCapture log(u"queue"_s);
    const QString refusal =
        u"WARN Невозможно запустить обработчик типа spasibo, достигнут лимит количества потоков (1)"_s;
    QCOMPARE(manager->startHandler(u"spasibo"_s, QString()), 0);
    manager->startHandlers();
    manager->startHandlers();
    QCOMPARE(log.lines().count(refusal), 3);
    QCOMPARE(state->runningTypes.copy(), QSet<QString>{u"slow"_s});
    QCOMPARE(built.load(), 1);

    held.release();
    pollAndWait();
    QThreadPool::globalInstance()->waitForDone();
    pollAndWait();
    QCOMPARE(database->ids(), QList<int>());
}

void TestQueueHandler::pollStartsEveryType()
{
    manager->init();
    const int unknown = database->put(u"nosuch"_s, u"{}"_s);
    database->put(u"spasibo"_s, u"{}"_s);
    database->put(u"mindbox"_s, u"{}"_s);
    pollAndWait();
    QCOMPARE(built.load(), 2);
    QCOMPARE(database->ids(), QList<int>{unknown});
}

void TestQueueHandler::status()
{
    manager->init();
    database->put(u"slow"_s, u"{}"_s);
    manager->startHandler(u"slow"_s, QString());
    reached.acquire();
    database->put(u"mindbox"_s, u"{}"_s);
    database->put(u"mindbox"_s, u"{}"_s);

    const LogCapture log(u"queue"_s);
    const QList<TypeCount> counts = manager->getStatus();
    QCOMPARE(counts.size(), 2);
    QCOMPARE(counts.at(0).type, u"mindbox"_s);
    QCOMPARE(counts.at(0).count, 2);
    QCOMPARE(log.lines(), (QStringList{u"INFO Статус очереди сообщений:"_s,
                                       u"INFO   mindbox: 2 сообщ. (обработчик не активен)"_s,
                                       u"INFO   slow: 1 сообщ. (обработчик активен)"_s}));
    held.release();
}

void TestQueueHandler::emptyStatus()
{
    manager->init();
    const LogCapture log(u"queue"_s);
    QVERIFY(manager->getStatus().isEmpty());
    QCOMPARE(log.lines(), QStringList{u"DEBUG В очереди нет сообщений"_s});
}

void TestQueueHandler::savesEvery120Seconds()
{
    manager->init();
    FixedTime time(1'000'000);
    const LogCapture log(u"queue"_s);
    pollAndWait();
    QCOMPARE(countSaves(log), 1);
    time.set(1'000'119);
    pollAndWait();
    QCOMPARE(countSaves(log), 1);
    time.set(1'000'120);
    pollAndWait();
    QCOMPARE(countSaves(log), 2);
    time.set(1'000'239);
    pollAndWait();
    QCOMPARE(countSaves(log), 2);
}

void TestQueueHandler::clockSetBack()
{
    manager->init();
    FixedTime time(1'000'000);
    const LogCapture log(u"queue"_s);
    pollAndWait();
    time.set(999'881);
    pollAndWait();
    QCOMPARE(countSaves(log), 1);
    time.set(999'880);
    pollAndWait();
    QCOMPARE(countSaves(log), 2);
    // The last save is now the earlier time.
    time.set(999'999);
    pollAndWait();
    QCOMPARE(countSaves(log), 2);
    time.set(1'000'000);
    pollAndWait();
    QCOMPARE(countSaves(log), 3);
}

void TestQueueHandler::savesTheFailIds()
{
    manager->init();
    const int refused = database->put(u"spasibo"_s, uR"({"keep":1})"_s);
    state->startIds.lock()->insert(u"mindbox"_s, 7);
    FixedTime time(1'000'000);
    pollAndWait();
    time.set(1'000'200);
    manager->saveStartIdsIfDue();
    const QByteArray expected = R"({"mindbox":7,"spasibo":)" + QByteArray::number(refused) + "}";
    QCOMPARE(savedFile(), expected);
}

void TestQueueHandler::savesAnEmptyMap()
{
    manager->init();
    state->startIds.lock()->insert(u"mindbox"_s, 7);
    manager->saveStartIds();
    QCOMPARE(savedFile(), QByteArray(R"({"mindbox":7})"));
    state->startIds.lock()->clear();
    manager->saveStartIds();
    QCOMPARE(savedFile(), QByteArray("{}"));
}

/// A worker whose read waits for a silent server has the fail ids for as long.
void TestQueueHandler::heldFailIdsAreSavedLater()
{
    manager->init();
    state->startIds.lock()->insert(u"mindbox"_s, 7);
    FixedTime time(1'000'000);
    const LogCapture log(u"queue"_s);
    QSemaphore isHeld;
    QSemaphore release;
    std::thread worker([&] {
        const auto held = state->startIds.lock();
        isHeld.release();
        release.acquire();
    });
    isHeld.acquire();
    manager->startHandlers();
    release.release();
    worker.join();
    QVERIFY(log.lines().contains(
        u"DEBUG Стартовые идентификаторы заняты обработчиками, запись при следующем опросе"_s));
    QVERIFY(savedFile().isEmpty());

    time.set(1'000'001);
    manager->startHandlers();
    QCOMPARE(savedFile(), QByteArray(R"({"mindbox":7})"));
    manager->startHandlers();
    QCOMPARE(countSaves(log), 2);
}

void TestQueueHandler::unwritableFileIsSilent()
{
    manager->init();
    QVERIFY(QDir().mkpath(rootedPath(u"/tallocash/cash/queue/ids.json/x"_s)));
    const LogCapture log(u"queue"_s);
    manager->saveStartIds();
    QCOMPARE(log.lines(), QStringList{u"TRACE Запись стартовых идентификаторов в файл"_s});
}

void TestQueueHandler::loads_data()
{
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<QVariantMap>("ids");

    QTest::newRow("two types") << QByteArray(R"({"spasibo": 10, "mindbox": 7})")
                               << QVariantMap{{u"spasibo"_s, 10}, {u"mindbox"_s, 7}};
    QTest::newRow("empty object") << QByteArray("{}") << QVariantMap();
    QTest::newRow("empty file") << QByteArray("") << QVariantMap();
    QTest::newRow("truncated") << QByteArray(R"({"spasibo": 10, "mind)") << QVariantMap();
    QTest::newRow("array") << QByteArray("[1,2]") << QVariantMap();
    QTest::newRow("not JSON") << QByteArray("\x00\xff ids") << QVariantMap();
    QTest::newRow("wrong types read as 0")
        << QByteArray(R"({"a":"10","b":null,"c":{"d":1},"e":true,"f":1.5,"g":3})")
        << QVariantMap{{u"a"_s, 0}, {u"b"_s, 0}, {u"c"_s, 0},
                       {u"e"_s, 0}, {u"f"_s, 0}, {u"g"_s, 3}};
}

void TestQueueHandler::loads()
{
    QFETCH(QByteArray, file);
    QFETCH(QVariantMap, ids);

    QFile stored(rootedPath(u"/tallocash/cash/queue/ids.json"_s));
    QVERIFY(stored.open(QIODevice::WriteOnly));
    stored.write(file);
    stored.close();
    const LogCapture log(u"queue"_s);
    manager->init();
    QVariantMap loaded;
    const QMap<QString, int> failIds = state->startIds.copy();
    for (const auto &[type, id] : failIds.asKeyValueRange())
        loaded.insert(type, id);
    QCOMPARE(loaded, ids);
    QCOMPARE(log.lines().size(), ids.size());
}

void TestQueueHandler::logsWhatItLoads()
{
    fileutils::writeToFile(rootedPath(u"/tallocash/cash/queue/ids.json"_s), {{u"spasibo"_s, 10}},
                           QIODevice::ReadWrite | QIODevice::Truncate);
    const LogCapture log(u"queue"_s);
    manager->init();
    QCOMPARE(log.lines(), QStringList{u"DEBUG  стартовый идентификатор для spasibo: 10"_s});
}

void TestQueueHandler::resumesAfterTheStoredId()
{
    fileutils::writeToFile(rootedPath(u"/tallocash/cash/queue/ids.json"_s), {{u"spasibo"_s, 10}},
                           QIODevice::ReadWrite | QIODevice::Truncate);
    for (const int id : {9, 10, 11})
        database->query(
            u"INSERT INTO message (messageid, type, body) VALUES (?, 'spasibo', '{}')"_s, {id});
    manager->init();
    pollAndWait();
    QCOMPARE(database->ids(), (QList<int>{9, 10}));
    pollAndWait();
    QCOMPARE(database->ids(), QList<int>());
}

void TestQueueHandler::forwardsToTheStore()
{
    manager->init();
    database->put(u"mindbox"_s, u"{}"_s, u"1"_s);
    QVERIFY(manager->hasMessages(u"mindbox"_s, u"1"_s));
    QVERIFY(!manager->hasMessages(u"mindbox"_s, u"2"_s));
    QCOMPARE(manager->getQueueInfo().count, 1);
    database->query(u"ALTER TABLE message RENAME TO away"_s);
    QVERIFY(!manager->hasMessages(u"mindbox"_s, u"1"_s));
    QCOMPARE(manager->getErrorsCount(), 2);
    manager->resetErrorsCount();
    QCOMPARE(manager->getErrorsCount(), 0);
}

void TestQueueHandler::deliveryOutlivesTheManager()
{
    manager->init();
    database->put(u"slow"_s, u"{}"_s);
    QCOMPARE(manager->startHandler(u"slow"_s, QString()), 1);
    reached.acquire();
    state->stopFlag = 1;
    manager.reset();
    state.reset();
    held.release();
    QThreadPool::globalInstance()->waitForDone();
    QCOMPARE(database->ids(), QList<int>());
}

void TestQueueHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&QueueHandler::startHandler), 2);
    QCOMPARE(slotOf(&QueueHandler::getStatus), 3);
    QCOMPARE(slotOf(&QueueHandler::saveStartIdsIfDue), 4);
    QCOMPARE(slotOf(&QueueHandler::saveStartIds), 5);
    QCOMPARE(slotOf(&QueueHandler::loadStartIds), 6);
}

QTEST_GUILESS_MAIN(TestQueueHandler)
#include "tst_queuehandler.moc"
