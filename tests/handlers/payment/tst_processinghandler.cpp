#include "engine/basichandler.h"
#include "handlers/handlertable.h"
#include "shared/core/basicexception.h"
#include "shared/core/singleton.h"
#include "shared/document/paymentprocessingfactory.h"
#include "shared/document/valutcollection.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/testsettings.h"

#include <QTest>

#include <stdexcept>

using namespace Qt::StringLiterals;

namespace {

/// Replaces a shared object for one test.
template <typename T>
class Substitute
{
public:
    explicit Substitute(T *object)
        : former(Singleton<T>::replace(object))
    {
    }
    ~Substitute() { Singleton<T>::replace(former); }
    Substitute(const Substitute &) = delete;

private:
    T *former;
};

struct Processing : PaymentProcessing
{
    bool isDone = false;
    QString failure;
    QVariantMap seen;

    bool process(const QVariantMap &fields) override
    {
        seen = fields;
        if (!failure.isEmpty())
            throw BasicException(failure);
        return isDone;
    }
};

/// Knows one processing, for the currency 643.
struct Factory : PaymentProcessingFactory
{
    int prepared = 0;
    QString failure;
    std::shared_ptr<Processing> processing = std::make_shared<Processing>();

    void prepare() override { ++prepared; }
    std::shared_ptr<PaymentProcessing> getProcessing(const Valut &valut) override
    {
        if (!failure.isEmpty())
            throw BasicException(failure);
        return valut.getCode() == 643 ? processing : nullptr;
    }
};

struct Currencies : ValutCollection
{
    Valut getByCode(int /*code*/) override { throw BasicException(u"Нет валют"_s); }
};

const QString opening = u"INFO Обработка сообщения 7"_s;
const QString roubles = uR"({"valutCode":643,"order":"42"})"_s;

} // namespace

class TestProcessingHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void processingDecides_data();
    void processingDecides();
    void eachHandlerPreparesTheFactory();
    void noProcessing_data();
    void noProcessing();
    void failedLookup_data();
    void failedLookup();
    void otherFailureOfTheLookupPasses();
    void failureOfTheProcessingPasses();
    void settingsToRequest();
    void badSetting();
};

void TestProcessingHandler::processingDecides_data()
{
    QTest::addColumn<bool>("isDone");
    QTest::newRow("done") << true;
    QTest::newRow("not done") << false;
}

void TestProcessingHandler::processingDecides()
{
    QFETCH(bool, isDone);
    Factory factory;
    factory.processing->isDone = isDone;
    const Substitute<PaymentProcessingFactory> substitute(&factory);
    const LogCapture log(u"processing"_s);
    QCOMPARE(deliver(u"processing"_s, roubles), isDone);
    QCOMPARE(factory.processing->seen, (QVariantMap{{u"valutCode"_s, 643}, {u"order"_s, u"42"_s}}));
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestProcessingHandler::eachHandlerPreparesTheFactory()
{
    Factory factory;
    const Substitute<PaymentProcessingFactory> substitute(&factory);
    HandlerFactory handlers(handlerTable());
    const std::unique_ptr<BasicHandler> first(handlers.create(u"processing"_s));
    QCOMPARE(factory.prepared, 1);
    const std::unique_ptr<BasicHandler> second(handlers.create(u"processing"_s));
    QCOMPARE(factory.prepared, 2);
    first->sendMessage({});
    QCOMPARE(factory.prepared, 2);
}

void TestProcessingHandler::noProcessing_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QString>("code");
    QTest::newRow("unknown currency") << uR"({"valutCode":840})"_s << u"840"_s;
    QTest::newRow("no currency") << u"{}"_s << u"0"_s;
    QTest::newRow("not a number") << uR"({"valutCode":"RUB"})"_s << u"0"_s;
    QTest::newRow("below 0") << uR"({"valutCode":-643})"_s << u"-643"_s;
}

void TestProcessingHandler::noProcessing()
{
    QFETCH(QString, body);
    QFETCH(QString, code);
    Factory factory;
    const Substitute<PaymentProcessingFactory> substitute(&factory);
    const LogCapture log(u"processing"_s);
    QCOMPARE(outcomeOf(u"processing"_s, body),
             u"kept request: не настроен процессинг для валюты "_s + code);
    QCOMPARE(log.lines(),
             (QStringList{opening, u"ERROR Не найден процессинг с кодом валюты "_s + code}));
}

void TestProcessingHandler::failedLookup_data()
{
    QTest::addColumn<bool>("hasCurrencies");
    QTest::addColumn<QString>("text");
    QTest::newRow("of the processing") << true << u"Нет связи с %1"_s;
    QTest::newRow("of the currency") << false << u"Нет валют"_s;
}

void TestProcessingHandler::failedLookup()
{
    QFETCH(bool, hasCurrencies);
    QFETCH(QString, text);
    ValutCollection known;
    Currencies unknown;
    const Substitute<ValutCollection> currencies(hasCurrencies ? &known : &unknown);
    Factory factory;
    factory.failure = u"Нет связи с %1"_s;
    const Substitute<PaymentProcessingFactory> substitute(&factory);
    const LogCapture log(u"processing"_s);
    QCOMPARE(outcomeOf(u"processing"_s, roubles),
             u"kept request: не настроен процессинг для валюты 643"_s);
    QCOMPARE(log.lines(), (QStringList{opening, u"ERROR Критическая ошибка: "_s + text,
                                       u"ERROR Не найден процессинг с кодом валюты 643"_s}));
}

void TestProcessingHandler::otherFailureOfTheLookupPasses()
{
    struct Broken : ValutCollection
    {
        Valut getByCode(int /*code*/) override { throw std::runtime_error("broken"); }
    } broken;
    const Substitute<ValutCollection> currencies(&broken);
    Factory factory;
    const Substitute<PaymentProcessingFactory> substitute(&factory);
    const LogCapture log(u"processing"_s);
    QVERIFY_THROWS_EXCEPTION(std::runtime_error, deliver(u"processing"_s, roubles));
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestProcessingHandler::failureOfTheProcessingPasses()
{
    // Only the look-up is guarded; errors of a processing are its own.
    Factory factory;
    factory.processing->failure = u"Сбой процессинга"_s;
    const Substitute<PaymentProcessingFactory> substitute(&factory);
    const LogCapture log(u"processing"_s);
    QVERIFY_EXCEPTION_THROWN(deliver(u"processing"_s, roubles), BasicException);
    QCOMPARE(log.lines(), QStringList{opening});
}

void TestProcessingHandler::settingsToRequest()
{
    TestSettings settings(u"[processing]\n643 = http://old.test/pay\n"_s);
    FakeRestClient net({json(200, {{u"success"_s, true}}), json(200, {{u"success"_s, false}})});
    QCOMPARE(outcomeOf(u"processing"_s, roubles), u"delivered"_s);
    // A change applies from the next worker on.
    settings.set(u"[processing]\n643 = http://new.test/pay\n"_s);
    QCOMPARE(outcomeOf(u"processing"_s, roubles), u"kept service"_s);
    QCOMPARE(net.transcript(),
             (QStringList{u"POST http://old.test/pay"_s, u"POST http://new.test/pay"_s}));
    QCOMPARE(net.lastRequest().body, QByteArray(R"({"order":"42","valutCode":643})"));
}

void TestProcessingHandler::badSetting()
{
    const TestSettings settings(u"[processing]\n643 = somewhere\n"_s);
    const LogCapture log(u"processing"_s);
    const FakeRestClient net;
    QVERIFY(!deliver(u"processing"_s, roubles));
    QCOMPARE(log.lines(),
             (QStringList{opening,
                          u"ERROR Критическая ошибка: Параметр processing:643 не является адресом "
                          "http или https, исправьте настройки"_s,
                          u"ERROR Не найден процессинг с кодом валюты 643"_s}));
}

QTEST_GUILESS_MAIN(TestProcessingHandler)
#include "tst_processinghandler.moc"
