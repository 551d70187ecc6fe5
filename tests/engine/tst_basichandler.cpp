#include "engine/basichandler.h"
#include "shared/core/basicexception.h"
#include "shared/core/connectionfactory.h"
#include "shared/core/singleton.h"
#include "shared/net/exchangeobserver.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <new>

using namespace Qt::StringLiterals;

namespace {

/// The argument with which the test calls its own program.
constexpr const char *withoutState = "run-without-state";

/// What the handlers of one test see and do.
struct Script
{
    QSet<int> refused;
    QSet<int> givenUp;
    QSet<int> doneBefore;
    /// What the delivery of a message throws.
    QMap<int, std::exception_ptr> thrown;
    /// The service is asked to stop during this message's delivery.
    int stopAt = -1;
    QStringList events;
};

class ScriptedHandler : public BasicHandler
{
public:
    ScriptedHandler(const QString &type, Script &script, const TurnRule &turnRule)
        : BasicHandler(type, turnRule)
        , script(script)
    {
    }
    ScriptedHandler(const QString &type, Script &script)
        : BasicHandler(type)
        , script(script)
    {
    }

    bool sendMessage(const Message &message) override
    {
        delivered.append(message);
        if (message.id == script.stopAt)
            state->stopFlag = 1;
        if (const std::exception_ptr exception = script.thrown.value(message.id))
            std::rethrow_exception(exception);
        if (script.givenUp.contains(message.id))
            return giveUp(u"отказ"_s);
        if (script.doneBefore.contains(message.id))
            return doneBefore(u"выполнено раньше"_s);
        return !script.refused.contains(message.id);
    }
    void onSendFailed(int id) override
    {
        script.events.append(u"%1 kept"_s.arg(id));
        BasicHandler::onSendFailed(id);
    }
    void onMessageDone(int id) override
    {
        script.events.append(u"%1 deleted"_s.arg(id));
        BasicHandler::onMessageDone(id);
    }
    void onQueueEmpty() override
    {
        script.events.append(u"end"_s);
        BasicHandler::onQueueEmpty();
    }

    QList<Message> delivered;

private:
    Script &script;
};

class RecordingSink : public OutcomeSink
{
public:
    void take(const Outcome &outcome) override
    {
        lines.append(
            u"%1 %2 %3"_s.arg(QString::number(outcome.id), nameOf(outcome.verdict), outcome.text));
    }

    void note(const Fact &fact) override
    {
        lines.append(u"%1 %2 %3"_s.arg(fact.name, fact.subject, fact.value));
    }

    QStringList lines;
};

/// As the till's daily report, it has no use for facts.
class CountingSink : public OutcomeSink
{
public:
    void take(const Outcome & /*outcome*/) override { ++count; }

    int count = 0;
};

/// The service answers each request.
class ExchangingHandler : public ScriptedHandler
{
public:
    using ScriptedHandler::ScriptedHandler;

    bool sendMessage(const Message &message) override
    {
        http::ExchangeReport report;
        report.host = u"bank.example"_s;
        report.status = 404;
        report.clockDifference = std::chrono::seconds(3);
        http::tellObserver(report);
        return ScriptedHandler::sendMessage(message);
    }
};

/// A worker that was made by hand. The message handler ends the program in an orderly way, which
/// keeps its counts of covered lines.
int runWithoutState()
{
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext &, const QString &text) {
        fprintf(stderr, "%s\n", qPrintable(text));
        if (type == QtFatalMsg)
            std::exit(3);
    });
    Script script;
    ScriptedHandler(u"spasibo"_s, script).run();
    return 0;
}

} // namespace

class TestBasicHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();

    void emptyQueue();
    void failureIsSteppedOver();
    void failIdAtTheEnd();
    void everyPassStepsOverOneFailure();
    void typesDoNotMix();
    void forcedStartServesTheWholeType();
    void stopBeforeTheFirstRead();
    void stopBetweenTwoMessages();
    void standByLeavesTheQueueAlone();
    void messageThatHasToWait();
    void workerWithoutState();
    void idZeroIsNeverProcessed();
    void lostDatabaseForgetsTheFailId();
    void unreadableBodyReachesTheHandler();
    void rowThatCannotBeDeleted();
    void idIsUsedAgain_data();
    void idIsUsedAgain();
    void handlerThatThrows();
    void outcomesAreReported();
    void dropLeavesALine();
    void lineOfADropNamesReferenceAndStatus();
    void factsAreReported();
    void factsAreNotForEverySink();
    void wordOutsideOfAnAttempt();
    void typeIsListedWhileItRuns();
    void snapshotIsNotDisturbed();
    void unreachableDatabaseLeavesRun();
    void linesOfAPass();
    void endOfAPassShrinksTheLog();
    void operationsKeepTheirPlaces();

private:
    void put(const QList<int> &ids, const QString &body = u"{}"_s);
    void refuse(int id) { script.refused.insert(id); }
    QString pass(const QString &type = u"spasibo"_s);
    int failId() const { return state->startIds.lock()->value(u"spasibo"_s, -1); }

    std::unique_ptr<QueueDatabase> database;
    std::shared_ptr<SharedState> state;
    Script script;
};

void TestBasicHandler::init()
{
    database.reset();
    database = std::make_unique<QueueDatabase>();
    state = std::make_shared<SharedState>();
    script = {};
}

void TestBasicHandler::put(const QList<int> &ids, const QString &body)
{
    for (const int id : ids)
        database->query(u"INSERT INTO message (messageid, type, body) VALUES (?, 'spasibo', ?)"_s,
                        {id, body});
}

QString TestBasicHandler::pass(const QString &type)
{
    script.events.clear();
    ScriptedHandler handler(type, script);
    handler.setState(state);
    handler.run();
    return script.events.join(u", ");
}

void TestBasicHandler::emptyQueue()
{
    state->startIds.lock()->insert(u"spasibo"_s, 3);
    QCOMPARE(pass(), u"end"_s);
    QVERIFY(!state->startIds.lock()->contains(u"spasibo"_s));
}

void TestBasicHandler::failureIsSteppedOver()
{
    put({5, 6, 7});
    refuse(6);
    QCOMPARE(pass(), u"5 deleted, 6 kept"_s);
    QCOMPARE(failId(), 6);
    QCOMPARE(pass(), u"7 deleted, end"_s);
    QCOMPARE(failId(), -1);
    QCOMPARE(pass(), u"6 kept"_s);
    QCOMPARE(database->ids(), QList<int>{6});
    script.refused.clear();
    QCOMPARE(pass(), u"end"_s);
    QCOMPARE(pass(), u"6 deleted, end"_s);
}

void TestBasicHandler::failIdAtTheEnd()
{
    put({5});
    state->startIds.lock()->insert(u"spasibo"_s, 5);
    QCOMPARE(pass(), u"end"_s);
    QCOMPARE(failId(), -1);
    QCOMPARE(pass(), u"5 deleted, end"_s);
}

void TestBasicHandler::everyPassStepsOverOneFailure()
{
    put({1, 2, 3});
    refuse(1);
    refuse(2);
    QCOMPARE(pass(), u"1 kept"_s);
    QCOMPARE(pass(), u"2 kept"_s);
    QCOMPARE(pass(), u"3 deleted, end"_s);
    QCOMPARE(pass(), u"1 kept"_s);
}

void TestBasicHandler::typesDoNotMix()
{
    put({1});
    const int other = database->put(u"mindbox"_s, u"{}"_s);
    state->startIds.lock()->insert(u"mindbox"_s, 77);
    QCOMPARE(pass(), u"1 deleted, end"_s);
    QCOMPARE(database->ids(), QList<int>{other});
    QCOMPARE(state->startIds.copy(), (QMap<QString, int>{{u"mindbox"_s, 77}}));
}

void TestBasicHandler::forcedStartServesTheWholeType()
{
    const int first = database->put(u"spasibo"_s, u"{}"_s, u"1"_s);
    const int second = database->put(u"spasibo"_s, u"{}"_s, u"2"_s);
    ScriptedHandler handler(u"spasibo"_s, script);
    handler.setState(state);
    handler.setCardNumber(u"2"_s);
    handler.run();
    QCOMPARE(handler.delivered.size(), 2);
    QCOMPARE(handler.delivered.at(0).id, first);
    QCOMPARE(handler.delivered.at(1).id, second);
}

void TestBasicHandler::stopBeforeTheFirstRead()
{
    put({5});
    state->startIds.lock()->insert(u"spasibo"_s, 5);
    state->stopFlag = 1;
    const LogCapture log(u"spasibo"_s);
    QCOMPARE(pass(), u""_s);
    QCOMPARE(failId(), 5);
    QCOMPARE(log.lines().count(u"WARN Получен сигнал завершения работы"_s), 1);
}

void TestBasicHandler::stopBetweenTwoMessages()
{
    put({1, 2});
    script.stopAt = 1;
    QCOMPARE(pass(), u"1 deleted"_s);
    QCOMPARE(database->ids(), QList<int>{2});
}

/// Another service has taken over. The next pass, when it is this one's turn again, goes on where
/// this one would have begun.
void TestBasicHandler::standByLeavesTheQueueAlone()
{
    put({5, 6});
    state->startIds.lock()->insert(u"spasibo"_s, 5);
    state->role = ServiceRole::StandBy;
    const LogCapture log(u"spasibo"_s);
    QCOMPARE(pass(), u""_s);
    QCOMPARE(failId(), 5);
    QVERIFY(log.lines().contains(
        u"INFO Служба больше не обслуживает очередь, обработчик завершается"_s));
    state->role = ServiceRole::Active;
    QCOMPARE(pass(), u"6 deleted, end"_s);
}

void TestBasicHandler::messageThatHasToWait()
{
    put({1, 2, 3, 4, 5});
    QMap<int, BasicHandler::Turn> turns{{2, BasicHandler::Turn::Later},
                                        {4, BasicHandler::Turn::EndOfPass}};
    ScriptedHandler handler(u"spasibo"_s, script,
                            [&turns](const Message &message, queue::DAO &, Log4Qt::Logger &) {
                                return turns.value(message.id, BasicHandler::Turn::Now);
                            });
    handler.setState(state);
    handler.run();
    QCOMPARE(script.events.join(u", "_s), u"1 deleted, 2 kept, 3 deleted, 4 kept"_s);
    QCOMPARE(failId(), 4);
    QCOMPARE(database->ids(), (QList<int>{2, 4, 5}));
}

void TestBasicHandler::workerWithoutState()
{
    QProcess worker;
    worker.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(withoutState)});
    QVERIFY(worker.waitForFinished());
    QCOMPARE(worker.exitCode(), 3);
    QVERIFY(worker.readAllStandardError().contains("A worker runs without its state"));
}

void TestBasicHandler::idZeroIsNeverProcessed()
{
    put({0, 1});
    QCOMPARE(pass(), u"end"_s);
    QCOMPARE(pass(), u"end"_s);
    QCOMPARE(database->ids(), (QList<int>{0, 1}));
}

void TestBasicHandler::lostDatabaseForgetsTheFailId()
{
    put({5, 6});
    state->startIds.lock()->insert(u"spasibo"_s, 5);
    // A missing table would be created.
    database->query(u"ALTER TABLE message RENAME COLUMN messageid TO away"_s);
    QCOMPARE(pass(), u"end"_s);
    database->query(u"ALTER TABLE message RENAME COLUMN away TO messageid"_s);
    QCOMPARE(failId(), -1);
    QCOMPARE(pass(), u"5 deleted, 6 deleted, end"_s);
}

void TestBasicHandler::unreadableBodyReachesTheHandler()
{
    put({1}, u"no json"_s);
    ScriptedHandler handler(u"spasibo"_s, script);
    handler.setState(state);
    handler.run();
    QCOMPARE(handler.delivered.size(), 1);
    QVERIFY(handler.delivered.first().body.isEmpty());
}

void TestBasicHandler::rowThatCannotBeDeleted()
{
    put({1, 2});
    database->query(u"CREATE TRIGGER queues.stubborn BEFORE DELETE ON message "
                    "BEGIN SELECT RAISE(ABORT, 'disk full'); END"_s);
    const LogCapture log(u"spasibo"_s);
    QCOMPARE(pass(), u"1 deleted, 1 kept"_s);
    QVERIFY(log.lines().contains(u"ERROR Сообщение 1 доставлено, но не удаляется из базы данных, "
                                 "повтор при следующем проходе"_s));
    QCOMPARE(pass(), u"2 deleted, 2 kept"_s);
    QCOMPARE(pass(), u"end"_s);
    QCOMPARE(database->ids(), (QList<int>{1, 2}));
    database->query(u"DROP TRIGGER queues.stubborn"_s);
    QCOMPARE(pass(), u"1 deleted, 2 deleted, end"_s);
}

void TestBasicHandler::handlerThatThrows()
{
    put({1, 2, 3, 4, 5});
    const QString full = u"База данных занята, %1"_s;
    script.thrown = {{1, std::make_exception_ptr(BasicException(full))},
                     {3, std::make_exception_ptr(std::bad_alloc())},
                     {4, std::make_exception_ptr(7)}};
    const LogCapture log(u"spasibo"_s);
    QCOMPARE(pass(), u"1 kept"_s);
    QCOMPARE(pass(), u"2 deleted, 3 kept"_s);
    QCOMPARE(pass(), u"4 kept"_s);
    QCOMPARE(pass(), u"5 deleted, end"_s);
    QCOMPARE(database->ids(), (QList<int>{1, 3, 4}));
    QCOMPARE(log.lines().filter(u"ERROR "_s),
             (QStringList{u"ERROR Ошибка при обработке сообщения 1, сообщение остаётся: "_s + full,
                          u"ERROR Ошибка при обработке сообщения 3, сообщение остаётся: "
                          "std::bad_alloc"_s,
                          u"ERROR Ошибка при обработке сообщения 4, сообщение остаётся: причина "
                          "неизвестна"_s}));
}

void TestBasicHandler::idIsUsedAgain_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("events");
    QTest::newRow("another message") << u"{\"sum\":2}"_s << u"1 deleted, 1 deleted, end"_s;
    // The new row has the id of the old one, so it looks as if the old one were still there.
    QTest::newRow("the same message") << u"{\"sum\":1}"_s << u"1 deleted, 1 kept"_s;
}

/// In a table that the till created without AUTOINCREMENT, the id of a deleted row is used again.
void TestBasicHandler::idIsUsedAgain()
{
    QFETCH(QString, body);
    QFETCH(QString, events);
    database->query(u"DROP TABLE message"_s);
    database->query(u"CREATE TABLE queues.message (messageid INTEGER PRIMARY KEY, type TEXT, "
                    "body TEXT, cardnumber TEXT, statuscode TEXT, creationtime TEXT)"_s);
    struct Till : ScriptedHandler
    {
        using ScriptedHandler::ScriptedHandler;
        void onMessageDone(int id) override
        {
            ScriptedHandler::onMessageDone(id);
            if (next.isEmpty())
                return;
            QSqlQuery insert(Singleton<ConnectionFactory>::instance()->getConnection());
            insert.prepare(u"INSERT INTO message (type, body) VALUES ('spasibo', ?)"_s);
            insert.addBindValue(std::exchange(next, QString()));
            QVERIFY(insert.exec());
            QCOMPARE(insert.lastInsertId().toInt(), id);
        }
        QString next;
    } handler(u"spasibo"_s, script);
    put({1}, u"{\"sum\":1}"_s);
    handler.next = body;
    handler.setState(state);
    handler.run();
    QCOMPARE(script.events.join(u", "_s), events);

    // It is delivered late, but not lost.
    if (!database->ids().isEmpty()) {
        QCOMPARE(pass(), u"end"_s);
        QCOMPARE(pass(), u"1 deleted, end"_s);
    }
}

void TestBasicHandler::outcomesAreReported()
{
    const auto sink = std::make_shared<RecordingSink>();
    state->outcomes = sink;
    put({1, 2, 3, 4});
    script.givenUp.insert(2);
    refuse(3);
    pass();
    put({5});
    script.doneBefore.insert(5);
    script.thrown.insert(4, std::make_exception_ptr(std::runtime_error("no table")));
    pass();
    pass();
    QCOMPARE(sink->lines, (QStringList{u"1 delivered "_s, u"2 dropped отказ"_s, u"3 kept "_s,
                                       u"4 kept no table"_s, u"5 delivered выполнено раньше"_s}));
}

/// Also without a receiver of the outcomes.
void TestBasicHandler::dropLeavesALine()
{
    const LogCapture log(u"outcome"_s);
    put({1, 2, 3});
    script.givenUp.insert(2);
    refuse(3);
    pass();
    QCOMPARE(log.lines(), QStringList{u"INFO Сообщение 2 (spasibo) снято с доставки: отказ"_s});
}

/// By these a person at the till finds the receipt again.
void TestBasicHandler::lineOfADropNamesReferenceAndStatus()
{
    ExchangingHandler handler(u"spasibo"_s, script);
    handler.setReferences({u"order"_s});
    handler.setState(state);
    put({1}, u"{\"order\":\"A-17\"}"_s);
    script.givenUp.insert(1);
    const LogCapture log(u"outcome"_s);
    handler.run();
    QCOMPARE(
        log.lines(),
        QStringList{u"INFO Сообщение 1 (spasibo, A-17) снято с доставки, код ответа 404: отказ"_s});
}

void TestBasicHandler::factsAreReported()
{
    ExchangingHandler handler(u"spasibo"_s, script);
    const auto sink = std::make_shared<RecordingSink>();
    state->outcomes = sink;
    put({1});
    handler.setState(state);
    handler.run();
    QCOMPARE(sink->lines, (QStringList{u"clock bank.example 3"_s, u"1 delivered "_s}));
}

void TestBasicHandler::factsAreNotForEverySink()
{
    ExchangingHandler handler(u"spasibo"_s, script);
    const auto sink = std::make_shared<CountingSink>();
    state->outcomes = sink;
    put({1, 2});
    handler.setState(state);
    handler.run();
    QCOMPARE(sink->count, 2);
}

/// A handler's own operations may be called without a worker. What they say then is for nobody, and
/// their results are the same.
void TestBasicHandler::wordOutsideOfAnAttempt()
{
    ScriptedHandler handler(u"spasibo"_s, script);
    QVERIFY(handler.giveUp(u"отказ"_s));
    QVERIFY(handler.doneBefore(u"выполнено раньше"_s));
    QVERIFY(!handler.keep(u"ожидание"_s));
    Message message;
    message.id = 1;
    const Outcome outcome = handler.attempt(message);
    QCOMPARE(outcome.verdict, Verdict::Delivered);
    QCOMPARE(outcome.text, QString());
}

void TestBasicHandler::typeIsListedWhileItRuns()
{
    put({1});
    bool wasListed = false;
    {
        struct Listing : ScriptedHandler
        {
            using ScriptedHandler::ScriptedHandler;
            bool *listed = nullptr;
            bool sendMessage(const Message & /*message*/) override
            {
                *listed = state->runningTypes.lock()->contains(type());
                return true;
            }
        } handler(u"spasibo"_s, script);
        handler.listed = &wasListed;
        handler.setState(state);
        QVERIFY(state->runningTypes.lock()->isEmpty());
        handler.run();
        QVERIFY(state->runningTypes.lock()->contains(u"spasibo"_s));
    }
    QVERIFY(wasListed);
    QVERIFY(state->runningTypes.lock()->isEmpty());
}

void TestBasicHandler::snapshotIsNotDisturbed()
{
    state->startIds.lock()->insert({{u"spasibo"_s, 3}, {u"mindbox"_s, 4}});
    const QMap<QString, int> snapshot = state->startIds.copy();
    QCOMPARE(pass(), u"end"_s);
    QCOMPARE(snapshot.size(), 2);
    QCOMPARE(state->startIds.copy(), (QMap<QString, int>{{u"mindbox"_s, 4}}));
}

void TestBasicHandler::unreachableDatabaseLeavesRun()
{
    database->setSettings(u"[database]\nname = /nowhere/queues.db\n"_s);
    ScriptedHandler handler(u"spasibo"_s, script);
    handler.setState(state);
    QVERIFY_EXCEPTION_THROWN(handler.run(), BasicException);
    QCOMPARE(script.events, QStringList());
}

void TestBasicHandler::linesOfAPass()
{
    put({7}, uR"({"url":"http://x","body":"%1 %2"})"_s);
    const LogCapture log(u"spasibo"_s);
    QCOMPARE(pass(), u"7 deleted, end"_s);
    QCOMPARE(
        log.lines(),
        (QStringList{u"INFO Обработчик spasibo запущен"_s, u"DEBUG Обработка сообщений"_s,
                     uR"(INFO Обработка сообщения: {"body":"%1 %2","url":"http://x"})"_s,
                     u"INFO Удаление сообщения 7"_s, u"DEBUG Обработка сообщений завершена"_s}));
}

void TestBasicHandler::endOfAPassShrinksTheLog()
{
    put({5});
    const QString log = database->file() + u"-wal"_s;
    {
        QSqlDatabase till = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"till"_s);
        till.setDatabaseName(database->file());
        QVERIFY(till.open());
        QSqlQuery reading(till);
        QVERIFY(reading.exec(u"SELECT * FROM message"_s) && reading.next());
        for (int id = 6; id <= 15; ++id)
            put({id}, u"{\"a\":\"%1\"}"_s.arg(QString(1024 * 1024, u'x')));
        QVERIFY(QFileInfo(log).size() > 10 * 1024 * 1024);
        reading.finish();
        // The till keeps the file open after the pass; otherwise the last connection would delete
        // the log.
        refuse(5);
        QCOMPARE(pass(), u"5 kept"_s);
        QCOMPARE(QFileInfo(log).size(), 0);
        till = QSqlDatabase();
    }
    QSqlDatabase::removeDatabase(u"till"_s);
}

void TestBasicHandler::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&BasicHandler::run), 0);
    QCOMPARE(slotOf(&BasicHandler::processMessages), 3);
    QCOMPARE(slotOf(&BasicHandler::isStopped), 4);
    QCOMPARE(slotOf(&BasicHandler::sendMessage), 5);
    QCOMPARE(slotOf(&BasicHandler::onSendFailed), 6);
    QCOMPARE(slotOf(&BasicHandler::onMessageDone), 7);
    QCOMPARE(slotOf(&BasicHandler::onQueueEmpty), 8);
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], withoutState) == 0)
        return runWithoutState();
    TestBasicHandler test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_basichandler.moc"
