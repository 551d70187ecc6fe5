#include "shared/core/paths.h"
#include "tests/handlers/support/delivery.h"
#include "tests/support/fakerestclient.h"
#include "tests/support/logcapture.h"
#include "tests/support/queuedatabase.h"

#include <QFile>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString message = uR"({"rrn":"T-1","documentId":"D-7","amount":199095})"_s;
const QString askStatus = u"POST http://pay.test/v1/status"_s;
const QString askRefund = u"POST http://pay.test/v1/refund"_s;

http::Response state(const QString &text)
{
    return json(200, {{u"data"_s, QJsonObject{{u"status"_s, text}}}});
}

http::Response refunded()
{
    return json(200, {{u"status"_s, u"success"_s}});
}

} // namespace

class TestAtolPayHandler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void outcome_data();
    void outcome();
    void lostReply_data();
    void lostReply();
    void requests_data();
    void requests();
    void settingsAreReadForEachMessage();

private:
    /// The settings of the payment system on the till.
    void writeSettings(const QString &text);

    QueueDatabase till;
};

void TestAtolPayHandler::writeSettings(const QString &text)
{
    const QString path = rootedPath(u"/tallocash/cash/paysystems/atolpay/atolpay.ini"_s);
    QVERIFY(QDir().mkpath(QFileInfo(path).path()));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(text.toUtf8());
}

void TestAtolPayHandler::init()
{
    writeSettings(u"[atolpay]\nurl = http://pay.test/v1/\ntoken = secret\n"_s);
}

void TestAtolPayHandler::outcome_data()
{
    QTest::addColumn<Script>("script");
    QTest::addColumn<QString>("outcome");
    QTest::addColumn<QString>("line");

    const QString done = u"INFO Отмена оплаты выполнена"_s;
    const QString needless = u"INFO Отмена не требуется"_s;
    const QString noReply = u"INFO Не удалось получить ответ от сервера"_s;
    const QString silent;
    const http::Response refusal =
        json(200, {{u"status"_s, u"error"_s}, {u"errorMessage"_s, u"Отказ"_s}});
    // clang-format off
    QTest::newRow("completed: refunded")           << Script{state(u"COMPLETED"_s), refunded()}     << u"delivered"_s  << silent;
    QTest::newRow("completed: refund refused")     << Script{state(u"COMPLETED"_s), refusal}        << u"kept service: в возврате отказано"_s << silent;
    QTest::newRow("completed: refund not reached") << Script{state(u"COMPLETED"_s), noConnection()} << keptBy(noConnection()) << silent;
    QTest::newRow("completed: refund says 500")    << Script{state(u"COMPLETED"_s), reply(500, R"({"status":"success"})")} << keptBy(reply(500)) << silent;
    QTest::newRow("completed, in lower case")      << Script{state(u"completed"_s), refunded()}     << u"delivered"_s  << silent;
    QTest::newRow("refunded: done already")        << Script{state(u"REFUNDED"_s)}                  << u"delivered: оплата уже возвращена"_s  << done;
    // The till relies on it that a refund in progress is not requested again.
    QTest::newRow("refund in progress: done")      << Script{state(u"REFUND_IN_PROGRESS"_s)}        << u"delivered: возврат уже выполняется"_s  << done;
    QTest::newRow("partly refunded: done")         << Script{state(u"PARTIAL_REFUNDED"_s)}          << u"delivered: оплата уже возвращена частично"_s  << done;
    // The till relies on it that a payment in progress is not waited for.
    QTest::newRow("in progress: dropped")          << Script{state(u"IN_PROGRESS"_s)}               << u"dropped: оплата ещё не завершена, возврата не было"_s  << needless;
    QTest::newRow("error: dropped")        << Script{state(u"ERROR"_s)}                     << u"dropped: оплата завершилась ошибкой, возврата не было"_s  << needless;
    QTest::newRow("expired: dropped")      << Script{state(u"EXPIRED"_s)}                   << u"dropped: срок оплаты истёк, возврата не было"_s  << needless;
    QTest::newRow("unknown state: stays")          << Script{state(u"PAID"_s)}                      << u"kept service: неизвестное состояние оплаты"_s << noReply;
    QTest::newRow("no state: stays")               << Script{json(200, {})}                         << u"kept service"_s << noReply;
    QTest::newRow("state is misplaced: stays")     << Script{json(200, {{u"data"_s, u"COMPLETED"_s}})} << u"kept service: неизвестное состояние оплаты"_s << noReply;
    QTest::newRow("status says 500: stays")        << Script{reply(500, R"({"data":{"status":"COMPLETED"}})")} << keptBy(reply(500)) << noReply;
    QTest::newRow("status not reached: stays")     << Script{noConnection()}                        << keptBy(noConnection()) << noReply;
    // clang-format on
}

void TestAtolPayHandler::outcome()
{
    QFETCH(Script, script);
    QFETCH(QString, line);

    const LogCapture log(u"atolpay"_s);
    FakeRestClient net(script);
    QTEST(outcomeOf(u"atolpay"_s, message), "outcome");
    QCOMPARE(net.transcript(), (QStringList{askStatus, askRefund}.mid(0, script.size())));
    QStringList expected{u"INFO Отправка сообщения"_s, u"INFO Получение статуса транакции: T-1"_s};
    if (!line.isEmpty())
        expected.append(line);
    QCOMPARE(log.lines(), expected);
}

void TestAtolPayHandler::lostReply_data()
{
    QTest::addColumn<Script>("first");
    QTest::addColumn<Script>("second");
    QTest::addColumn<QStringList>("requests");

    QTest::newRow("of the status: one refund, by the second attempt")
        << Script{timeout()} << Script{state(u"COMPLETED"_s), refunded()}
        << QStringList{askStatus, askStatus, askRefund};
    for (const QString &shown : {u"REFUNDED"_s, u"REFUND_IN_PROGRESS"_s, u"PARTIAL_REFUNDED"_s}) {
        QTest::addRow("of the refund, then %s: no second refund", qPrintable(shown))
            << Script{state(u"COMPLETED"_s), timeout()} << Script{state(shown)}
            << QStringList{askStatus, askRefund, askStatus};
    }
}

void TestAtolPayHandler::lostReply()
{
    QFETCH(Script, first);
    QFETCH(Script, second);
    QFETCH(QStringList, requests);

    FakeRestClient net(first);
    QVERIFY(!deliver(u"atolpay"_s, message));
    net.nextDelivery();
    net.play(second);
    QVERIFY(deliver(u"atolpay"_s, message));
    QCOMPARE(net.transcript(), requests);
}

void TestAtolPayHandler::requests_data()
{
    QTest::addColumn<QString>("body");
    QTest::addColumn<QByteArray>("asked");
    QTest::addColumn<QByteArray>("refund");
    // clang-format off
    QTest::newRow("as prepared")    << message << QByteArray(R"({"transactionId":"T-1"})")
                                    << QByteArray(R"({"amount":199095,"orderId":"D-7_refund","transactionId":"T-1"})");
    QTest::newRow("large amount")   << uR"({"rrn":"T-1","documentId":"D-7","amount":2147483647})"_s << QByteArray(R"({"transactionId":"T-1"})")
                                    << QByteArray(R"({"amount":2147483647,"orderId":"D-7_refund","transactionId":"T-1"})");
    QTest::newRow("no amount: 0")   << uR"({"rrn":"T-1","documentId":"D-7"})"_s << QByteArray(R"({"transactionId":"T-1"})")
                                    << QByteArray(R"({"amount":0,"orderId":"D-7_refund","transactionId":"T-1"})");
    QTest::newRow("no document")    << uR"({"rrn":"T-1","amount":1})"_s << QByteArray(R"({"transactionId":"T-1"})")
                                    << QByteArray(R"({"amount":1,"orderId":"_refund","transactionId":"T-1"})");
    QTest::newRow("no transaction") << uR"({"documentId":"D-7","amount":1})"_s << QByteArray(R"({"transactionId":""})")
                                    << QByteArray(R"({"amount":1,"orderId":"D-7_refund","transactionId":""})");
    QTest::newRow("numbers for texts") << uR"({"rrn":15,"documentId":7,"amount":"12"})"_s << QByteArray(R"({"transactionId":"15"})")
                                    << QByteArray(R"({"amount":12,"orderId":"7_refund","transactionId":"15"})");
    // clang-format on
}

void TestAtolPayHandler::requests()
{
    QFETCH(QString, body);
    QFETCH(QByteArray, asked);
    QFETCH(QByteArray, refund);
    FakeRestClient net({state(u"COMPLETED"_s), refunded()});
    QVERIFY(deliver(u"atolpay"_s, body));
    QCOMPARE(net.requestAt(0).body, asked);
    // The time after the document's identifier is cut off.
    static const QRegularExpression time(u"(?<=_refund)\\d{13}"_s);
    QCOMPARE(QString::fromUtf8(net.requestAt(1).body).remove(time), QString::fromUtf8(refund));
}

void TestAtolPayHandler::settingsAreReadForEachMessage()
{
    FakeRestClient net({state(u"EXPIRED"_s), state(u"EXPIRED"_s)});
    QVERIFY(deliver(u"atolpay"_s, message));
    writeSettings(u"[atolpay]\nurl = http://other.test/\ntoken = fresh\ntimeout = 3\n"_s);
    net.nextDelivery();
    QVERIFY(deliver(u"atolpay"_s, message));
    QCOMPARE(net.transcript(), (QStringList{askStatus, u"POST http://other.test/status"_s}));
    QCOMPARE(net.requestAt(0).header(u"Authorization"_s), u"Bearer secret"_s);
    QCOMPARE(net.requestAt(0).timeoutMs.value_or(-1), 10000);
    QCOMPARE(net.requestAt(1).header(u"Authorization"_s), u"Bearer fresh"_s);
    QCOMPARE(net.requestAt(1).timeoutMs.value_or(-1), 3000);
}

QTEST_GUILESS_MAIN(TestAtolPayHandler)
#include "tst_atolpayhandler.moc"
