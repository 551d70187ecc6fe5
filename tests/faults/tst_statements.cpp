#include "app/queuehandler.h"
#include "engine/basichandler.h"
#include "handlers/handlertable.h"
#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "tests/faults/faultydriver.h"
#include "tests/faults/form.h"
#include "tests/faults/memoryfolder.h"
#include "tests/faults/shop.h"
#include "tests/support/queuedatabase.h"

#include <log4qt/level.h>
#include <log4qt/logger.h>
#include <log4qt/logmanager.h>

#include <QTest>

#include <latch>
#include <thread>

using namespace Qt::StringLiterals;
using faultydriver::Step;

namespace {

const QString probeText = u"SELECT COUNT(messageid), creationtime FROM queues.message LIMIT 1"_s;
const QString removalText = u"DELETE FROM message WHERE messageid = :messageid"_s;

/// Eleven of Qt's driver, and five that are executed without it.
constexpr int statementsOfAStore = 11 + 5;

/// The statements that set up a connection, before those of the store.
bool isOfTheConnection(const Step &step)
{
    return step.kind == Step::Kind::Open || step.statement.startsWith(u"PRAGMA"_s)
           || step.statement.startsWith(u"ATTACH"_s) || step.statement.contains(u"sqlite_master"_s);
}

/// A database that cannot be switched to WAL is used nevertheless.
bool isTolerated(const Step &step)
{
    return step.statement.contains(u"journal_mode"_s);
}

/// The errors that one store must count for its steps: one for each failed statement, one for each
/// failed probe, after another statement or alone, one for each failed reconnection. A preparation
/// that fails while the store connects is not an error yet; one that fails when its statement is
/// executed counts as that statement. `isConnected`: the steps begin after a successful connection.
int expectedErrors(const QList<Step> &steps, bool isConnected)
{
    int errors = 0;
    bool isConnecting = false;
    bool isFirstConnection = !isConnected;
    int preparations = 0;
    for (const Step &step : steps) {
        if (step.kind == Step::Kind::Open) {
            isConnecting = true;
            preparations = statementsOfAStore;
        }
        if (isOfTheConnection(step)) {
            if (isConnecting && step.failed && !isTolerated(step)) {
                // The first connection of a worker throws instead.
                errors += isFirstConnection ? 0 : 1;
                // A preparation of ATTACH that failed is followed by its execution.
                isConnecting = false;
            }
            continue;
        }
        isConnecting = false;
        isFirstConnection = false;
        const bool isDue = step.kind == Step::Kind::Execute || --preparations < 0;
        if (isDue && step.failed)
            ++errors;
    }
    return errors;
}

/// The results of the deliveries of all workers.
struct Peer
{
    QHash<int, int> deliveries;
    /// Refused until the test changes it.
    QSet<int> refused;
};

class CountingHandler : public BasicHandler
{
public:
    CountingHandler(const QString &type, Peer &peer)
        : BasicHandler(type)
        , peer(peer)
    {
    }

    bool sendMessage(const Message &message) override
    {
        if (peer.refused.contains(message.id))
            return false;
        ++peer.deliveries[message.id];
        return true;
    }
    void processMessages() override
    {
        BasicHandler::processMessages();
        errors = dao->getErrorsCount();
    }

    /// The error count of its store; -1 before the end of the pass.
    int errors = -1;

private:
    Peer &peer;
};

/// Whether a worker with these steps may throw: it got no connection.
bool mayThrow(const QList<Step> &steps)
{
    const bool isLost = std::ranges::any_of(steps, [](const Step &step) {
        return step.failed && isOfTheConnection(step) && !isTolerated(step);
    });
    const bool hasPrepared = std::ranges::any_of(steps, [](const Step &step) {
        return step.kind == Step::Kind::Prepare && !isOfTheConnection(step);
    });
    return isLost && !hasPrepared;
}

/// The deletions that failed, also for lack of a connection: for a kept message the store is not
/// used any more.
int failedRemovals(const QList<Step> &steps)
{
    const auto refused = std::ranges::count_if(steps, [](const Step &step) {
        return step.kind == Step::Kind::Execute && step.failed
               && step.statement.contains(u"DELETE FROM message"_s);
    });
    if (refused > 0)
        return static_cast<int>(refused);
    const bool hasRead = std::ranges::any_of(steps, [](const Step &step) {
        return step.kind == Step::Kind::Execute && !step.failed
               && step.statement.contains(u"ORDER BY messageid"_s);
    });
    const bool hasRemoved = std::ranges::any_of(steps, [](const Step &step) {
        return step.statement.contains(u"DELETE FROM message"_s)
               && step.kind == Step::Kind::Execute;
    });
    const bool endsUnconnected =
        !steps.isEmpty() && steps.last().kind == Step::Kind::Open && steps.last().failed;
    return hasRead && !hasRemoved && endsUnconnected ? 1 : 0;
}

/// The sample of each type, and further scenarios that use the document store.
QList<stand::ScenarioSource> shopScenarios()
{
    QList<stand::ScenarioSource> chosen;
    const QList<stand::ScenarioSource> all = faults::scenarios();
    for (const stand::ScenarioSource &source : all) {
        const stand::Scenario scenario = faults::scenarioOf(source);
        const bool isDelivered =
            std::ranges::all_of(scenario.messages, [](const stand::QueuedMessage &message) {
                return message.outcome.fate == stand::Outcome::Fate::Removed;
            });
        if (source.isSample()
            || (!scenario.cards.isEmpty() && scenario.steps.isEmpty() && isDelivered))
            chosen.append(source);
    }
    return chosen;
}

} // namespace

/// Every statement of the store fails in turn, once and permanently; the result is at most an empty
/// queue and a counted error.
class TestStatements : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        faultydriver::install();
        faults::useMemoryForTemporaryFolders();
        // Some ten thousand failures would be logged.
        Log4Qt::LogManager::rootLogger()->setLevel(Log4Qt::Level(Log4Qt::Level::OFF_INT));
    }
    void operations_data();
    void operations();
    void passes_data();
    void passes();
    void everyType_data();
    void everyType();
    void documentStoreTookPart();
    void statementThatCouldNotBePrepared();
    void groups_data();
    void groups();

private:
    void runOperations(queue::DAO &dao, int doomed);
    void runPass(QueueHandler &manager, const std::shared_ptr<SharedState> &state, Peer &peer);

    /// Findings of the current pass.
    QStringList findings;
    int endsWithoutConnection = 0;
    int casesOfTypes = 0;
    int documentStatements = 0;
};

void TestStatements::operations_data()
{
    QTest::addColumn<bool>("isForEver");
    QTest::newRow("once") << false;
    QTest::newRow("for ever") << true;
}

/// Every operation that the store offers.
void TestStatements::runOperations(queue::DAO &dao, int doomed)
{
    dao.hasMessages(u"cardlab"_s, QString());
    dao.hasMessages(u"cardlab"_s, u"7"_s);
    dao.getMessage(u"cardlab"_s, -1, false, QString());
    dao.getMessage(u"cardlab"_s, -1, false, u"7"_s);
    dao.getMessages(u"cardlab"_s, -1, 5, true, QString());
    dao.getMessages(u"cardlab"_s, -1, 5, true, u"7"_s);
    dao.hasEarlierMessage(u"cardlab"_s, doomed, u"mark"_s);
    dao.getMessageTypeCounts();
    dao.updateStatusCode(doomed, u"3"_s);
    dao.getQueueInfo();
    dao.deleteMessage(doomed);
}

void TestStatements::operations()
{
    QFETCH(bool, isForEver);
    int cases = 0;
    int errors = 0;
    int total = 1;
    for (int chosen = 0; chosen <= total; ++chosen) {
        faultydriver::arm(0, false);
        QueueDatabase database;
        const int kept = database.put(u"cardlab"_s, u"{}"_s, u"7"_s);
        const int doomed = database.put(u"cardlab"_s, u"{}"_s, u"7"_s);
        queue::DAO dao;
        dao.connect();

        faultydriver::arm(chosen, isForEver);
        for (int round = 0; round < faults::count(2, 5); ++round)
            runOperations(dao, doomed);
        const QList<Step> steps = faultydriver::steps();
        faultydriver::arm(0, false);
        if (chosen == 0)
            total = static_cast<int>(steps.size());

        QVERIFY2(chosen == 0 || steps.at(chosen - 1).failed, qPrintable(QString::number(chosen)));
        QCOMPARE(dao.getErrorsCount(), expectedErrors(steps, true));
        QCOMPARE(dao.getErrorsCount() > 0, chosen > 0);
        // The row is deleted exactly when a deletion was executed.
        const bool isRemoved = steps.contains(Step{Step::Kind::Execute, removalText, false});
        QCOMPARE(database.ids(), isRemoved ? QList<int>{kept} : (QList<int>{kept, doomed}));
        // Whatever failed, the next use of the store or the one after it works.
        dao.getMessage(u"cardlab"_s, -1, false, QString());
        QCOMPARE(dao.getMessage(u"cardlab"_s, -1, false, QString()).id, kept);
        errors += dao.getErrorsCount();
        ++cases;
    }
    qInfo("%d cases over %d statements, %d errors counted as told", cases, total, errors);
}

void TestStatements::passes_data()
{
    operations_data();
}

/// A poll and a worker for each of its types, one after the other.
void TestStatements::runPass(QueueHandler &manager, const std::shared_ptr<SharedState> &state,
                             Peer &peer)
{
    const qsizetype pollBegin = faultydriver::steps().size();
    const int pollErrors = manager.getErrorsCount();
    const QList<TypeCount> counts = manager.getStatus();
    const int pollExpected = expectedErrors(faultydriver::steps().mid(pollBegin), true);
    if (manager.getErrorsCount() - pollErrors != pollExpected)
        findings.append(u"the poll counted %1 errors instead of %2"_s.arg(
            QString::number(manager.getErrorsCount() - pollErrors), QString::number(pollExpected)));

    for (const auto &[type, count] : counts) {
        const qsizetype begin = faultydriver::steps().size();
        bool hasThrown = false;
        int errors = -1;
        std::thread worker([&, typeName = type] {
            CountingHandler handler(typeName, peer);
            handler.setState(state);
            try {
                handler.run();
            } catch (const BasicException &) {
                hasThrown = true;
            }
            errors = handler.errors;
        });
        worker.join();
        const QList<Step> steps = faultydriver::steps().mid(begin);
        // Only a worker that does not get its connection may end the service.
        if (hasThrown != mayThrow(steps))
            findings.append(hasThrown ? u"a worker threw for a statement of its store"_s
                                      : u"a worker without a connection did not throw"_s);
        if (hasThrown) {
            ++endsWithoutConnection;
        } else if (errors != expectedErrors(steps, false)) {
            findings.append(u"a worker counted %1 errors instead of %2"_s.arg(
                QString::number(errors), QString::number(expectedErrors(steps, false))));
        }
    }
}

void TestStatements::passes()
{
    QFETCH(bool, isForEver);
    const int typeCount = faults::count(2, 6);
    const int rowsOfAType = faults::count(3, 8);
    int cases = 0;
    int repeats = 0;
    int total = 1;
    endsWithoutConnection = 0;
    for (int chosen = 0; chosen <= total; ++chosen) {
        faultydriver::arm(0, false);
        QueueDatabase database;
        Peer peer;
        QList<int> written;
        for (int row = 0; row < rowsOfAType; ++row) {
            for (int type = 0; type < typeCount; ++type)
                written.append(database.put(u"type%1"_s.arg(type), u"{}"_s));
        }
        // One row of the first type is refused, so its pass ends at it.
        peer.refused.insert(written.at(typeCount));
        const auto state = std::make_shared<SharedState>();
        QueueHandler manager({}, state);
        manager.init();

        findings.clear();
        faultydriver::arm(chosen, isForEver);
        runPass(manager, state, peer);
        if (chosen == 0)
            total = static_cast<int>(faultydriver::steps().size());
        runPass(manager, state, peer);
        const QList<Step> steps = faultydriver::steps();
        faultydriver::arm(0, false);

        // No row is deleted that was not delivered.
        const QList<int> left = database.ids();
        for (const int id : std::as_const(written)) {
            if (!left.contains(id) && peer.deliveries.value(id) == 0)
                findings.append(u"row %1 went away without a delivery"_s.arg(id));
        }
        // Peer and database work again: at most one pass for each refusal and one to find the end.
        peer.refused.clear();
        for (int pass = 0; pass < 4 && !database.ids().isEmpty(); ++pass)
            runPass(manager, state, peer);
        QVERIFY2(findings.isEmpty(), qPrintable(u"step %1: "_s.arg(chosen) + findings.join(u'\n')));
        QCOMPARE(database.ids(), QList<int>());

        // Each further delivery has a failed deletion.
        const auto failedRemovals = std::ranges::count_if(steps, [](const Step &step) {
            return step.kind == Step::Kind::Execute && step.failed && step.statement == removalText;
        });
        int repeatsHere = 0;
        for (const int id : std::as_const(written)) {
            QVERIFY(peer.deliveries.value(id) >= 1);
            repeatsHere += peer.deliveries.value(id) - 1;
        }
        QCOMPARE(repeatsHere, static_cast<int>(failedRemovals));
        repeats += repeatsHere;
        ++cases;
    }
    qInfo("%d cases over %d statements of a pass, %d repeats, one for each failed deletion; "
          "%d ends of a worker without a connection, none other",
          cases, total, repeats, endsWithoutConnection);
    QVERIFY(repeats > 0);
    QVERIFY(endsWithoutConnection > 0);
}

void TestStatements::everyType_data()
{
    QTest::addColumn<stand::ScenarioSource>("source");
    QTest::addColumn<bool>("isForEver");
    QSet<QString> types;
    for (const stand::ScenarioSource &source : shopScenarios()) {
        // A scenario with several messages runs together with a sample of its type.
        if (source.isSample())
            types.insert(source.type());
        for (const bool isForEver : {false, true})
            QTest::addRow("%s, %s", qPrintable(source.title()), isForEver ? "for ever" : "once")
                << source << isForEver;
    }
    QSet<QString> all;
    for (const HandlerRow &row : handlerTable())
        all.insert(QString::fromUtf16(row.type));
    QVERIFY2(types == all, qPrintable((all - types).values().join(u' ')));
}

/// With the real handlers: whatever statement fails, no row ends the service, no row is deleted
/// without a delivery, and a delivered message is not sent again unless its row could not be
/// deleted.
void TestStatements::everyType()
{
    QFETCH(stand::ScenarioSource, source);
    QFETCH(bool, isForEver);
    faults::Shop shop(source);
    int cases = 0;
    int total = 1;
    int storeSteps = 0;
    for (int chosen = 0; chosen <= total; ++chosen) {
        faultydriver::arm(0, false);
        shop.fill();
        const int arrivedBefore = shop.arrived();

        faultydriver::arm(chosen, isForEver);
        const bool hasThrown = shop.runPass();
        const QList<Step> steps = faultydriver::steps();
        faultydriver::arm(0, false);
        if (chosen == 0) {
            total = static_cast<int>(steps.size());
            storeSteps = static_cast<int>(std::ranges::count_if(steps, [](const Step &step) {
                return step.statement.contains(u"documentcard"_s) && !isOfTheConnection(step);
            }));
            QCOMPARE(shop.left(), 0);
        }
        const QString where =
            u"step %1, %2"_s.arg(QString::number(chosen), steps.value(chosen - 1).statement);
        QVERIFY2(hasThrown == mayThrow(steps), qPrintable(where));
        const int gone = shop.messages() - shop.left();
        const int requests = shop.requestsOfAMessage();
        QVERIFY2(gone * requests <= shop.arrived() - arrivedBefore, qPrintable(where));

        // The database works again.
        for (int pass = 0; pass < 4 && shop.left() > 0; ++pass)
            shop.runPass();
        QVERIFY2(shop.left() == 0, qPrintable(where));
        QVERIFY2(shop.arrived() - arrivedBefore
                     == (shop.messages() + failedRemovals(steps)) * requests,
                 qPrintable(where));
        ++cases;
    }
    casesOfTypes += cases;
    documentStatements += storeSteps;
}

void TestStatements::documentStoreTookPart()
{
    if (casesOfTypes == 0)
        QSKIP("everyType was not asked for");
    qInfo("%d cases with the real handlers, %d of them statements of the document store",
          casesOfTypes, documentStatements);
    QVERIFY(documentStatements > 0);
}

/// The store of the main thread lives as long as the service. A statement that could not be
/// prepared, for example because of a lock, is prepared again before its execution, when the lock
/// may be gone.
void TestStatements::statementThatCouldNotBePrepared()
{
    faultydriver::arm(0, false);
    QueueDatabase database;
    database.put(u"cardlab"_s, u"{}"_s);
    // The second time it opens a connection of its own, as it will below.
    for (int round = 0; round < 2; ++round) {
        faultydriver::arm(0, false);
        queue::DAO dao;
        dao.connect();
    }
    const QList<Step> clean = faultydriver::steps();
    int number = 0;
    for (int i = 0; i < clean.size(); ++i) {
        if (clean.at(i).kind == Step::Kind::Prepare
            && clean.at(i).statement.contains(u"GROUP BY"_s))
            number = i + 1;
    }
    QVERIFY(number > 0);

    queue::DAO dao;
    faultydriver::arm(number, false);
    dao.connect();
    QCOMPARE(dao.getMessageTypeCounts().size(), 1);
    QCOMPARE(dao.getErrorsCount(), 0);
    // From then on it stays prepared.
    faultydriver::arm(0, false);
    QCOMPARE(dao.getMessageTypeCounts().size(), 1);
    QCOMPARE(faultydriver::steps().size(), 1);

    // The same with the preparation before the execution: the call after that one succeeds.
    faultydriver::arm(number, false);
    dao.connect();
    faultydriver::arm(1, false);
    QVERIFY(dao.getMessageTypeCounts().isEmpty());
    QCOMPARE(dao.getErrorsCount(), 1);
    QCOMPARE(dao.getMessageTypeCounts().size(), 1);
    QCOMPARE(dao.getErrorsCount(), 1);
}

void TestStatements::groups_data()
{
    operations_data();
}

/// Three workers remove their rows in one transaction, and each of its statements fails in turn.
void TestStatements::groups()
{
    QFETCH(bool, isForEver);
    constexpr int workers = 3;
    const QStringList clean{u"BEGIN IMMEDIATE"_s, removalText, removalText, removalText,
                            u"COMMIT"_s};
    for (int chosen = 0; chosen <= clean.size(); ++chosen) {
        faultydriver::arm(0, false);
        QueueDatabase database;
        QList<int> rows;
        for (int i = 0; i < workers; ++i)
            rows.append(database.put(u"type%1"_s.arg(i), u"{}"_s));
        ConnectionFactory *factory = Singleton<ConnectionFactory>::instance();
        WriteGate *gate = factory->gateOf(factory->getConnection());
        QVERIFY(gate);

        std::latch areConnected(workers + 1);
        std::latch areRemoved(workers);
        std::latch isWell(1);
        std::vector<int> errors(workers);
        std::vector<int> errorsAfterwards(workers);
        std::vector<std::thread> threads;
        WriteGate::Turn held = WriteGate::enter(gate);
        for (int i = 0; i < workers; ++i) {
            threads.emplace_back([&, i] {
                queue::DAO dao;
                dao.connect();
                areConnected.count_down();
                while (gate->waiting() != i)
                    std::this_thread::yield();
                dao.deleteMessage(rows.at(i));
                errors[static_cast<size_t>(i)] = dao.getErrorsCount();
                areRemoved.count_down();
                isWell.wait();
                dao.deleteMessage(rows.at(i));
                errorsAfterwards[static_cast<size_t>(i)] = dao.getErrorsCount();
            });
        }
        areConnected.arrive_and_wait();
        faultydriver::arm(chosen, isForEver);
        while (gate->waiting() != workers)
            std::this_thread::yield();
        held.end();
        areRemoved.wait();
        const QList<Step> steps = faultydriver::steps();
        faultydriver::arm(0, false);
        const QList<int> left = database.ids();
        isWell.count_down();
        for (std::thread &thread : threads)
            thread.join();

        const QByteArray which = u"statement %1"_s.arg(chosen).toUtf8();
        QStringList seen;
        for (const Step &step : steps)
            seen.append(step.statement);
        if (chosen == 0) {
            QCOMPARE(seen, clean);
        } else {
            QVERIFY2(steps.at(chosen - 1).failed, which);
            QCOMPARE(seen.first(chosen), clean.first(chosen));
        }
        if (chosen == 0 || !isForEver) {
            QVERIFY2(left.isEmpty(), which);
            QCOMPARE(errors, std::vector<int>(workers, 0));
            const auto own = std::ranges::count_if(
                steps.mid(chosen == 0 ? clean.size() : chosen),
                [](const Step &step) { return step.statement == removalText && !step.failed; });
            QVERIFY2(own == (chosen == 0 ? 0 : workers), which);
        } else {
            // No row is deleted without a commit.
            QCOMPARE(left, rows);
            // A statement and the probe fail. A transaction that could not be ended is abandoned
            // with a new connection, which fails as well, before any statement.
            const bool isOpen = chosen > 1;
            QCOMPARE(errors, (std::vector<int>{isOpen ? 1 : 2, 2, 2}));
        }
        // No connection is left with a transaction or a lock.
        QCOMPARE(database.ids(), QList<int>());
        QCOMPARE(errorsAfterwards, errors);
    }
}

QTEST_GUILESS_MAIN(TestStatements)
#include "tst_statements.moc"
