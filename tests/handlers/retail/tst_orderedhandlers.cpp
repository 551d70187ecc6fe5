#include "engine/basichandler.h"
#include "engine/handlerfactory.h"
#include "handlers/handlertable.h"
#include "handlers/retail/dsslhandler.h"
#include "handlers/retail/excisemarkhandler.h"
#include "handlers/retail/markdownhandler.h"
#include "handlers/retail/onlinecheckhandler.h"
#include "handlers/retail/ordering.h"
#include "handlers/retail/partialreservationhandler.h"
#include "rig/mariadbserver.h"
#include "shared/core/mockfactory.h"
#include "shared/net/tcpclient.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"
#include "tests/support/vtable.h"

#include <log4qt/logmanager.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

using namespace Qt::StringLiterals;
using rig::MariaDbServer;

namespace {

/// A TCP service for `dssl`, which refuses the callers of some hosts.
class FakeTcpClient : public TcpClient
{
public:
    explicit FakeTcpClient(QStringList &written)
        : written(written)
    {
    }
    void setHost(const QString &name) override { host = name; }
    bool connectToServer() override { return host != u"down"; }
    void disconnectFromServer() override {}
    void write(const QByteArray &data) override { written.append(QString::fromUtf8(data)); }

private:
    QStringList &written;
    QString host;
};

QString text(const QJsonObject &object)
{
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

QString text(const QJsonArray &array)
{
    return QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Compact));
}

/// The body of a message of the type about these things.
QString about(const QString &type, const QStringList &things)
{
    QJsonObject body{{u"url"_s, u"http://retail.test/"_s}};
    if (type == u"excisemark" || type == u"markdown") {
        QJsonArray elements;
        for (const QString &thing : things)
            elements.append(
                QJsonObject{{type == u"markdown" ? u"rawdata"_s : u"exciseMarkId"_s, thing}});
        body.insert(u"body"_s, text(elements));
    } else if (type == u"partialreservation") {
        body.insert(u"body"_s, text(QJsonObject{{u"markId"_s, things.value(0)}}));
    } else if (type == u"onlinecheck") {
        body.insert(u"state"_s, things.value(0));
    } else {
        body.insert(u"url"_s, things.value(0));
        body.insert(u"body"_s, things.value(0));
    }
    return text(body);
}

bool endsThePass(const QString &type)
{
    return type != u"onlinecheck" && type != u"dssl";
}

} // namespace

/// Which messages of a type may overtake others, on real tables. Every case runs on SQLite and on a
/// real server.
class TestOrderedHandlers : public QObject
{
    Q_OBJECT

public:
    explicit TestOrderedHandlers(MariaDbServer *server)
        : server(server)
    {
    }

private Q_SLOTS:
    void init();
    void cleanup();

    void delivered_data();
    void delivered();
    void youngerOneWaits_data();
    void youngerOneWaits();
    void skippedRowIsRetriedWhenTheQueueIsEmpty_data();
    void skippedRowIsRetriedWhenTheQueueIsEmpty();
    void orderOutlastsARestart_data();
    void orderOutlastsARestart();
    void markers_data();
    void markers();
    void onlyOlderRowsCount();
    void firstHitDecides();
    void otherTypesDoNotCount();
    void linesOfAPass();
    void bodyIsAnnouncedIndented();
    void stopBetweenTwoMessages();
    void rowThatCannotBeDeleted();
    void operationsKeepTheirPlaces_data();
    void operationsKeepTheirPlaces();

private:
    int put(const QString &type, const QStringList &things)
    {
        return database->put(type, about(type, things));
    }
    /// One pass; `replies` for the requests that it makes.
    void pass(const QString &type, const Script &replies);
    void types();

    MariaDbServer *server;
    std::unique_ptr<QueueDatabase> database;
    std::shared_ptr<SharedState> state;
    QStringList written;
};

void TestOrderedHandlers::init()
{
    database = std::make_unique<QueueDatabase>();
    if (server) {
        database->setSettings(server->settings());
        server->run(u"TRUNCATE TABLE queues.message"_s);
    }
    state = std::make_shared<SharedState>();
    written.clear();
    MockFactory<TcpClient>::install(std::make_shared<FakeTcpClient>(written));
}

void TestOrderedHandlers::cleanup()
{
    MockFactory<TcpClient>::install(nullptr);
    database.reset();
}

void TestOrderedHandlers::pass(const QString &type, const Script &replies)
{
    // A TCP type needs no replies.
    FakeRestClient net(type == u"dssl" ? Script() : replies);
    HandlerFactory factory(handlerTable());
    const std::unique_ptr<BasicHandler> handler(factory.create(type));
    handler->setState(state);
    handler->run();
    QCOMPARE(net.repliesLeft(), 0);
}

void TestOrderedHandlers::types()
{
    QTest::addColumn<QString>("type");
    for (const QString &type :
         {u"excisemark"_s, u"markdown"_s, u"partialreservation"_s, u"onlinecheck"_s, u"dssl"_s})
        QTest::newRow(qPrintable(type)) << type;
}

void TestOrderedHandlers::delivered_data()
{
    types();
}

void TestOrderedHandlers::delivered()
{
    QFETCH(QString, type);
    put(type, {u"A"_s});
    put(type, {u"B"_s});
    put(type, {u"A"_s});
    pass(type, {reply(200), reply(200), reply(200)});
    QCOMPARE(database->ids(), QList<int>());
    QVERIFY(state->startIds.lock()->isEmpty());
}

void TestOrderedHandlers::youngerOneWaits_data()
{
    types();
}

void TestOrderedHandlers::youngerOneWaits()
{
    QFETCH(QString, type);
    const QString refused = type == u"dssl" ? u"down"_s : u"A"_s;
    const int older = put(type, {refused});
    const int younger = put(type, {refused});
    const int other = put(type, {u"B"_s});

    pass(type, {noConnection()});
    QCOMPARE(database->ids(), (QList<int>{older, younger, other}));
    QCOMPARE(state->startIds.lock()->value(type), older);

    if (endsThePass(type)) {
        // The next pass ends at the younger one, and only the pass after it reaches the third.
        pass(type, {});
        QCOMPARE(database->ids(), (QList<int>{older, younger, other}));
        QCOMPARE(state->startIds.lock()->value(type), younger);
    }
    pass(type, {reply(200)});
    QCOMPARE(database->ids(), (QList<int>{older, younger}));
    QVERIFY(!state->startIds.lock()->contains(type));
}

void TestOrderedHandlers::skippedRowIsRetriedWhenTheQueueIsEmpty_data()
{
    QTest::addColumn<QString>("type");
    // Not for dssl, whose service here accepts a host always or never.
    for (const QString &type :
         {u"excisemark"_s, u"markdown"_s, u"partialreservation"_s, u"onlinecheck"_s})
        QTest::newRow(qPrintable(type)) << type;
}

void TestOrderedHandlers::skippedRowIsRetriedWhenTheQueueIsEmpty()
{
    QFETCH(QString, type);
    put(type, {u"A"_s});
    put(type, {u"A"_s});
    pass(type, {noConnection()});
    pass(type, {}); // the younger one waits
    if (endsThePass(type))
        pass(type, {}); // no row after it
    QCOMPARE(database->ids().size(), 2);
    pass(type, {reply(200), reply(200)});
    QCOMPARE(database->ids(), QList<int>());
}

void TestOrderedHandlers::orderOutlastsARestart_data()
{
    types();
}

void TestOrderedHandlers::orderOutlastsARestart()
{
    QFETCH(QString, type);
    const QString thing = type == u"dssl" ? u"down"_s : u"A"_s;
    const int older = put(type, {thing});
    const int younger = put(type, {thing});
    pass(type, {noConnection()});
    // A new process with the fail ids of the old one.
    const QMap<QString, int> former = state->startIds.copy();
    state = std::make_shared<SharedState>();
    state->startIds.lock()->insert(former);
    pass(type, {});
    QCOMPARE(database->ids(), (QList<int>{older, younger}));
    // A process without them begins with the older one again.
    state = std::make_shared<SharedState>();
    pass(type, {noConnection()});
    QCOMPARE(database->ids(), (QList<int>{older, younger}));
    QCOMPARE(state->startIds.lock()->value(type), older);
}

void TestOrderedHandlers::markers_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("older");
    QTest::addColumn<QString>("younger");
    QTest::addColumn<bool>("waits");

    const auto row = [](const char *name, const QString &type, const QString &older,
                        const QString &younger, bool waits) {
        QTest::addRow("%s: %s", qPrintable(type), name) << type << older << younger << waits;
    };
    const QString excise = u"excisemark"_s;
    const auto a = [&](const QString &type, const QStringList &things) {
        return about(type, things);
    };
    // clang-format off
    row("the same mark",              excise, a(excise, {u"A1"_s}), a(excise, {u"A1"_s}), true);
    row("another mark",               excise, a(excise, {u"A1"_s}), a(excise, {u"B2"_s}), false);
    row("one of two",                 excise, a(excise, {u"A1"_s}), a(excise, {u"B2"_s, u"A1"_s}), true);
    row("one of the older one's two", excise, a(excise, {u"B2"_s, u"A1"_s}), a(excise, {u"A1"_s}), true);
    row("inside another mark",        excise, a(excise, {u"XA1X"_s}), a(excise, {u"A1"_s}), true);
    row("around another mark",        excise, a(excise, {u"A1"_s}), a(excise, {u"XA1X"_s}), false);
    row("case matters",               excise, a(excise, {u"aBc"_s}), a(excise, {u"abc"_s}), false);
    row("a per cent sign",            excise, a(excise, {u"AxxB"_s}), a(excise, {u"A%B"_s}), true);
    row("an underscore",              excise, a(excise, {u"AxB"_s}), a(excise, {u"A_B"_s}), true);
    row("an underscore for nothing",  excise, a(excise, {u"AB"_s}), a(excise, {u"A_B"_s}), false);
    row("a quote is escaped in the row", excise, a(excise, {u"A\"B"_s}), a(excise, {u"A\"B"_s}), false);
    row("letters",                    excise, a(excise, {u"Ж1"_s}), a(excise, {u"Ж1"_s}), true);
    row("under any key",              excise, u"{\"note\":\"A1\"}"_s, a(excise, {u"A1"_s}), true);
    row("an empty mark",              excise, a(excise, {u"B2"_s}), a(excise, {QString()}), true);
    row("no key in an element",       excise, a(excise, {u"B2"_s}), u"{\"body\":\"[{\\\"a\\\":1}]\"}"_s, true);
    row("an element that is not an object", excise, a(excise, {u"B2"_s}), u"{\"body\":\"[5]\"}"_s, true);
    row("an empty list asks nothing", excise, a(excise, {u"B2"_s}), u"{\"body\":\"[]\"}"_s, false);
    row("an object asks nothing",     excise, a(excise, {u"B2"_s}), u"{\"body\":\"{\\\"exciseMarkId\\\":\\\"B2\\\"}\"}"_s, false);
    row("no JSON asks nothing",       excise, a(excise, {u"B2"_s}), u"{\"body\":\"B2\"}"_s, false);
    row("a list that is not a text",     excise, a(excise, {u"B2"_s}), u"{\"body\":[{\"exciseMarkId\":\"B2\"}]}"_s, false);
    row("no body",                    excise, a(excise, {u"B2"_s}), u"{}"_s, false);
    row("a number counts as text",    excise, a(excise, {u"17"_s}), u"{\"body\":\"[{\\\"exciseMarkId\\\":17}]\"}"_s, true);
    row("its own key",                u"markdown"_s, a(u"markdown"_s, {u"A1"_s}), a(u"markdown"_s, {u"A1"_s}), true);
    row("the other key is empty",     u"markdown"_s, a(excise, {u"A1"_s}), a(excise, {u"B2"_s}), true);
    row("an object",                  u"partialreservation"_s, a(u"partialreservation"_s, {u"A1"_s}), a(u"partialreservation"_s, {u"A1"_s}), true);
    row("another mark",               u"partialreservation"_s, a(u"partialreservation"_s, {u"A1"_s}), a(u"partialreservation"_s, {u"B2"_s}), false);
    row("an object without a mark",   u"partialreservation"_s, a(u"partialreservation"_s, {u"A1"_s}), u"{\"body\":\"{}\"}"_s, true);
    row("no JSON asks nothing",       u"partialreservation"_s, a(u"partialreservation"_s, {u"A1"_s}), u"{\"body\":\"A1\"}"_s, false);
    row("a list asks nothing",        u"partialreservation"_s, a(u"partialreservation"_s, {u"A1"_s}), u"{\"body\":\"[]\"}"_s, false);
    row("the same state",             u"onlinecheck"_s, a(u"onlinecheck"_s, {u"A1"_s}), a(u"onlinecheck"_s, {u"A1"_s}), true);
    row("another state",              u"onlinecheck"_s, a(u"onlinecheck"_s, {u"A1"_s}), a(u"onlinecheck"_s, {u"B2"_s}), false);
    row("no state",                   u"onlinecheck"_s, a(u"onlinecheck"_s, {u"A1"_s}), u"{}"_s, true);
    row("the same address",           u"dssl"_s, a(u"dssl"_s, {u"down"_s}), u"{\"url\":\"down\"}"_s, true);
    row("another address",            u"dssl"_s, a(u"dssl"_s, {u"down"_s}), a(u"dssl"_s, {u"up"_s}), false);
    row("no address",                 u"dssl"_s, a(u"dssl"_s, {u"down"_s}), u"{}"_s, true);
    // clang-format on
}

void TestOrderedHandlers::markers()
{
    QFETCH(QString, type);
    QFETCH(QString, older);
    QFETCH(QString, younger);
    QFETCH(bool, waits);

    const int olderId = database->put(type, older);
    const int youngerId = database->put(type, younger);
    state->startIds.lock()->insert(type, olderId);
    pass(type, waits ? Script() : Script{reply(200)});
    QCOMPARE(database->ids(), waits ? (QList<int>{olderId, youngerId}) : QList<int>{olderId});
}

void TestOrderedHandlers::onlyOlderRowsCount()
{
    put(u"excisemark"_s, {u"A"_s});
    const int younger = put(u"excisemark"_s, {u"A"_s});
    // The younger one is in the table already when the older one is tried.
    pass(u"excisemark"_s, {reply(200), noConnection()});
    QCOMPARE(database->ids(), QList<int>{younger});
}

void TestOrderedHandlers::firstHitDecides()
{
    struct RecordingDao : queue::DAO
    {
        bool hasEarlierMessage(const QString &type, int id, const QString &marker) override
        {
            asked += u"%1 %2 %3"_s.arg(type, QString::number(id), marker);
            return marker == u"B";
        }
        QStringList asked;
    } dao;
    constexpr Ordering ordering{
        .markersOf =
            [](const Message &) {
                return QStringList{u"A"_s, u"B"_s, u"C"_s};
            },
        .onHit = BasicHandler::Turn::Later,
    };
    Message message;
    message.id = 9;
    message.type = u"excisemark"_s;
    QVERIFY(turnOf(message, dao, *Log4Qt::LogManager::logger(u"excisemark"_s), ordering)
            == BasicHandler::Turn::Later);
    QCOMPARE(dao.asked, (QStringList{u"excisemark 9 A"_s, u"excisemark 9 B"_s}));
}

void TestOrderedHandlers::otherTypesDoNotCount()
{
    const int other = put(u"markdown"_s, {u"A"_s});
    put(u"excisemark"_s, {u"A"_s});
    pass(u"excisemark"_s, {reply(200)});
    QCOMPARE(database->ids(), QList<int>{other});
}

void TestOrderedHandlers::linesOfAPass()
{
    const int older = put(u"onlinecheck"_s, {u"A"_s});
    const int younger = put(u"onlinecheck"_s, {u"A"_s});
    const int other = put(u"onlinecheck"_s, {u"B"_s});
    state->startIds.lock()->insert(u"onlinecheck"_s, older);
    const LogCapture log(u"onlinecheck"_s);
    pass(u"onlinecheck"_s, {reply(200)});
    const auto announced = [](const QString &thing) {
        return u"INFO Обработка сообщения:\n{\n    \"state\": \"%1\",\n    \"url\": \"http://retail.test/\"\n}\n"_s
            .arg(thing);
    };
    QCOMPARE(log.lines(), (QStringList{
                              u"INFO Обработчик onlinecheck запущен"_s,
                              u"DEBUG Обработка сообщений"_s,
                              announced(u"A"_s),
                              announced(u"B"_s),
                              u"INFO Отправка сообщения %1"_s.arg(other),
                              u"INFO Удаление сообщения %1"_s.arg(other),
                              u"DEBUG Обработка сообщений завершена"_s,
                          }));
    QCOMPARE(database->ids(), (QList<int>{older, younger}));
}

void TestOrderedHandlers::bodyIsAnnouncedIndented()
{
    database->put(u"markdown"_s, u"{\"b\":[1,{\"c\":\"%1 ж\"}],\"a\":null}"_s);
    const LogCapture log(u"markdown"_s);
    pass(u"markdown"_s, {reply(200)});
    QCOMPARE(
        log.lines().value(2),
        u"INFO Обработка сообщения:\n{\n    \"a\": null,\n    \"b\": [\n        1,\n        {\n            \"c\": \"%1 ж\"\n        }\n    ]\n}\n"_s);
}

void TestOrderedHandlers::stopBetweenTwoMessages()
{
    put(u"onlinecheck"_s, {u"A"_s});
    const int younger = put(u"onlinecheck"_s, {u"A"_s});
    state->startIds.lock()->insert(u"onlinecheck"_s, younger - 1);
    state->stopFlag = 1;
    pass(u"onlinecheck"_s, {});
    QCOMPARE(database->ids().size(), 2);
    QCOMPARE(state->startIds.lock()->value(u"onlinecheck"_s), younger - 1);
}

void TestOrderedHandlers::rowThatCannotBeDeleted()
{
    if (server)
        return; // the trigger is SQLite's
    const int id = put(u"excisemark"_s, {u"A"_s});
    database->query(
        u"CREATE TRIGGER queues.stay BEFORE DELETE ON message BEGIN SELECT RAISE(IGNORE); END"_s);
    const LogCapture log(u"excisemark"_s);
    pass(u"excisemark"_s, {reply(200)});
    QCOMPARE(state->startIds.lock()->value(u"excisemark"_s), id);
    QVERIFY(log.lines().contains(
        u"ERROR Сообщение %1 доставлено, но не удаляется из базы данных, повтор при следующем проходе"_s
            .arg(id)));
}

void TestOrderedHandlers::operationsKeepTheirPlaces_data()
{
    QTest::addColumn<int>("processMessages");
    QTest::addColumn<int>("sendMessage");
    QTest::newRow("ExciseMarkHandler")
        << slotOf(&ExciseMarkHandler::processMessages) << slotOf(&ExciseMarkHandler::sendMessage);
    QTest::newRow("MarkdownHandler")
        << slotOf(&MarkdownHandler::processMessages) << slotOf(&MarkdownHandler::sendMessage);
    QTest::newRow("PartialReservationHandler")
        << slotOf(&PartialReservationHandler::processMessages)
        << slotOf(&PartialReservationHandler::sendMessage);
    QTest::newRow("OnlinecheckHandler")
        << slotOf(&OnlinecheckHandler::processMessages) << slotOf(&OnlinecheckHandler::sendMessage);
    QTest::newRow("DsslHandler") << slotOf(&DsslHandler::processMessages)
                                 << slotOf(&DsslHandler::sendMessage);
}

void TestOrderedHandlers::operationsKeepTheirPlaces()
{
    QFETCH(int, processMessages);
    QFETCH(int, sendMessage);
    QCOMPARE(processMessages, 3);
    QCOMPARE(sendMessage, 5);
}

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    TestOrderedHandlers onSqlite(nullptr);
    int failures = QTest::qExec(&onSqlite, argc, argv);
    MariaDbServer server;
    TestOrderedHandlers onServer(&server);
    failures += QTest::qExec(&onServer, argc, argv);
    return failures;
}

#include "tst_orderedhandlers.moc"
