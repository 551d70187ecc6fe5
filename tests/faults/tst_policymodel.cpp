#include "app/queuehandler.h"
#include "engine/basichandler.h"
#include "shared/core/paths.h"
#include "tests/faults/form.h"
#include "tests/faults/memoryfolder.h"
#include "tests/support/fixedtime.h"
#include "tests/support/queuedatabase.h"

#include <log4qt/level.h>
#include <log4qt/logger.h>
#include <log4qt/logmanager.h>

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>
#include <QThreadPool>

#include <map>
#include <random>
#include <set>

using namespace Qt::StringLiterals;

namespace {

/// How the outside services behave, and in which order they were asked.
struct Peers
{
    QMutex mutex;
    std::set<int> refused;
    /// The signal to end comes during this delivery.
    int stopAt = -1;
    std::map<QString, QList<int>> asked;
};

Peers peers;

class AskingHandler : public BasicHandler
{
public:
    using BasicHandler::BasicHandler;

    bool sendMessage(const Message &message) override
    {
        const QMutexLocker locker(&peers.mutex);
        peers.asked[type()].append(message.id);
        if (message.id == peers.stopAt)
            state->stopFlag = 1;
        return !peers.refused.contains(message.id);
    }
};

constexpr HandlerRow handlers[] = {
    typedRow<AskingHandler>(u"bonus"),
    typedRow<AskingHandler>(u"check"),
    typedRow<AskingHandler>(u"mark"),
};

const QStringList types{u"bonus"_s, u"check"_s, u"mark"_s};
/// A type without a handler.
const QString unknownType = u"nosuch"_s;

/// The policy as a model: take the oldest message after the refused one; delete a finished message;
/// remember a refused one and end the pass; at the end of the queue forget the refused one.
struct Model
{
    std::map<int, QString> table;
    std::map<QString, int> failIds;
    /// What a restart brings back.
    std::map<QString, int> saved;
    qint64 lastSave = 0;
    bool isStopped = false;

    std::map<QString, QList<int>> asked;

    int next(const QString &type) const
    {
        const auto fail = failIds.find(type);
        for (auto row = table.upper_bound(fail == failIds.end() ? -1 : fail->second);
             row != table.end(); ++row) {
            if (row->second == type)
                return row->first;
        }
        return -1;
    }

    void pass(const QString &type, const std::set<int> &refused, int stopAt)
    {
        while (!isStopped) {
            const int id = next(type);
            if (id < 0) {
                failIds.erase(type);
                return;
            }
            asked[type].append(id);
            isStopped = id == stopAt;
            if (refused.contains(id)) {
                failIds[type] = id;
                return;
            }
            table.erase(id);
        }
    }

    void poll(const std::set<int> &refused)
    {
        std::set<QString> waiting;
        for (const auto &[id, type] : table)
            waiting.insert(type);
        for (const QString &type : types) {
            if (waiting.contains(type))
                pass(type, refused, -1);
        }
    }

    void saveIfDue(qint64 now)
    {
        if (std::abs(now - lastSave) >= 120) {
            lastSave = now;
            saved = failIds;
        }
    }

    void restart()
    {
        failIds = saved;
        lastSave = 0;
        isStopped = false;
        asked.clear();
    }
};

std::map<QString, int> toMap(const QMap<QString, int> &ids)
{
    return {ids.constKeyValueBegin(), ids.constKeyValueEnd()};
}

} // namespace

/// Random steps of the service's workers and manager are compared with a model of a few lines: rows
/// are written and removed, peers refuse and accept, polls, forced starts, stops and restarts.
/// After each step both have asked the peers in the same order, deleted the same rows and remember
/// the same fail ids. QUEUE_FAULTS_SEED repeats a run, QUEUE_FAULTS_STEPS sets its length.
class TestPolicyModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void randomWalk();

private:
    void start();
    void step();
    void poll();
    void compare();
    int anyRow();
    int anyOf(int count) { return static_cast<int>(random() % static_cast<uint>(count)); }

    std::mt19937 random;
    std::unique_ptr<QueueDatabase> database;
    std::unique_ptr<FixedTime> clock;
    std::shared_ptr<SharedState> state;
    std::unique_ptr<QueueHandler> manager;
    Model model;
    qint64 now = 1'000'000;
    QString what;
    QMap<QString, int> counts;
};

void TestPolicyModel::start()
{
    manager.reset();
    state = std::make_shared<SharedState>();
    manager = std::make_unique<QueueHandler>(handlers, state);
    manager->init();
}

int TestPolicyModel::anyRow()
{
    if (model.table.empty())
        return -1;
    return std::next(model.table.begin(), anyOf(static_cast<int>(model.table.size())))->first;
}

/// The manager would save the fail ids while workers still change them, so it saves them after they
/// have ended; during the poll the save is not due.
void TestPolicyModel::poll()
{
    clock->set(model.lastSave);
    manager->startHandlers();
    QThreadPool::globalInstance()->waitForDone();
    model.poll(peers.refused);
    clock->set(now);
    manager->saveStartIdsIfDue();
    model.saveIfDue(now);
}

void TestPolicyModel::step()
{
    const int dice = anyOf(100);
    if (dice < 40 && model.table.size() < 40) {
        what = u"a row comes"_s;
        const QString type = anyOf(20) == 0 ? unknownType : types.at(anyOf(3));
        model.table[database->put(type, u"{}"_s)] = type;
    } else if (dice < 58) {
        what = u"a peer changes its mind"_s;
        const int id = anyRow();
        if (peers.refused.erase(id) == 0 && id > 0)
            peers.refused.insert(id);
    } else if (dice < 61) {
        what = u"the till takes a row back"_s;
        const int id = anyRow();
        database->query(u"DELETE FROM message WHERE messageid = ?"_s, {id});
        model.table.erase(id);
    } else if (dice < 66) {
        what = u"time passes"_s;
        // Sometimes the clock is set back.
        now += anyOf(10) == 0 ? -anyOf(500) : anyOf(100);
    } else if (dice < 82) {
        what = u"a poll"_s;
        poll();
    } else if (dice < 92) {
        what = u"a forced start"_s;
        const QString type = anyOf(20) == 0 ? unknownType : types.at(anyOf(3));
        manager->startHandler(type, u"7"_s);
        QThreadPool::globalInstance()->waitForDone();
        if (type != unknownType)
            model.pass(type, peers.refused, -1);
    } else if (dice < 97) {
        what = u"a signal to end during a delivery, a poll that comes too late, and a new start"_s;
        const QString type = types.at(anyOf(3));
        peers.stopAt = anyOf(2) == 0 ? anyRow() : model.next(type);
        manager->startHandler(type, QString());
        QThreadPool::globalInstance()->waitForDone();
        model.pass(type, peers.refused, peers.stopAt);
        peers.stopAt = -1;
        if (model.isStopped) {
            ++counts[u"a signal during a delivery"_s];
            poll();
            compare();
            start();
            peers.asked.clear();
            model.restart();
        }
    } else {
        what = u"a crash and a new start"_s;
        start();
        peers.asked.clear();
        model.restart();
    }
    ++counts[what];
}

void TestPolicyModel::compare()
{
    QCOMPARE(peers.asked, model.asked);
    QCOMPARE(toMap(state->startIds.copy()), model.failIds);
    QCOMPARE(state->stopFlag == 1, model.isStopped);
    QCOMPARE(state->runningTypes.copy(), QSet<QString>());
}

void TestPolicyModel::randomWalk()
{
    const int steps = qEnvironmentVariableIsSet("QUEUE_FAULTS_STEPS")
                          ? qEnvironmentVariableIntValue("QUEUE_FAULTS_STEPS")
                          : faults::count(5'000, 100'000);
    const uint seed = qEnvironmentVariableIsSet("QUEUE_FAULTS_SEED")
                          ? qEnvironmentVariable("QUEUE_FAULTS_SEED").toUInt()
                          : std::random_device()();
    qInfo("QUEUE_FAULTS_SEED=%u", seed);
    random.seed(seed);
    // A log line for each of several hundred thousand deliveries would be useless.
    Log4Qt::LogManager::rootLogger()->setLevel(Log4Qt::Level(Log4Qt::Level::OFF_INT));
    faults::useMemoryForTemporaryFolders();
    database = std::make_unique<QueueDatabase>();
    clock = std::make_unique<FixedTime>(now);
    start();

    qsizetype deliveries = 0;
    for (int number = 1; number <= steps; ++number) {
        step();
        compare();
        if (!QTest::currentTestFailed()) {
            QList<int> left;
            for (const auto &[id, type] : model.table)
                left.append(id);
            QCOMPARE(database->ids(), left);
        }
        if (QTest::currentTestFailed())
            qFatal("step %d, %s: the service and the model differ, QUEUE_FAULTS_SEED=%u", number,
                   qPrintable(what), seed);
        for (const auto &[type, ids] : peers.asked)
            deliveries += ids.size();
        peers.asked.clear();
        model.asked.clear();
    }
    manager.reset();

    QStringList told;
    for (const auto &[name, count] : counts.asKeyValueRange())
        told.append(u"%1: %2"_s.arg(name, QString::number(count)));
    qInfo("%d steps, %lld deliveries; %s", steps, static_cast<long long>(deliveries),
          qPrintable(told.join(u"; "_s)));
    QVERIFY(deliveries > steps / 10);
    QVERIFY(counts.value(u"a signal during a delivery"_s) > 0);
}

QTEST_GUILESS_MAIN(TestPolicyModel)
#include "tst_policymodel.moc"
