#include "engine/basichandler.h"
#include "engine/handlerfactory.h"
#include "tests/support/logcapture.h"
#include "tests/support/vtable.h"

#include <log4qt/logger.h>

#include <QTest>

using namespace Qt::StringLiterals;

namespace {

class PlainHandler : public BasicHandler
{
public:
    PlainHandler()
        : BasicHandler(u"plain"_s)
    {
    }
    bool sendMessage(const Message & /*message*/) override { return true; }
};

class SharedHandler : public BasicHandler
{
public:
    using BasicHandler::BasicHandler;
    bool sendMessage(const Message & /*message*/) override { return true; }
};

constexpr HandlerRow rows[] = {
    row<PlainHandler>(u"plain", u"order.id receipt"),
    typedRow<SharedHandler>(u"sharedBatch", u"receipt"),
    typedRow<SharedHandler>(u"sharedReverse"),
};

} // namespace

class TestHandlerFactory : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void buildsTheClassOfTheRow();
    void sharedClassGetsItsType();
    void everyCallBuildsANewObject();
    void rowNamesTheReferenceKeys();
    void typesDifferByCase();
    void unknownType();
    void operationsKeepTheirPlaces();
};

void TestHandlerFactory::buildsTheClassOfTheRow()
{
    HandlerFactory factory(rows);
    const std::unique_ptr<BasicHandler> handler(factory.create(u"plain"_s));
    QVERIFY(dynamic_cast<PlainHandler *>(handler.get()));
    QCOMPARE(handler->type(), u"plain"_s);
    QVERIFY(handler->autoDelete());
}

void TestHandlerFactory::sharedClassGetsItsType()
{
    HandlerFactory factory(rows);
    for (const QString &type : {u"sharedBatch"_s, u"sharedReverse"_s}) {
        const std::unique_ptr<BasicHandler> handler(factory.create(type));
        QVERIFY(dynamic_cast<SharedHandler *>(handler.get()));
        QCOMPARE(handler->type(), type);
        QCOMPARE(handler->logger()->name(), type);
    }
}

void TestHandlerFactory::everyCallBuildsANewObject()
{
    HandlerFactory factory(rows);
    const std::unique_ptr<BasicHandler> first(factory.create(u"plain"_s));
    const std::unique_ptr<BasicHandler> second(factory.create(u"plain"_s));
    QVERIFY(first && second);
    QVERIFY(first != second);
}

void TestHandlerFactory::rowNamesTheReferenceKeys()
{
    HandlerFactory factory(rows);
    Message message;
    message.body = {{u"receipt"_s, 4711}, {u"order"_s, QVariantMap{{u"id"_s, u"A-1"_s}}}};
    const auto referenceOf = [&](const QString &type) {
        const std::unique_ptr<BasicHandler> handler(factory.create(type));
        return handler->attempt(message).reference;
    };
    QCOMPARE(referenceOf(u"plain"_s), u"A-1 4711"_s);
    QCOMPARE(referenceOf(u"sharedBatch"_s), u"4711"_s);
    QCOMPARE(referenceOf(u"sharedReverse"_s), QString());
}

void TestHandlerFactory::typesDifferByCase()
{
    HandlerFactory factory(rows);
    const std::unique_ptr<BasicHandler> found(factory.create(u"sharedBatch"_s));
    QVERIFY(found);
    QCOMPARE(factory.create(u"sharedbatch"_s), nullptr);
}

void TestHandlerFactory::unknownType()
{
    HandlerFactory factory(rows);
    const LogCapture log(u"handlerfactory"_s);
    QCOMPARE(factory.create(u"nosuch %1"_s), nullptr);
    QCOMPARE(log.lines(),
             QStringList{u"WARN Не найден обработчик для сообщений типа 'nosuch %1'"_s});
}

void TestHandlerFactory::operationsKeepTheirPlaces()
{
    QCOMPARE(slotOf(&HandlerFactory::create), 2);
}

QTEST_GUILESS_MAIN(TestHandlerFactory)
#include "tst_handlerfactory.moc"
